#pragma once

// Messages made octet by octet, and a sink that writes down what it hears.

#include "state/Follower.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <bit>
#include <string>
#include <utility>
#include <vector>

namespace State::Test {

using Octets = std::vector<std::uint8_t>;

enum Type : std::uint8_t {
    PATH = 1,
    RESV,
    PATHERR,
    RESVERR,
    PATHTEAR,
    RESVTEAR,
    ACK = 13,
    SREFRESH = 15,
    HELLO = 20,
};

[[nodiscard]] inline Octets concat(const std::vector<Octets>& parts) {
    Octets all;
    for (const Octets& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}
[[nodiscard]] inline Octets be(std::size_t size, std::uint64_t value) {
    Octets octets(size);
    for (std::size_t at = size; at > 0; --at, value >>= 8U) {
        octets[at - 1] = static_cast<std::uint8_t>(value);
    }
    return octets;
}
[[nodiscard]] inline Octets object(std::uint8_t number, std::uint8_t cType, const Octets& body) {
    return concat({be(2, 4 + body.size()), {number, cType}, body});
}
[[nodiscard]] inline Octets message(std::uint8_t type, const std::vector<Octets>& objects) {
    const Octets body = concat(objects);
    return concat({{0x10, type, 0, 0, 64, 0}, be(2, 8 + body.size()), body});
}

/// 10.0.0.n or 2001:db8::n.
[[nodiscard]] inline Octets address(bool isV6, std::uint8_t n) {
    if (!isV6) return {10, 0, 0, n};
    return {0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, n};
}
[[nodiscard]] inline Wirra::IpGenAddr ip(bool isV6, std::uint8_t n) {
    std::array<std::uint8_t, 16> bytes{};
    const Octets octets = address(isV6, n);
    std::copy(octets.begin(), octets.end(), bytes.begin());
    return {bytes, isV6 ? Wirra::ipv6AddressFamily : Wirra::ipv4AddressFamily};
}

/// A way of naming sessions and senders.
struct Kind {
    const char* name;
    std::uint8_t session, sender; ///< C-Types
    bool isV6;

    [[nodiscard]] Octets sessionObject(std::uint8_t n) const {
        const Octets destination = address(isV6, n);
        const Octets end = address(isV6, 100); // the extended tunnel ID
        if (session < 7) return object(1, session, concat({destination, {17, 0}, be(2, 700)}));
        if (session < 13) return object(1, session, concat({destination, be(4, 700), end}));
        return object(1, session, concat({be(4, n), be(4, 700), end}));
    }
    /// SENDER_TEMPLATE is object 11, FILTER_SPEC is 10.
    [[nodiscard]] Octets senderObject(std::uint8_t number, std::uint8_t n) const {
        const Octets id = concat({address(isV6, 100), be(4, n)});
        if (sender < 12) return object(number, sender, id);
        return object(number, sender, concat({id, address(isV6, 101), be(4, 5)}));
    }
    [[nodiscard]] Rsvp::RsvpSessionId sessionId(std::uint8_t n) const {
        if (session < 7)
            return {session, ip(isV6, n), 700,
                    Wirra::IpGenAddr({0, 0, 0, 17}, Wirra::ipv4AddressFamily)};
        const Wirra::IpGenAddr id({0, 0, 0, n}, Wirra::ipv4AddressFamily);
        return {session, session < 13 ? ip(isV6, n) : id, 700, ip(isV6, 100)};
    }
    [[nodiscard]] Rsvp::RsvpSpId pathId(std::uint8_t n, std::uint8_t lsp) const {
        if (session < 7) return {sessionId(n), lsp, {ip(isV6, 100), 0}};
        if (session < 13) return {sessionId(n), lsp};
        return {sessionId(n), lsp, {ip(isV6, 101), 5}};
    }
};
inline const Kind kinds[] = {{"P2P, IPv4", 7, 7, false},      {"P2P, IPv6", 8, 8, true},
                             {"RFC 2205, IPv4", 1, 1, false}, {"RFC 2205, IPv6", 2, 2, true},
                             {"P2MP, IPv4", 13, 12, false},   {"P2MP, IPv6", 14, 13, true}};
inline const Kind& p2p = kinds[0];

[[nodiscard]] inline Octets times(std::uint32_t milliseconds) {
    return object(5, 1, be(4, milliseconds));
}
[[nodiscard]] inline Octets hop(std::uint8_t n) {
    return object(3, 1, concat({address(false, n), be(4, 0)}));
}
/// SENDER_TSPEC is object 12, FLOWSPEC is 9. Octets per second.
[[nodiscard]] inline Octets traffic(std::uint8_t number, float rate) {
    const Octets bucket = be(4, std::bit_cast<std::uint32_t>(rate));
    return object(number, 2,
                  concat({be(4, 7), {5, 0}, be(2, 6), {127, 0}, be(2, 5), bucket, be(8, 0)}));
}
[[nodiscard]] inline Octets style(std::uint8_t bits) { return object(8, 1, be(4, bits)); }
inline const Octets wildcard = style(0x11);
inline const Octets fixed = style(0x0a);
inline const Octets shared = style(0x12);
[[nodiscard]] inline Octets recorded(std::uint8_t n, std::uint8_t flags) {
    const Octets label = {3, 8, 0, 1, 0, 0, 0, 99};
    const Octets older = concat({{1, 8}, address(false, 200), {32, 0xff}});
    return object(21, 1, concat({label, {1, 8}, address(false, n), {32, flags}, older}));
}
[[nodiscard]] inline Octets error(std::uint8_t code, std::uint16_t value) {
    return object(6, 1, concat({address(false, 9), {0, code}, be(2, value)}));
}
/// MESSAGE_ID is object 23, its acknowledgement 24.
[[nodiscard]] inline Octets messageId(std::uint8_t number, std::uint32_t id,
                                      std::uint8_t cType = 1) {
    return object(number, cType, concat({{1}, be(3, 0x2a), be(4, id)}));
}
[[nodiscard]] inline Octets listOf(const std::vector<std::uint32_t>& ids) {
    Octets body = be(4, 0x2a);
    for (const std::uint32_t id : ids) {
        body = concat({body, be(4, id)});
    }
    return object(25, 1, body);
}

/// Writes events as in "7: session+ member+1 oper(up,unknown) bw(pending,8000,Intf(0x1))", with
/// the time in seconds before the first event of that time.
class Log : public Sink {
  public:
    /// What was heard since the last call.
    [[nodiscard]] std::string take() {
        time_ = -1;
        return std::exchange(text_, {});
    }

    void session(const SessionEvent& event) override {
        at(event.time);
        sessions.push_back(event.session);
        const bool isMember = event.type == Rsvp::rsvpSessionMemberHistoryEntry;
        EXPECT_EQ(isMember, event.spCliId.value() != Rsvp::RsvpCliId::kNone);
        text_ += isMember
                     ? fmt::format("member{}{}", event.created ? '+' : '-', event.spCliId.value())
                     : fmt::format("session{}", event.created ? '+' : '-');
    }
    void path(const PathEvent& event) override {
        at(event.time);
        paths.push_back(event.path);
        const PathState& s = event.state;
        const char* const states[] = {"unknown", "up", "down"};
        const char* const admissions[] = {"unknown", "pending", "admitted", "rejected"};
        const auto hopText = [](bool is, const Wirra::IpGenAddr& next, bool node) {
            return fmt::format("{}({}{})", is ? '+' : '-', next.stringValue(), node ? ",node" : "");
        };
        switch (event.type) {
        case Rsvp::rsvpSpOperStateHistoryEntry:
            text_ +=
                fmt::format("oper({},{})", states[s.spOperPathState], states[s.spOperResvState]);
            break;
        case Rsvp::rsvpSpFrrAvailableHistoryEntry:
            text_ +=
                "available" + hopText(s.bypassAvailable, s.bypassNextHop, s.bypassNodeProtected);
            break;
        case Rsvp::rsvpSpDsFrrInUseHistoryEntry:
            text_ += "downstream" + hopText(s.dsFrrInUse, s.dsNextHop, s.dsNodeProtected);
            break;
        case Rsvp::rsvpSpUsFrrInUseHistoryEntry:
            text_ += fmt::format("upstream{}", s.usFrrInUse ? '+' : '-');
            break;
        case Rsvp::rsvpSpErrorHistoryEntry:
            text_ += fmt::format("error({},{})", s.error.errorCode(), s.error.errorValue());
            break;
        case Rsvp::rsvpSpBwStateHistoryEntry:
            text_ += fmt::format("bw({},{},{})", admissions[s.bwState.admission()],
                                 s.bwState.bandwidth(), s.bwState.intfId().raw());
            break;
        default:
            ADD_FAILURE() << "entry of type " << event.type;
        }
    }

    std::vector<Rsvp::RsvpSessionId> sessions;
    std::vector<Rsvp::RsvpSpId> paths;

  private:
    void at(std::int64_t time) {
        if (!text_.empty()) text_ += ' ';
        if (time != time_) text_ += fmt::format("{}: ", static_cast<double>(time) / 1e9);
        EXPECT_GE(time, time_);
        time_ = time;
    }

    std::string text_;
    std::int64_t time_ = -1;
};

} // namespace State::Test
