#pragma once

#include "Pello/Debug.h"
#include "SharedMem/RavoId.h"

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

// What the files of tables say to somebody who neither writes nor reads the entries.

void complain(const std::string& text);

/// The trace handle of looks at files.
std::shared_ptr<Pello::Platform::DebugHandler> tableHandler();

/// The names of all tables below the root, in order.
std::vector<std::string> allTables();

/// The name of the stored type in the image of a slot file's header; empty for less than a header.
std::string typeNameOf(const std::vector<std::byte>& slots);

/// Who writes a table.
struct TableOwner {
    std::string problem; ///< of the owner file; empty when it is sound
    std::string header;  ///< the owner file as text
    std::string text;    ///< command, process id and start time; "none" when nobody writes
    bool alive = false;
};
TableOwner ownerOf(const std::string& table);

/// `rsvp-vesk show tables`: a row for each. Returns the exit code: 0 done, 3 no tables, 4 one whose
/// headers are not sound.
int showTables(bool json);
