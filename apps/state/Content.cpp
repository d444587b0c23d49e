#include "state/Content.h"

#include "packets/RsvpMessage.h"

#include <algorithm>
#include <array>
#include <bit>
#include <initializer_list>
#include <limits>

namespace State {

namespace {

using Packets::Bytes;
using Packets::MessageType;
using Packets::readBe16;
using Packets::readBe32;

constexpr std::size_t messageHeader = 8;
constexpr std::size_t objectHeader = 4;
constexpr std::size_t v4 = 4; // octets of an address
constexpr std::size_t v6 = 16;

namespace Class {
constexpr std::uint8_t session = 1;
constexpr std::uint8_t rsvpHop = 3;
constexpr std::uint8_t timeValues = 5;
constexpr std::uint8_t errorSpec = 6;
constexpr std::uint8_t style = 8;
constexpr std::uint8_t flowSpec = 9;
constexpr std::uint8_t filterSpec = 10;
constexpr std::uint8_t senderTemplate = 11;
constexpr std::uint8_t senderTspec = 12;
constexpr std::uint8_t recordRoute = 21;
constexpr std::uint8_t messageId = 23;
constexpr std::uint8_t messageIdAck = 24;
constexpr std::uint8_t messageIdList = 25;
} // namespace Class

/// The address of 4 or 16 octets that begins at `octets`.
[[nodiscard]] Wirra::IpGenAddr addressAt(const std::uint8_t* octets, std::size_t size) {
    std::array<std::uint8_t, v6> bytes{};
    std::copy_n(octets, size, bytes.begin());
    return {bytes, size == v4 ? Wirra::ipv4AddressFamily : Wirra::ipv6AddressFamily};
}

[[nodiscard]] std::optional<Rsvp::RsvpSessionId> sessionOf(std::uint8_t cType, Bytes body) {
    const std::uint8_t* const at = body.data();
    switch (cType) {
    case 1:
    case 2: {
        const std::size_t size = cType == 1 ? v4 : v6;
        if (body.size() < size + 4) break;
        const Wirra::IpGenAddr protocol({0, 0, 0, at[size]}, Wirra::ipv4AddressFamily);
        return Rsvp::RsvpSessionId(cType, addressAt(at, size), readBe16(at + size + 2), protocol);
    }
    case 7:
    case 8: {
        const std::size_t size = cType == 7 ? v4 : v6;
        if (body.size() < 2 * size + 4) break;
        return Rsvp::RsvpSessionId(cType, addressAt(at, size), readBe16(at + size + 2),
                                   addressAt(at + size + 4, size));
    }
    case 13:
    case 14: {
        const std::size_t size = cType == 13 ? v4 : v6; // the P2MP ID has 4 octets in both
        if (body.size() < 8 + size) break;
        return Rsvp::RsvpSessionId(cType, addressAt(at, v4), readBe16(at + 6),
                                   addressAt(at + 8, size));
    }
    default:
        break;
    }
    return std::nullopt;
}

[[nodiscard]] std::optional<Rsvp::RsvpSpId> senderOf(const Rsvp::RsvpSessionId& session,
                                                     std::uint8_t cType, Bytes body) {
    const bool isV4 = cType == 1 || cType == 7 || cType == 12;
    const std::size_t size = isV4 ? v4 : v6;
    const std::uint8_t* const at = body.data();
    if (body.size() < size + 4) return std::nullopt;
    const Wirra::IpGenAddr address = addressAt(at, size);
    const std::uint16_t lspId = readBe16(at + size + 2);
    switch (cType) {
    case 1:
    case 2:
        return Rsvp::RsvpSpId(session, lspId, {address, 0});
    case 3:
        return Rsvp::RsvpSpId(session, lspId, {address, at[size + 1]});
    case 7:
    case 8:
        if (address == session.extendedTunnelId()) return Rsvp::RsvpSpId(session, lspId);
        return Rsvp::RsvpSpId(session, lspId, {address, 0});
    case 12:
    case 13:
        if (body.size() < 2 * (size + 4)) break;
        return Rsvp::RsvpSpId(session, lspId,
                              {addressAt(at + size + 4, size), readBe16(at + 2 * size + 6)});
    default:
        break;
    }
    return std::nullopt;
}

/// Of the token bucket, in bits per second; 0 where there is none, or no such number.
[[nodiscard]] std::uint64_t bandwidthOf(std::uint8_t cType, Bytes body) {
    constexpr std::uint8_t integratedServices = 2;
    constexpr std::uint8_t tokenBucket = 127;
    // Headers of message, service and parameter, then the rate in octets per second.
    if (cType != integratedServices || body.size() < 16 || body[8] != tokenBucket) return 0;
    const double bits = 8.0 * static_cast<double>(std::bit_cast<float>(readBe32(body.data() + 12)));
    constexpr double beyond = 18446744073709551616.0; // 2^64
    if (!(bits > 0)) return 0;
    return bits < beyond ? static_cast<std::uint64_t>(bits)
                         : std::numeric_limits<std::uint64_t>::max();
}

[[nodiscard]] RecordedHop recordedHopOf(std::uint8_t cType, Bytes body) {
    constexpr std::uint8_t ipv4Hop = 1;
    constexpr std::uint8_t ipv6Hop = 2;
    constexpr std::uint8_t unnumberedHop = 4; // RFC 3477, section 5: flags, router ID, interface
    if (cType != 1) return {};
    while (body.size() >= 2) {
        const std::size_t length = body[1];
        if (length < 2 || length > body.size()) break;
        const std::uint8_t* const at = body.data();
        if (at[0] == ipv4Hop && length >= 8) return {addressAt(at + 2, v4), at[7]};
        if (at[0] == ipv6Hop && length >= 20) return {addressAt(at + 2, v6), at[19]};
        if (at[0] == unnumberedHop && length >= 12) return {addressAt(at + 4, v4), at[2]};
        body = body.subspan(length);
    }
    return {};
}

/// The address with which an object begins that has C-Types 1 and 3 for IPv4, 2 and 4 for IPv6,
/// and `more` octets after it. Family 0 when it is none such.
[[nodiscard]] Wirra::IpGenAddr leadingAddress(std::uint8_t cType, Bytes body, std::size_t more) {
    if (cType < 1 || cType > 4) return {};
    const std::size_t size = cType % 2 == 1 ? v4 : v6;
    if (body.size() < size + more) return {};
    return addressAt(body.data(), size);
}

[[nodiscard]] std::optional<ErrorSpec> errorOf(std::uint8_t cType, Bytes body) {
    const Wirra::IpGenAddr node = leadingAddress(cType, body, 4);
    if (node.family() == Wirra::unknownAddressFamily) return std::nullopt;
    const std::uint8_t* const at =
        body.data() + (node.family() == Wirra::ipv4AddressFamily ? v4 : v6);
    return ErrorSpec{node, Rsvp::RsvpError(at[1], readBe16(at + 2))};
}

[[nodiscard]] MessageId messageIdAt(const std::uint8_t* octets, std::uint32_t number) {
    return {.flags = octets[0], .epoch = readBe32(octets) & 0xffffffU, .number = number};
}

/// RFC 2961, section 5.1: flags and epoch, then the numbers, each followed by the addresses of a
/// multicast session in the lists of C-Types 2 to 5.
void addListed(std::uint8_t cType, Bytes body, std::vector<MessageId>& listed) {
    constexpr std::array<std::size_t, 6> entrySize{0, 4, 4 + v4, 4 + v6, 4 + 2 * v4, 4 + 2 * v6};
    if (cType < 1 || cType >= entrySize.size()) return;
    for (std::size_t at = 4; at + entrySize[cType] <= body.size(); at += entrySize[cType]) {
        listed.push_back(messageIdAt(body.data(), readBe32(body.data() + at)));
    }
}

[[nodiscard]] constexpr bool isAny(std::uint8_t type, std::initializer_list<MessageType> types) {
    for (const MessageType each : types) {
        if (type == static_cast<std::uint8_t>(each)) return true;
    }
    return false;
}

/// Calls `visit(class, C-Type, body)` for one object after the other, until it returns false.
template <class Visit>
void forEachObject(Bytes message, Visit visit) {
    Bytes rest = message.subspan(messageHeader);
    while (rest.size() >= objectHeader) {
        const std::size_t length = readBe16(rest.data());
        if (length < objectHeader || length > rest.size()) return;
        if (!visit(rest[2], rest[3], rest.subspan(objectHeader, length - objectHeader))) return;
        rest = rest.subspan(length);
    }
}

/// Fills `content`, whose type and session are known.
class Reader {
  public:
    explicit Reader(Content& content)
        : content_(content) {
        using enum MessageType;
        if (!content.session) return;
        ofReservation_ = isAny(content.type, {resv, resvErr, resvTear});
        ofPath_ = isAny(content.type, {path, pathErr, pathTear});
    }

    void object(std::uint8_t number, std::uint8_t cType, Bytes body) {
        constexpr std::uint8_t wildcardFilter = 0x11; // RFC 2205, section A.7
        constexpr std::uint8_t styleBits = 0x1f;
        switch (number) {
        case Class::rsvpHop:
            if (content_.hop.family() != Wirra::unknownAddressFamily) break;
            content_.hop = leadingAddress(cType, body, 4);
            break;
        case Class::timeValues:
            if (content_.refreshPeriod != 0 || cType != 1 || body.size() < 4) break;
            content_.refreshPeriod = readBe32(body.data());
            break;
        case Class::errorSpec:
            if (!content_.error) content_.error = errorOf(cType, body);
            break;
        case Class::style:
            if (!ofReservation_ || cType != 1 || body.size() < 4) break;
            content_.wildcard = (body[3] & styleBits) == wildcardFilter;
            break;
        case Class::flowSpec:
            // It is for the filters that follow it (RFC 2205, section 3.1.4).
            if (ofReservation_) content_.bandwidth = bandwidthOf(cType, body);
            break;
        case Class::senderTspec:
            if (ofPath_ && content_.bandwidth == 0) content_.bandwidth = bandwidthOf(cType, body);
            break;
        case Class::filterSpec:
            if (ofReservation_) sender(cType, body);
            break;
        case Class::senderTemplate:
            if (ofPath_ && content_.senders.empty()) sender(cType, body);
            break;
        case Class::recordRoute:
            recordRoute(recordedHopOf(cType, body));
            break;
        case Class::messageId:
            if (content_.messageId || cType != 1 || body.size() < 8) break;
            content_.messageId = messageIdAt(body.data(), readBe32(body.data() + 4));
            break;
        case Class::messageIdAck:
            if (cType != 1 || body.size() < 8) break;
            content_.acknowledged.push_back(messageIdAt(body.data(), readBe32(body.data() + 4)));
            break;
        case Class::messageIdList:
            addListed(cType, body, content_.listed);
            break;
        default:
            break;
        }
    }

    void finish() {
        if (!content_.senders.empty()) content_.wildcard = false;
        if (!ofPath_ || content_.senders.empty()) return;
        // A PATH has one sender, so its objects need not come in order.
        content_.senders.front().bandwidth = content_.bandwidth;
        content_.senders.front().recorded = content_.recorded;
    }

  private:
    void sender(std::uint8_t cType, Bytes body) {
        const auto path = senderOf(*content_.session, cType, body);
        if (path) content_.senders.push_back({*path, content_.bandwidth, {}});
    }
    /// In a RESV the route is that of the filter before it (RFC 3209, section 3.2).
    void recordRoute(const RecordedHop& hop) {
        const bool isOfFilter = ofReservation_ && !content_.senders.empty();
        RecordedHop& recorded = isOfFilter ? content_.senders.back().recorded : content_.recorded;
        if (recorded.address.family() == Wirra::unknownAddressFamily) recorded = hop;
    }

    Content& content_;
    bool ofReservation_ = false;
    bool ofPath_ = false;
};

} // namespace

void Content::read(Bytes message) {
    type = 0;
    session.reset();
    senders.clear();
    wildcard = false;
    bandwidth = 0;
    recorded = {};
    hop = {};
    refreshPeriod = 0;
    error.reset();
    messageId.reset();
    acknowledged.clear();
    listed.clear();
    if (message.size() < messageHeader) return;
    type = message[1];
    // It should come first (RFC 2205, section 3.1), but then a receiver is to take any order; what
    // names a sender depends on it.
    forEachObject(message, [this](std::uint8_t number, std::uint8_t cType, Bytes body) {
        if (number == Class::session) session = sessionOf(cType, body);
        return !session;
    });
    Reader reader(*this);
    forEachObject(message, [&reader](std::uint8_t number, std::uint8_t cType, Bytes body) {
        reader.object(number, cType, body);
        return true;
    });
    reader.finish();
}

} // namespace State
