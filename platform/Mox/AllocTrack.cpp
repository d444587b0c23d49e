#include "Mox/AllocTrack.h"

#include <mutex>
#include <utility>

namespace Mox {

namespace {

struct Records {
    std::mutex mutex;
    std::vector<const AllocTrackTypeInfo*> all;
};

Records& records() {
    static auto* const instance = new Records;
    return *instance;
}

} // namespace

AllocTrackTypeInfo::AllocTrackTypeInfo(Pello::String typeName)
    : typeName_(std::move(typeName)) {
    const std::lock_guard lock(records().mutex);
    records().all.push_back(this);
}

std::vector<const AllocTrackTypeInfo*> AllocTrackTypeInfo::all() {
    const std::lock_guard lock(records().mutex);
    return records().all;
}

} // namespace Mox
