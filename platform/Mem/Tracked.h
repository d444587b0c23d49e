#pragma once

#include "Pello/String.h"

#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <thread>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Mem {

/// The mappings of this process that are tracked, for a look at where its memory is.
class MemoryTracker {
  public:
    struct Block {
        Pello::String tag;  ///< the type that owns the block
        Pello::String name; ///< of the file, or of what stands for it
        std::uint64_t size; ///< bytes mapped
    };

    /// The blocks that the calling thread registered, in that order. A mapping belongs to the
    /// thread of its table.
    static std::vector<Block> blocks();

  private:
    template <class T>
    friend class Tracked;

    struct Entry {
        std::thread::id thread;
        const std::type_info* tag;
        std::function<std::pair<Pello::String, std::uint64_t>()> describe;
    };
    using Place = std::list<Entry>::iterator;

    static Place add(Entry entry);
    static void remove(Place place);
};

/// A mapping of type `T` (`T::get()` leads to a `Mapping`) that is registered with the tracker from
/// `track` on for as long as it lives.
template <class T>
class Tracked : public T {
  public:
    using T::T;
    ~Tracked() {
        if (place_) MemoryTracker::remove(*place_);
    }

    /// `tag` is the type whose name the block shall have. Once.
    void track(const std::type_info& tag) {
        place_ = MemoryTracker::add({std::this_thread::get_id(), &tag, [this] {
                                         return std::pair(this->get()->name(), this->get()->size());
                                     }});
    }

  private:
    std::optional<MemoryTracker::Place> place_;
};

} // namespace Mem
