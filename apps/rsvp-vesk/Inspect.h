#pragma once

#include <string>
#include <vector>

/// What `rsvp-vesk inspect` and `rsvp-vesk clean` were asked to do.
struct TableOptions {
    std::vector<std::string> tables; ///< names below the root; none for all that are there
    bool json = false;
};

/// Prints what the files of tables say, and whether they are sound, without changing a byte. What a
/// living writer changes meanwhile is looked at again until it holds together. Returns the exit
/// code: 0 all sound, 3 a table that is not there, 4 a corrupt one.
int runInspect(const TableOptions& options);

/// Removes the files of tables whose writer is gone. Returns the exit code: 0 done, 1 a table has a
/// living writer or its files cannot be removed, 3 a table that is not there.
int runClean(const TableOptions& options);
