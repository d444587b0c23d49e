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

std::string nameOf(const Rsvp::RsvpSessionId& session) {
    if (isPlain(session)) {
        return fmt::format("{}/{}/{}", session.destination().stringValue(),
                           numberOf(session.extendedTunnelId()), session.tunnelId());
    }
    const std::string destination = isPointToMultipoint(session)
                                        ? fmt::format("p2mp:{}", numberOf(session.destination()))
                                        : std::string(session.destination().stringValue());
    return fmt::format("{}/{}/{}", destination, session.tunnelId(),
                       session.extendedTunnelId().stringValue());
}

/// The address of a sender: its own, where the path names it, else that of the tunnel's head.
std::string senderOf(const Rsvp::RsvpSpId& path) {
    const Rsvp::P2mpSubGroupId* const group = path.subGroupId();
    const bool isOwn = group != nullptr && group->subGroup() == 0;
    const Wirra::IpGenAddr& address =
        isOwn ? group->originator() : path.sessionId().extendedTunnelId();
    std::string text = fmt::format("{}/{}", address.stringValue(), path.lspId());
    if (group != nullptr && !isOwn) {
        text += fmt::format("/{}/{}", group->originator().stringValue(), group->subGroup());
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
                       static_cast<int>((seconds - whole) * 1000 + 0.5));
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
        Json object{{"time", row.entry.timestamp().value()},
                    {"session", row.session},
                    {"sessionType", row.entry.key().sessionId().sessionType()},
                    {"entry", row.entry.key().entryId()},
                    {"event", Rsvp::stringValue(row.entry.entryType())},
                    {"path", nullptr},
                    {"created", row.entry.created()}};
        if (row.entry.spCliId() != Rsvp::RsvpCliId()) object["path"] = row.entry.spCliId().value();
        list.push_back(std::move(object));
    }
    return list;
}

nlohmann::ordered_json jsonOf(const std::vector<PathRow>& rows) {
    Json list = Json::array();
    for (const PathRow& row : rows) {
        const Rsvp::RsvpSpHistoryEntry& entry = row.entry;
        Json error = nullptr;
        if (entry.error() != Rsvp::RsvpError()) {
            error = {{"code", entry.error().errorCode()}, {"value", entry.error().errorValue()}};
        }
        Json interface = nullptr;
        if (!row.interface.empty()) interface = row.interface;
        list.push_back({{"time", entry.timestamp().value()},
                        {"session", row.session},
                        {"sessionType", entry.key().spId().sessionId().sessionType()},
                        {"sender", row.sender},
                        {"entry", entry.key().entryId()},
                        {"event", Rsvp::stringValue(entry.entryType())},
                        {"pathState", wordOf(entry.spOperPathState())},
                        {"resvState", wordOf(entry.spOperResvState())},
                        {"bypassAvailable", entry.bypassAvailable()},
                        {"bypassNextHop", jsonOf(entry.bypassNextHop())},
                        {"bypassNodeProtected", entry.bypassNodeProtected()},
                        {"dsFrrInUse", entry.dsFrrInUse()},
                        {"dsNextHop", jsonOf(entry.dsNextHop())},
                        {"dsNodeProtected", entry.dsNodeProtected()},
                        {"usFrrInUse", entry.usFrrInUse()},
                        {"error", error},
                        {"bandwidth", wordOf(entry.bwState().admission())},
                        {"bitsPerSecond", entry.bwState().bandwidth()},
                        {"interface", interface}});
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
