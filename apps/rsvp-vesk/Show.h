#pragma once

#include "CounterTables.h"
#include "ShowHistory.h"

#include <optional>
#include <string>

/// What `rsvp-vesk show` was asked to do.
struct ShowOptions {
    std::string what; ///< "messages", "errors", "sessions", "paths" or "tables"
    bool json = false;
    bool relative = false; ///< what the counts have grown by since the snapshot
    bool wait = false;     ///< for the tables to appear
    std::optional<std::string> interface;
    HistoryFilter history;
};

/// What the fronts of tables have met; the first that holds.
enum class TableState {
    complete,
    corrupt,   ///< files that are there and cannot be attached to, or corruption met in a read
    incomplete ///< not all of them are there
};
/// Gives files that are just being written a moment, and complains about what is not as it should
/// be.
TableState stateOf(const std::vector<Vesk::VeskMapBase*>& fronts);
int codeOf(TableState state);
/// Complains about what reads have met.
bool sawCorruption(const std::vector<Vesk::VeskMapBase*>& fronts);
/// The exit code, unless standard output could not be written.
int flushed(int code);
/// Complains once when a table has no living writer.
void complainOfEndedWriter(const std::vector<Vesk::VeskMapBase*>& fronts);

/// Prints what another process publishes. Returns the exit code: 0 done, 1 no such interface, the
/// wait was ended by a signal or standard output cannot be written, 3 no such table, 4 corruption.
int runShow(const ShowOptions& options);

/// Copies the counters into the snapshot, which `show --relative` compares with. Returns the exit
/// code: 0 done, 1 it cannot be written, 3 no counters, 4 corruption.
int runSnapshot(bool json);
