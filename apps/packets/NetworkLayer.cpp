#include "packets/NetworkLayer.h"

#include <algorithm>

namespace Packets {

namespace {

constexpr std::uint8_t protocolRsvp = 46; // RFC 2205, section 3.1

// RFC 791, section 3.1
constexpr std::size_t ipv4HeaderLength = 20;
constexpr std::size_t ipv4LengthOffset = 2;
constexpr std::size_t ipv4IdentificationOffset = 4;
constexpr std::size_t ipv4FragmentOffset = 6;
constexpr std::size_t ipv4ProtocolOffset = 9;
constexpr std::size_t ipv4SourceOffset = 12;
constexpr std::size_t ipv4DestinationOffset = 16;
constexpr std::uint16_t ipv4MoreFragments = 0x2000;
constexpr std::uint16_t ipv4OffsetMask = 0x1fff; // in units of 8 octets

// RFC 8200, section 3
constexpr std::size_t ipv6HeaderLength = 40;
constexpr std::size_t ipv6LengthOffset = 4;
constexpr std::size_t ipv6NextHeaderOffset = 6;
constexpr std::size_t ipv6SourceOffset = 8;
constexpr std::size_t ipv6DestinationOffset = 24;
constexpr std::uint16_t ipv6MoreFragments = 0x0001;
constexpr std::uint16_t ipv6OffsetMask = 0xfff8; // in octets
constexpr std::size_t shortestExtension = 8;

constexpr std::uint8_t hopByHop = 0;
constexpr std::uint8_t routing = 43;
constexpr std::uint8_t fragmentHeader = 44;
constexpr std::uint8_t authentication = 51;
constexpr std::uint8_t destinationOptions = 60;
constexpr std::uint8_t mobility = 135;
constexpr std::uint8_t hostIdentity = 139;
constexpr std::uint8_t shim6 = 140;

/// Extension headers that may be followed by RSVP. Hop-by-Hop Options is none of them: it is legal
/// directly after the IPv6 header only (RFC 8200, section 4.1), and a node discards the packet
/// else.
[[nodiscard]] constexpr bool isExtension(std::uint8_t nextHeader) noexcept {
    switch (nextHeader) {
    case routing:
    case fragmentHeader:
    case authentication:
    case destinationOptions:
    case mobility:
    case hostIdentity:
    case shim6:
        return true;
    default:
        return false;
    }
}

[[nodiscard]] constexpr std::size_t extensionLength(std::uint8_t nextHeader,
                                                    const std::uint8_t* header) noexcept {
    switch (nextHeader) {
    case fragmentHeader:
        return shortestExtension;
    case authentication:
        return (header[1] + std::size_t{2}) * 4; // RFC 4302, section 2.2
    default:
        return (header[1] + std::size_t{1}) * 8;
    }
}

[[nodiscard]] NetworkPacket only(PacketKind kind) noexcept {
    NetworkPacket packet;
    packet.kind = kind;
    return packet;
}

const NetworkPacket other = only(PacketKind::other);
const NetworkPacket cut = only(PacketKind::cut);

/// Where a chain of extension headers ends.
struct ChainEnd {
    enum class Kind : std::uint8_t {
        header,   ///< a header that is no extension: `nextHeader`, at `offset`
        fragment, ///< the header of a fragment, at `offset`
        beyond    ///< a header reaches beyond the octets that are there
    };
    Kind kind;
    std::uint8_t nextHeader;
    std::size_t offset;
};

/// Walks extension headers from `offset` on. Each turn consumes at least 8 octets, so it ends.
[[nodiscard]] ChainEnd walkExtensions(std::uint8_t nextHeader, Bytes octets,
                                      std::size_t offset) noexcept {
    while (isExtension(nextHeader)) {
        if (offset + shortestExtension > octets.size()) {
            return {ChainEnd::Kind::beyond, nextHeader, offset + shortestExtension};
        }
        const std::uint8_t* const header = octets.data() + offset;
        // A fragment header on a whole packet ("atomic fragment", RFC 6946) changes nothing.
        if (nextHeader == fragmentHeader &&
            (readBe16(header + 2) & (ipv6OffsetMask | ipv6MoreFragments)) != 0) {
            return {ChainEnd::Kind::fragment, nextHeader, offset};
        }
        offset += extensionLength(nextHeader, header);
        nextHeader = header[0];
        if (offset > octets.size()) return {ChainEnd::Kind::beyond, nextHeader, offset};
    }
    return {ChainEnd::Kind::header, nextHeader, offset};
}

} // namespace

NetworkPacket parseIpv4(Bytes captured, std::size_t wireLength) noexcept {
    // A short capture may still show that the packet is none of ours; only the rest is cut.
    if (wireLength < ipv4HeaderLength) return other;
    if (captured.empty()) return cut;
    if (captured[0] >> 4 != 4) return other;
    if (captured.size() > ipv4ProtocolOffset && captured[ipv4ProtocolOffset] != protocolRsvp) {
        return other;
    }
    if (captured.size() < ipv4HeaderLength) return cut;

    const std::size_t headerLength = (captured[0] & 0x0fU) * std::size_t{4};
    const std::size_t totalLength = readBe16(captured.data() + ipv4LengthOffset);
    if (headerLength < ipv4HeaderLength || totalLength < headerLength || totalLength > wireLength) {
        return other;
    }
    if (totalLength > captured.size()) return cut;
    const std::uint16_t place = readBe16(captured.data() + ipv4FragmentOffset);
    NetworkPacket packet{
        .kind = PacketKind::rsvp,
        .source = captured.data() + ipv4SourceOffset,
        .destination = captured.data() + ipv4DestinationOffset,
        .payload = captured.subspan(headerLength, totalLength - headerLength),
        .fragment = {.identification = readBe16(captured.data() + ipv4IdentificationOffset),
                     .offset = (place & ipv4OffsetMask) * 8U,
                     .more = (place & ipv4MoreFragments) != 0,
                     .nextHeader = protocolRsvp}};
    if (packet.fragment.offset != 0 || packet.fragment.more) packet.kind = PacketKind::fragment;
    return packet;
}

NetworkPacket parseIpv6(Bytes captured, std::size_t wireLength) noexcept {
    if (wireLength < ipv6HeaderLength) return other;
    if (captured.empty()) return cut;
    if (captured[0] >> 4 != 6) return other;
    if (captured.size() > ipv6NextHeaderOffset) {
        const std::uint8_t first = captured[ipv6NextHeaderOffset];
        if (first != protocolRsvp && first != hopByHop && !isExtension(first)) return other;
    }
    if (captured.size() < ipv6HeaderLength) return cut;

    const std::size_t totalLength = ipv6HeaderLength + readBe16(captured.data() + ipv6LengthOffset);
    if (totalLength > wireLength) return other;

    std::uint8_t nextHeader = captured[ipv6NextHeaderOffset];
    std::size_t offset = ipv6HeaderLength;
    const Bytes packetOctets = captured.first(std::min(totalLength, captured.size()));
    const auto beyond = [&](std::size_t end) { return end > totalLength ? other : cut; };
    if (nextHeader == hopByHop) {
        if (offset + shortestExtension > packetOctets.size()) {
            return beyond(offset + shortestExtension);
        }
        nextHeader = captured[offset];
        offset += extensionLength(hopByHop, captured.data() + offset);
        if (offset > packetOctets.size()) return beyond(offset);
    }
    const ChainEnd end = walkExtensions(nextHeader, packetOctets, offset);
    if (end.kind == ChainEnd::Kind::beyond) return beyond(end.offset);
    NetworkPacket packet{.kind = PacketKind::rsvp,
                         .source = captured.data() + ipv6SourceOffset,
                         .destination = captured.data() + ipv6DestinationOffset,
                         .payload = {},
                         .fragment = {}};
    offset = end.offset;
    if (end.kind == ChainEnd::Kind::fragment) {
        const std::uint8_t* const header = captured.data() + offset;
        packet.kind = PacketKind::fragment;
        packet.fragment = {.identification = readBe32(header + 4),
                           .offset = readBe16(header + 2) & std::uint32_t{ipv6OffsetMask},
                           .more = (readBe16(header + 2) & ipv6MoreFragments) != 0,
                           .nextHeader = header[0]};
        if (header[0] != protocolRsvp && !isExtension(header[0])) return other;
        offset += shortestExtension;
    } else if (end.nextHeader != protocolRsvp) {
        return other;
    }
    if (totalLength > captured.size()) return cut;
    packet.payload = captured.subspan(offset, totalLength - offset);
    return packet;
}

std::optional<Bytes> rsvpBehind(Family family, std::uint8_t nextHeader, Bytes octets) noexcept {
    ChainEnd end{ChainEnd::Kind::header, nextHeader, 0};
    if (family == Family::ipv6) end = walkExtensions(nextHeader, octets, 0);
    if (end.kind != ChainEnd::Kind::header || end.nextHeader != protocolRsvp) return std::nullopt;
    return octets.subspan(end.offset);
}

} // namespace Packets
