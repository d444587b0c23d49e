#pragma once

#include "Pello/String.h"

#include <cstdint>
#include <functional>
#include <list>
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

    /// The blocks of the calling thread, in the order of their registration.
    static std::vector<Block> blocks();

  private:
    template <class T>
    friend class Tracked;

    struct Entry {
        const std::type_info* tag;
        std::function<std::pair<Pello::String, std::uint64_t>()> describe;
    };
    /// A table belongs to one thread, and so do the mappings under it.
    static std::list<Entry>& entries();
};

/// A mapping of type `T` (`T::get()` leads to a `Mapping`) that is registered with the tracker from
/// `track` on for as long as it lives.
template <class T>
class Tracked : public T {
  public:
    using T::T;
    ~Tracked() {
        if (registered_) MemoryTracker::entries().erase(entry_);
    }

    /// `tag` is the type whose name the block shall have. Once.
    void track(const std::type_info& tag) {
        std::list<MemoryTracker::Entry>& entries = MemoryTracker::entries();
        entry_ = entries.insert(
            entries.end(),
            {&tag, [this] { return std::pair(this->get()->name(), this->get()->size()); }});
        registered_ = true;
    }

  private:
    std::list<MemoryTracker::Entry>::iterator entry_;
    bool registered_ = false;
};

} // namespace Mem
