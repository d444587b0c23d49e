#pragma once

#include "AgentTables.h"
#include "InterfaceMap.h"

#include <cstdint>
#include <ostream>

/// Frames by what became of them; `frames` is the sum of the others.
struct FrameCounts {
    std::uint64_t frames = 0;
    std::uint64_t rsvp = 0;    ///< held at least one RSVP message, good or bad
    std::uint64_t ignored = 0; ///< no RSVP
    std::uint64_t cut = 0;     ///< cut short by the capture
};

/// Prints what the tables hold, read back from shared memory, with the frames of this run: one JSON
/// object, or tables for people followed by where the files are. Rows are ordered by interface,
/// direction, family and number; those of zero are left out.
void reportJson(std::ostream& out, const AgentTables& tables, const InterfaceMap& interfaces,
                const FrameCounts& frames);
void reportText(std::ostream& out, const AgentTables& tables, const InterfaceMap& interfaces,
                const FrameCounts& frames);
