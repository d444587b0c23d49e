#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// What `rsvp-vesk agent` was asked to do.
struct AgentOptions {
    std::vector<std::filesystem::path> captures;
    std::vector<std::string> locals; ///< addresses of the node itself, as the user wrote them
    std::vector<std::string> keys;   ///< of INTEGRITY objects, likewise
    bool json = false;
    bool fresh = false; ///< remove what the tables hold first
    bool stay = false;  ///< go on as the tables' writer until a signal comes
};

/// Counts the RSVP messages of the captures into the tables below the base of all root paths and
/// prints what the tables hold. Problems go to stderr. Returns the exit code: 0 done, 1 a capture
/// could not be read or the tables could not be written, 2 an address or a key that is none, 4
/// corruption. SIGTERM and SIGINT end the counting between two frames; the report is printed all
/// the same.
int runAgent(const AgentOptions& options);
