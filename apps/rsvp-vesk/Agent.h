#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// What `rsvp-vesk agent` was asked to do.
struct AgentOptions {
    std::vector<std::filesystem::path> captures;
    std::vector<std::string> locals; ///< addresses of the node itself, as the user wrote them
    bool json = false;
};

/// Counts the RSVP messages of the captures into the tables below the base of all root paths and
/// prints what the tables hold. Problems go to stderr. Returns the exit code: 0 done, 1 a capture
/// could not be read or the tables could not be written, 2 an address that is none, 4 corruption.
int runAgent(const AgentOptions& options);
