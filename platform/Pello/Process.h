#pragma once

#include "Pello/String.h"

#include <cstdint>
#include <optional>

namespace Pello {

/// One process, told apart from a later one that gets the same number: the process id together
/// with the start time that the kernel keeps for it (clock ticks since boot, field 22 of
/// /proc/<pid>/stat, see proc(5)).
struct ProcessId {
    std::uint32_t pid = 0;
    std::uint64_t startTime = 0;

    /// The calling process. Right in a forked child too.
    static ProcessId self();
    /// The process that has this number now; nothing when there is none, or when it has ended and
    /// only waits for its parent.
    static std::optional<ProcessId> running(std::uint32_t pid);
    /// Reads "<pid>-<startTime>", the form that `text` gives; nothing for anything else.
    static std::optional<ProcessId> parse(const String& text);

    String text() const;
    bool alive() const;
    /// The command name of the process with this number, or "?".
    String command() const;

    friend bool operator==(const ProcessId&, const ProcessId&) = default;
};

} // namespace Pello
