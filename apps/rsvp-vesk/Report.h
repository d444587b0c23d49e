#pragma once

#include "CounterTables.h"
#include "HistoryTables.h"
#include "InterfaceMap.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

/// Frames by what became of them; `frames` is the sum of the others.
struct FrameCounts {
    std::uint64_t frames = 0;
    std::uint64_t rsvp = 0;    ///< held at least one RSVP message, good or bad
    std::uint64_t ignored = 0; ///< no RSVP
    std::uint64_t cut = 0;     ///< cut short by the capture
};

/// A counter of messages in the words that people use.
struct NamedMessageRow {
    std::string interface;
    std::string direction;
    std::string family;
    std::string type;
    std::uint32_t typeNumber;
    std::uint32_t count;
};
struct NamedErrorRow {
    std::string direction;
    std::string error;
    std::uint32_t errorNumber;
    std::uint32_t count;
};

/// What the tables count, ordered by interface, direction, family and number; counts of zero are
/// left out.
std::vector<NamedMessageRow> namedRows(const std::vector<CounterTables::MessageRow>& rows,
                                       InterfaceNames& names);
std::vector<NamedErrorRow> namedRows(const std::vector<CounterTables::ErrorRow>& rows);

nlohmann::ordered_json jsonOf(const std::vector<NamedMessageRow>& rows);
nlohmann::ordered_json jsonOf(const std::vector<NamedErrorRow>& rows);
/// Tables for people.
void print(std::ostream& out, const std::vector<NamedMessageRow>& rows);
void print(std::ostream& out, const std::vector<NamedErrorRow>& rows);
/// One JSON value with a line end; octets that are no UTF-8 are replaced.
void print(std::ostream& out, const nlohmann::ordered_json& document);

/// Prints what the counters hold, read back from shared memory, with the frames of this run: one
/// JSON object, or tables for people followed by where the files are.
void reportJson(std::ostream& out, const CounterTables& tables, InterfaceNames& names,
                const FrameCounts& frames);
void reportText(std::ostream& out, const CounterTables& tables, const HistoryTables& history,
                InterfaceNames& names, const FrameCounts& frames);
