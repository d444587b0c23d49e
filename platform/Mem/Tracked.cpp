#include "Mem/Tracked.h"

#include "Pello/TypeName.h"

namespace Mem {

std::list<MemoryTracker::Entry>& MemoryTracker::entries() {
    static thread_local std::list<Entry> instance;
    return instance;
}

std::vector<MemoryTracker::Block> MemoryTracker::blocks() {
    std::vector<Block> all;
    for (const Entry& entry : entries()) {
        const auto [name, size] = entry.describe();
        all.push_back({Pello::typeNameOf(*entry.tag), name, size});
    }
    return all;
}

} // namespace Mem
