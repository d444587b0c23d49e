#include "ShowHistory.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <cmath>
#include <ctime>

namespace {

using Json = nlohmann::ordered_json;

/// The number that an identifier carries in the place of an address.
std::uint32_t numberOf(const Wirra::IpGenAddr& address) {
    const auto& bytes = address.bytes();
    return std::uint32_t{bytes[0]} << 24U | std::uint32_t{bytes[1]} << 16U |
           std::uint32_t{bytes[2]} << 8U | bytes[3];
}

// C-Types of SESSION objects.
bool isPlain(const Rsvp::RsvpSessionId& session) {
    return session.sessionType() == 1 || session.sessionType() == 2; // RFC 2205
}
bool isPointToMultipoint(const Rsvp::RsvpSessionId& session) {
    return session.sessionType() == 13 || session.sessionType() == 14; // RFC 4875
}

// Of sessions of RFC 2205 the protocol is in the place of the extended tunnel ID and the port in
// that of the tunnel ID; the ID of a point-to-multipoint session is in the place of the
// destination.
std::string destinationOf(const Rsvp::RsvpSessionId& session) {
    return isPointToMultipoint(session) ? fmt::format("p2mp:{}", numberOf(session.destination()))
                                        : std::string(session.destination().stringValue());
}
std::string extendedTunnelOf(const Rsvp::RsvpSessionId& session) {
    return isPlain(session) ? fmt::format("{}", numberOf(session.extendedTunnelId()))
                            : std::string(session.extendedTunnelId().stringValue());
}

std::string nameOf(const Rsvp::RsvpSessionId& session) {
    const std::string destination = destinationOf(session);
    const std::string extended = extendedTunnelOf(session);
    return isPlain(session) ? fmt::format("{}/{}/{}", destination, extended, session.tunnelId())
                            : fmt::format("{}/{}/{}", destination, session.tunnelId(), extended);
}

/// A path whose sub-group has number 0 names its sender's address there.
bool namesSender(const Rsvp::RsvpSpId& path) {
    return path.subGroupId() != nullptr && path.subGroupId()->subGroup() == 0;
}

/// The address of a sender: its own, where the path names it, else that of the tunnel's head.
std::string addressOf(const Rsvp::RsvpSpId& path) {
    return (namesSender(path) ? path.subGroupId()->originator()
                              : path.sessionId().extendedTunnelId())
        .stringValue();
}

std::string senderOf(const Rsvp::RsvpSpId& path) {
    std::string text = fmt::format("{}/{}", addressOf(path), path.lspId());
    if (path.subGroupId() != nullptr && !namesSender(path)) {
        text += fmt::format("/{}/{}", path.subGroupId()->originator().stringValue(),
                            path.subGroupId()->subGroup());
    }
    return text;
}

bool isWithin(const std::string& name, const std::optional<std::string>& wanted) {
    return !wanted || name == *wanted || name.starts_with(*wanted + "/");
}

bool isWithin(double time, const HistoryFilter& filter) {
    return !(filter.since && time < *filter.since) && !(filter.until && time > *filter.until);
}

/// "2024-05-01 12:00:00.250", in universal time; what no calendar has, as the number.
std::string textOf(const Mox::Seconds& time) {
    constexpr double kYear10000 = 253402300800.0;
    const double seconds = std::floor(time.value() * 1000 + 0.5) / 1000;
    if (!(seconds >= 0 && seconds < kYear10000)) return fmt::format("{}", time.value());
    const double whole = std::floor(seconds);
    return fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03}", fmt::gmtime(static_cast<std::time_t>(whole)),
                       std::lround((seconds - whole) * 1000));
}

const char* wordOf(Rsvp::RsvpSpOperState state) {
    switch (state) {
    case Rsvp::rsvpSpUnknownOperState:
        break;
    case Rsvp::rsvpSpUpOperState:
        return "up";
    case Rsvp::rsvpSpDownOperState:
        return "down";
    }
    return "unknown";
}

const char* wordOf(Rsvp::RsvpSpBwAdmission admission) {
    switch (admission) {
    case Rsvp::rsvpSpUnknownBwAdmission:
        break;
    case Rsvp::rsvpSpPendingBwAdmission:
        return "pending";
    case Rsvp::rsvpSpAdmittedBwAdmission:
        return "admitted";
    case Rsvp::rsvpSpRejectedBwAdmission:
        return "rejected";
    }
    return "unknown";
}

std::string eventOf(const Rsvp::RsvpSessionHistoryEntry& entry) {
    const char* const what = entry.created() ? "begins" : "ends";
    switch (entry.entryType()) {
    case Rsvp::rsvpSessionCreationHistoryEntry:
        return fmt::format("session {}", what);
    case Rsvp::rsvpSessionMemberHistoryEntry:
        return fmt::format("path {} {}", entry.spCliId().value(), what);
    case Rsvp::rsvpSessionUnknownEntry:
        break;
    }
    return Rsvp::stringValue(entry.entryType());
}

std::string protection(bool is, const Wirra::IpGenAddr& nextHop, bool ofNode) {
    return is ? fmt::format("yes, {} behind {}", ofNode ? "node" : "link", nextHop.stringValue())
              : "no";
}

std::string eventOf(const PathRow& row) {
    const Rsvp::RsvpSpHistoryEntry& entry = row.entry;
    switch (entry.entryType()) {
    case Rsvp::rsvpSpOperStateHistoryEntry:
        return fmt::format("PATH {}, RESV {}", wordOf(entry.spOperPathState()),
                           wordOf(entry.spOperResvState()));
    case Rsvp::rsvpSpFrrAvailableHistoryEntry:
        return "protection available: " + protection(entry.bypassAvailable(), entry.bypassNextHop(),
                                                     entry.bypassNodeProtected());
    case Rsvp::rsvpSpDsFrrInUseHistoryEntry:
        return "protection in use downstream: " +
               protection(entry.dsFrrInUse(), entry.dsNextHop(), entry.dsNodeProtected());
    case Rsvp::rsvpSpUsFrrInUseHistoryEntry:
        return fmt::format("protection in use upstream: {}", entry.usFrrInUse() ? "yes" : "no");
    case Rsvp::rsvpSpErrorHistoryEntry:
        return fmt::format("error {}, value {}", entry.error().errorCode(),
                           entry.error().errorValue());
    case Rsvp::rsvpSpBwStateHistoryEntry:
        return fmt::format("bandwidth {}: {} bit/s{}{}", wordOf(entry.bwState().admission()),
                           entry.bwState().bandwidth(), row.interface.empty() ? "" : " on ",
                           row.interface);
    case Rsvp::rsvpSpUnknownEntry:
        break;
    }
    return Rsvp::stringValue(entry.entryType());
}

Json jsonOf(const Wirra::IpGenAddr& address) {
    if (address == Wirra::IpGenAddr()) return nullptr;
    return std::string(address.stringValue());
}

Json jsonOf(const Rsvp::RsvpError& error) {
    if (error == Rsvp::RsvpError()) return nullptr;
    return {{"errorCode", error.errorCode()}, {"errorValue", error.errorValue()}};
}

Json jsonOf(const std::string& name, const Rsvp::RsvpSessionId& session) {
    return {{"session", name},
            {"sessionType", session.sessionType()},
            {"destination", destinationOf(session)},
            {"tunnelId", session.tunnelId()},
            {"extendedTunnelId", extendedTunnelOf(session)}};
}

} // namespace

std::vector<SessionRow> rowsOf(const std::vector<Rsvp::RsvpSessionHistoryEntry>& entries,
                               const HistoryFilter& filter) {
    std::vector<SessionRow> rows;
    for (const Rsvp::RsvpSessionHistoryEntry& entry : entries) {
        if (!isWithin(entry.timestamp().value(), filter)) continue;
        std::string session = nameOf(entry.key().sessionId());
        if (isWithin(session, filter.session)) rows.push_back({std::move(session), entry});
    }
    return rows;
}

std::vector<PathRow> rowsOf(const std::vector<Rsvp::RsvpSpHistoryEntry>& entries,
                            const HistoryFilter& filter, InterfaceNames& names) {
    std::vector<PathRow> rows;
    for (const Rsvp::RsvpSpHistoryEntry& entry : entries) {
        if (!isWithin(entry.timestamp().value(), filter)) continue;
        std::string session = nameOf(entry.key().spId().sessionId());
        std::string sender = senderOf(entry.key().spId());
        if (!isWithin(session, filter.session) || !isWithin(sender, filter.sender)) continue;
        const Wirra::IntfId& interface = entry.bwState().intfId();
        rows.push_back({std::move(session), std::move(sender),
                        interface == Wirra::IntfId() ? "" : names.nameOf(interface), entry});
    }
    return rows;
}

nlohmann::ordered_json jsonOf(const std::vector<SessionRow>& rows) {
    Json list = Json::array();
    for (const SessionRow& row : rows) {
        Json object = jsonOf(row.session, row.entry.key().sessionId());
        object["entryId"] = row.entry.key().entryId();
        object["timestamp"] = row.entry.timestamp().value();
        object["type"] = Rsvp::stringValue(row.entry.entryType());
        object["spCliId"] = row.entry.spCliId().value();
        object["created"] = row.entry.created();
        list.push_back(std::move(object));
    }
    return list;
}

nlohmann::ordered_json jsonOf(const std::vector<PathRow>& rows) {
    Json list = Json::array();
    for (const PathRow& row : rows) {
        const Rsvp::RsvpSpHistoryEntry& entry = row.entry;
        const Rsvp::RsvpSpId& path = entry.key().spId();
        const Rsvp::RsvpSpBwState& bandwidth = entry.bwState();
        Json object = jsonOf(row.session, path.sessionId());
        object["sender"] = addressOf(path);
        object["lspId"] = path.lspId();
        object["subGroup"] = nullptr;
        if (path.subGroupId() != nullptr && !namesSender(path)) {
            object["subGroup"] = {
                {"originator", std::string(path.subGroupId()->originator().stringValue())},
                {"number", path.subGroupId()->subGroup()}};
        }
        object["entryId"] = entry.key().entryId();
        object["timestamp"] = entry.timestamp().value();
        object["type"] = Rsvp::stringValue(entry.entryType());
        object["spOperPathState"] = Rsvp::stringValue(entry.spOperPathState());
        object["spOperResvState"] = Rsvp::stringValue(entry.spOperResvState());
        object["bypassAvailable"] = entry.bypassAvailable();
        object["bypassNextHop"] = jsonOf(entry.bypassNextHop());
        object["bypassNodeProtected"] = entry.bypassNodeProtected();
        object["dsFrrInUse"] = entry.dsFrrInUse();
        object["dsNextHop"] = jsonOf(entry.dsNextHop());
        object["dsNodeProtected"] = entry.dsNodeProtected();
        object["usFrrInUse"] = entry.usFrrInUse();
        object["error"] = jsonOf(entry.error());
        object["bwState"] = {{"admission", Rsvp::stringValue(bandwidth.admission())},
                             {"error", jsonOf(bandwidth.error())},
                             {"bandwidth", bandwidth.bandwidth()},
                             {"interface", nullptr}};
        if (!row.interface.empty()) object["bwState"]["interface"] = row.interface;
        list.push_back(std::move(object));
    }
    return list;
}

void print(std::ostream& out, const std::vector<SessionRow>& rows) {
    for (const SessionRow& row : rows) {
        fmt::print(out, "{}  {}  {}\n", textOf(row.entry.timestamp()), row.session,
                   eventOf(row.entry));
    }
}

void print(std::ostream& out, const std::vector<PathRow>& rows) {
    for (const PathRow& row : rows) {
        fmt::print(out, "{}  {}  from {}  {}\n", textOf(row.entry.timestamp()), row.session,
                   row.sender, eventOf(row));
    }
}
