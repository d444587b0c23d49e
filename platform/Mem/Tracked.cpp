#include "Mem/Tracked.h"

#include "Pello/TypeName.h"

#include <mutex>

namespace Mem {

namespace {

/// Never destroyed: tables of static lifetime leave it after the last destructor of this file.
template <class Entries>
struct Registry {
    std::mutex mutex;
    Entries entries;

    static Registry& instance() {
        static auto* const registry = new Registry;
        return *registry;
    }
};

} // namespace

MemoryTracker::Place MemoryTracker::add(Entry entry) {
    auto& registry = Registry<std::list<Entry>>::instance();
    const std::lock_guard lock(registry.mutex);
    return registry.entries.insert(registry.entries.end(), std::move(entry));
}

void MemoryTracker::remove(Place place) {
    auto& registry = Registry<std::list<Entry>>::instance();
    const std::lock_guard lock(registry.mutex);
    registry.entries.erase(place);
}

std::vector<MemoryTracker::Block> MemoryTracker::blocks() {
    auto& registry = Registry<std::list<Entry>>::instance();
    const std::lock_guard lock(registry.mutex);
    std::vector<Block> all;
    for (const Entry& entry : registry.entries) {
        if (entry.thread != std::this_thread::get_id()) continue;
        const auto [name, size] = entry.describe();
        all.push_back({Pello::typeNameOf(*entry.tag), name, size});
    }
    return all;
}

} // namespace Mem
