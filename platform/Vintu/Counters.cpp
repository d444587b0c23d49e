#include "Vintu/Counters.h"

#include <map>
#include <mutex>

namespace Vintu {

namespace {

struct Registry {
    std::mutex mutex;
    std::map<Pello::String, std::uint64_t> counts; // nodes stay where they are
};

Registry& registry() {
    static auto* const instance = new Registry;
    return *instance;
}

} // namespace

std::uint64_t* Writer::registerCounter(const Pello::String& name) {
    Registry& r = registry();
    const std::lock_guard lock(r.mutex);
    return &r.counts[name];
}

std::vector<std::pair<Pello::String, std::uint64_t>> Writer::counters() const {
    Registry& r = registry();
    const std::lock_guard lock(r.mutex);
    return {r.counts.begin(), r.counts.end()};
}

Writer& writer() {
    static Writer instance;
    return instance;
}

} // namespace Vintu
