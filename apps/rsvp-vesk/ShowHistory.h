#pragma once

#include "HistoryTables.h"
#include "InterfaceMap.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

/// Which entries of the histories are shown: those that satisfy everything given.
struct HistoryFilter {
    std::optional<std::string> session; ///< the session's text, or its first parts
    std::optional<std::string> sender;  ///< likewise
    std::optional<double> since;        ///< seconds since 1970, that moment included
    std::optional<double> until;
};

/// An entry of the session history, and how people name the session: "destination/tunnel/extended
/// tunnel", "p2mp:ID/tunnel/extended tunnel", or "destination/protocol/port" (RFC 2205).
struct SessionRow {
    std::string session;
    Rsvp::RsvpSessionHistoryEntry entry;
};

/// An entry of the state-path history. A sender is "address/LSP ID", followed by "/originator/
/// sub-group" in a point-to-multipoint session.
struct PathRow {
    std::string session;
    std::string sender;
    std::string interface; ///< of the bandwidth; empty when there is none
    Rsvp::RsvpSpHistoryEntry entry;
};

// In the order of the entries.
std::vector<SessionRow> rowsOf(const std::vector<Rsvp::RsvpSessionHistoryEntry>& entries,
                               const HistoryFilter& filter);
std::vector<PathRow> rowsOf(const std::vector<Rsvp::RsvpSpHistoryEntry>& entries,
                            const HistoryFilter& filter, InterfaceNames& names);

nlohmann::ordered_json jsonOf(const std::vector<SessionRow>& rows);
nlohmann::ordered_json jsonOf(const std::vector<PathRow>& rows);
/// A line for each.
void print(std::ostream& out, const std::vector<SessionRow>& rows);
void print(std::ostream& out, const std::vector<PathRow>& rows);
