#include "packets/LinkLayer.h"

#include <algorithm>

namespace Packets {

namespace {

constexpr std::size_t macLength = 6;
constexpr std::uint8_t unnumbered = 0x03; // the control octet of LLC, PPP and HDLC frames

namespace EtherType {
constexpr std::uint16_t lowest = 0x0600; // below stands the length of an IEEE 802.3 frame
constexpr std::uint16_t ipv4 = 0x0800;
constexpr std::uint16_t customerTag = 0x8100; // IEEE 802.1Q
constexpr std::uint16_t serviceTag = 0x88a8;  // IEEE 802.1ad
constexpr std::uint16_t oldServiceTag = 0x9100;
constexpr std::uint16_t ipv6 = 0x86dd;
constexpr std::uint16_t mplsUnicast = 0x8847; // RFC 3032, section 5
constexpr std::uint16_t mplsMulticast = 0x8848;
constexpr std::uint16_t pppoeSession = 0x8864;
} // namespace EtherType

/// RFC 1661, section 2, and the assigned numbers.
namespace PppProtocol {
constexpr std::uint16_t ipv4 = 0x0021;
constexpr std::uint16_t ipv6 = 0x0057;
constexpr std::uint16_t mplsUnicast = 0x0281;
constexpr std::uint16_t mplsMulticast = 0x0283;
} // namespace PppProtocol

/// Moves through a frame from header to header, down to the IP packet.
class Walk {
  public:
    explicit Walk(const Frame& frame)
        : captured_(frame.captured)
        , wireLength_(std::max(frame.wireLength, frame.captured.size())) {}

    /// What has been found, with the rest of the frame as the packet.
    [[nodiscard]] LinkPayload payload() const noexcept {
        LinkPayload result;
        result.network = network_;
        if (network_ == Network::ipv4 || network_ == Network::ipv6) {
            result.captured = captured_.subspan(offset_);
            result.wireLength = wireLength_ - offset_;
        }
        return result;
    }

    /// Whether the next octets are there; else the walk has ended.
    [[nodiscard]] bool has(std::size_t octets) noexcept {
        if (offset_ + octets <= captured_.size()) return true;
        network_ = offset_ + octets > wireLength_ ? Network::other : Network::cut;
        return false;
    }
    [[nodiscard]] const std::uint8_t* here() const noexcept { return captured_.data() + offset_; }
    void skip(std::size_t octets) noexcept { offset_ += octets; }

    /// EtherTypes, down to the last one.
    void etherTypes() noexcept {
        bool more = true;
        while (more && has(2)) {
            const std::uint16_t type = readBe16(here());
            skip(2);
            more = announces(type);
        }
    }

    /// What an EtherType, or the length of an IEEE 802.3 frame, announces; true when that is one
    /// more EtherType.
    [[nodiscard]] bool announces(std::uint16_t type) noexcept {
        switch (type) {
        case EtherType::ipv4:
            network_ = Network::ipv4;
            return false;
        case EtherType::ipv6:
            network_ = Network::ipv6;
            return false;
        case EtherType::customerTag:
        case EtherType::serviceTag:
        case EtherType::oldServiceTag:
            skip(2);
            return true;
        case EtherType::mplsUnicast:
        case EtherType::mplsMulticast:
            mpls();
            return false;
        case EtherType::pppoeSession:
            skip(6);
            pppProtocol();
            return false;
        default:
            return type < EtherType::lowest && snap();
        }
    }

    /// An LLC header; true when it is that of SNAP, behind which there is an EtherType.
    [[nodiscard]] bool snap() noexcept {
        constexpr std::uint8_t snapSap = 0xaa;
        constexpr std::uint8_t ipSap = 0x06; // RFC 948
        if (!has(3)) return false;
        const std::uint8_t* const llc = here();
        if (llc[0] != llc[1] || llc[2] != unnumbered) return false;
        skip(3);
        if (llc[0] == ipSap) network_ = Network::ipv4;
        if (llc[0] != snapSap || !has(3)) return false;
        const bool etherTypes = here()[0] == 0 && here()[1] == 0 && here()[2] == 0;
        skip(3);
        return etherTypes;
    }

    /// PPP from its protocol field on, which may be compressed to one octet (RFC 1661,
    /// section 6.5).
    void pppProtocol() noexcept {
        if (!has(1)) return;
        const bool compressed = (*here() & 1U) != 0;
        if (!compressed && !has(2)) return;
        const std::uint16_t protocol = compressed ? *here() : readBe16(here());
        skip(compressed ? 1 : 2);
        switch (protocol) {
        case PppProtocol::ipv4:
            network_ = Network::ipv4;
            return;
        case PppProtocol::ipv6:
            network_ = Network::ipv6;
            return;
        case PppProtocol::mplsUnicast:
        case PppProtocol::mplsMulticast:
            return mpls();
        default:
            return;
        }
    }

    /// PPP, alone or in HDLC-like framing (RFC 1662), whose address and control octets may be
    /// compressed away. Cisco's framing is met on the same links.
    void ppp() noexcept {
        constexpr std::uint8_t allStations = 0xff;
        if (!has(2)) return;
        if (isCisco()) return ciscoHdlc();
        if (here()[0] == allStations && here()[1] == unnumbered) skip(2);
        pppProtocol();
    }

    void ciscoHdlc() noexcept {
        if (!has(2) || !isCisco()) return;
        skip(2);
        etherTypes();
    }

    /// A label stack. Nothing in it says what it carries, but the first octet of an IP packet does.
    void mpls() noexcept {
        bool bottom = false;
        while (!bottom) {
            if (!has(4)) return;
            bottom = (here()[2] & 1U) != 0;
            skip(4);
        }
        ipVersion();
    }

    void ipVersion() noexcept {
        if (!has(1)) return;
        const unsigned version = *here() >> 4U;
        if (version == 4) network_ = Network::ipv4;
        if (version == 6) network_ = Network::ipv6;
    }

    /// An address family as four octets, in the byte order of the machine that captured.
    void bsdLoopback() noexcept {
        if (!has(4)) return;
        const std::uint8_t* const octets = here();
        skip(4);
        if (octets[1] != 0 || octets[2] != 0 || (octets[0] != 0 && octets[3] != 0)) return;
        switch (octets[0] | octets[3]) {
        case 2:
            network_ = Network::ipv4;
            return;
        case 10: // Linux
        case 24: // NetBSD, OpenBSD
        case 28: // FreeBSD
        case 30: // macOS
            network_ = Network::ipv6;
            return;
        default:
            return;
        }
    }

    /// What follows a cooked header: an EtherType stands in it, or the number of a frame format.
    void cooked(std::uint16_t protocol) noexcept {
        constexpr std::uint16_t llc = 0x0004;
        if (protocol == llc ? snap() : protocol >= EtherType::lowest && announces(protocol)) {
            etherTypes();
        }
    }

  private:
    [[nodiscard]] bool isCisco() const noexcept {
        constexpr std::uint8_t unicast = 0x0f;
        constexpr std::uint8_t multicast = 0x8f;
        return (here()[0] == unicast || here()[0] == multicast) && here()[1] == 0;
    }

    Bytes captured_;
    std::size_t wireLength_;
    std::size_t offset_ = 0;
    Network network_ = Network::other;
};

/// Where the fields of a cooked header are.
struct CookedHeader {
    std::size_t length;
    std::size_t protocol;
    std::size_t packetType; ///< of its last octet
    std::size_t addressLength;
    std::size_t address;
};

constexpr CookedHeader cookedHeader{16, 14, 1, 5, 6};
constexpr CookedHeader cookedHeader2{20, 0, 10, 11, 12};

[[nodiscard]] LinkPayload parseCooked(Walk walk, const CookedHeader& header) noexcept {
    constexpr std::uint8_t otherHost = 3; // between others, overheard
    constexpr std::uint8_t outgoing = 4;
    if (!walk.has(header.length)) return walk.payload();
    const std::uint8_t* const octets = walk.here();
    walk.skip(header.length);
    walk.cooked(readBe16(octets + header.protocol));
    LinkPayload payload = walk.payload();
    const std::uint8_t packetType = octets[header.packetType];
    if (packetType < otherHost) payload.direction = Direction::received;
    if (packetType == outgoing) payload.direction = Direction::sent;
    if (octets[header.addressLength] == macLength) payload.sourceMac = octets + header.address;
    return payload;
}

} // namespace

LinkType linkTypeOfNumber(std::uint32_t number) noexcept {
    switch (number) {
    case 1:
        return LinkType::ethernet;
    case 113:
        return LinkType::linuxCooked;
    case 276:
        return LinkType::linuxCooked2;
    case 101: // either version
    case 228: // IPv4
    case 229: // IPv6
        return LinkType::rawIp;
    case 0:
    case 108:
        return LinkType::bsdLoopback;
    case 9:
    case 50:
        return LinkType::ppp;
    case 104:
        return LinkType::ciscoHdlc;
    default:
        return LinkType::unknown;
    }
}

LinkPayload parseLink(LinkType type, const Frame& frame) noexcept {
    Walk walk(frame);
    switch (type) {
    case LinkType::ethernet: {
        if (!walk.has(2 * macLength)) break;
        const std::uint8_t* const source = walk.here() + macLength;
        walk.skip(2 * macLength);
        walk.etherTypes();
        LinkPayload payload = walk.payload();
        payload.sourceMac = source;
        return payload;
    }
    case LinkType::linuxCooked:
        return parseCooked(walk, cookedHeader);
    case LinkType::linuxCooked2:
        return parseCooked(walk, cookedHeader2);
    case LinkType::rawIp:
        walk.ipVersion();
        break;
    case LinkType::bsdLoopback:
        walk.bsdLoopback();
        break;
    case LinkType::ppp:
        walk.ppp();
        break;
    case LinkType::ciscoHdlc:
        walk.ciscoHdlc();
        break;
    case LinkType::unknown:
        break;
    }
    return walk.payload();
}

} // namespace Packets
