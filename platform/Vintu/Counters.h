#pragma once

#include "Pello/String.h"

#include <cstdint>
#include <utility>
#include <vector>

/// The process's registry of named counts.
namespace Vintu {

class Writer {
  public:
    /// The count of that name, made with 0 when there is none: whoever asks for the same name
    /// gets the same count. The address is good for the life of the process. Any thread may
    /// register; a count itself is its users' to synchronise.
    std::uint64_t* registerCounter(const Pello::String& name);

    /// All counts, by name.
    std::vector<std::pair<Pello::String, std::uint64_t>> counters() const;
};

/// The registry.
Writer& writer();

} // namespace Vintu
