#pragma once

#include "Pello/String.h"
#include "Pello/TypeName.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Mox {

/// How many objects of one type live, and the bytes that they take. One record for each type that
/// is tracked, for the life of the process.
class AllocTrackTypeInfo {
  public:
    explicit AllocTrackTypeInfo(Pello::String typeName);
    AllocTrackTypeInfo(const AllocTrackTypeInfo&) = delete;
    AllocTrackTypeInfo& operator=(const AllocTrackTypeInfo&) = delete;

    template <class T>
    static AllocTrackTypeInfo& of() {
        static auto* const info = new AllocTrackTypeInfo(Pello::typeName<T>());
        return *info;
    }

    /// An object of `size` bytes was allocated with that alignment: counted with the bytes that
    /// the alignment may cost.
    void _trackAllocation(std::size_t size, std::size_t alignment) {
        track(1, static_cast<std::int64_t>((size + alignment - 1) / alignment * alignment));
    }
    void _trackDeallocation(std::size_t size, std::size_t alignment) {
        track(-1, -static_cast<std::int64_t>((size + alignment - 1) / alignment * alignment));
    }
    /// The same for objects that lie in a slab, without such bytes.
    void _trackAllocationNoOverhead(std::size_t size) { track(1, static_cast<std::int64_t>(size)); }
    void _trackDeallocationNoOverhead(std::size_t size) {
        track(-1, -static_cast<std::int64_t>(size));
    }

    const Pello::String& typeName() const { return typeName_; }
    std::int64_t objects() const { return objects_; }
    std::int64_t bytes() const { return bytes_; }

    /// The records of all types that have been tracked so far.
    static std::vector<const AllocTrackTypeInfo*> all();

  private:
    void track(std::int64_t objects, std::int64_t bytes) {
        objects_ += objects;
        bytes_ += bytes;
    }

    Pello::String typeName_;
    std::atomic<std::int64_t> objects_{0};
    std::atomic<std::int64_t> bytes_{0};
};

/// Base of a class `T` whose objects lie in a slab and are tracked for as long as they live.
template <class T>
class Tracked {
  public:
    Tracked(const Tracked&) = delete;
    Tracked& operator=(const Tracked&) = delete;

  protected:
    Tracked() { AllocTrackTypeInfo::of<T>()._trackAllocationNoOverhead(sizeof(T)); }
    ~Tracked() { AllocTrackTypeInfo::of<T>()._trackDeallocationNoOverhead(sizeof(T)); }
};

} // namespace Mox
