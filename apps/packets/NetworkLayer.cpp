#include "packets/NetworkLayer.h"

namespace Packets {

namespace {

constexpr std::uint8_t protocolRsvp = 46; // RFC 2205, section 3.1

// RFC 791, section 3.1
constexpr std::size_t ipv4HeaderLength = 20;
constexpr std::size_t ipv4LengthOffset = 2;
constexpr std::size_t ipv4FragmentOffset = 6;
constexpr std::size_t ipv4ProtocolOffset = 9;
constexpr std::size_t ipv4SourceOffset = 12;
constexpr std::uint16_t ipv4FragmentMask = 0x3fff; // More Fragments and the fragment offset

// RFC 8200, section 3
constexpr std::size_t ipv6HeaderLength = 40;
constexpr std::size_t ipv6LengthOffset = 4;
constexpr std::size_t ipv6NextHeaderOffset = 6;
constexpr std::size_t ipv6SourceOffset = 8;
constexpr std::uint16_t ipv6FragmentMask = 0xfff9; // M flag and the fragment offset
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

constexpr NetworkPacket other{.kind = PacketKind::other, .source = nullptr, .payload = {}};
constexpr NetworkPacket cut{.kind = PacketKind::cut, .source = nullptr, .payload = {}};
constexpr NetworkPacket fragment{.kind = PacketKind::fragment, .source = nullptr, .payload = {}};

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
    if ((readBe16(captured.data() + ipv4FragmentOffset) & ipv4FragmentMask) != 0) return fragment;
    return {.kind = PacketKind::rsvp,
            .source = captured.data() + ipv4SourceOffset,
            .payload = captured.subspan(headerLength, totalLength - headerLength)};
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
    // Each turn consumes at least 8 of the at most 65535 bytes of payload, so the walk ends.
    while (isExtension(nextHeader) || (nextHeader == hopByHop && offset == ipv6HeaderLength)) {
        if (offset + shortestExtension > totalLength) return other;
        if (offset + shortestExtension > captured.size()) return cut;
        const std::uint8_t* header = captured.data() + offset;
        const std::size_t length = extensionLength(nextHeader, header);
        if (offset + length > totalLength) return other;
        // A fragment header on a whole packet ("atomic fragment", RFC 6946) changes nothing.
        if (nextHeader == fragmentHeader && (readBe16(header + 2) & ipv6FragmentMask) != 0) {
            if (header[0] != protocolRsvp && !isExtension(header[0])) return other;
            return totalLength > captured.size() ? cut : fragment;
        }
        nextHeader = header[0];
        offset += length;
    }
    if (nextHeader != protocolRsvp) return other;
    if (totalLength > captured.size()) return cut;
    return {.kind = PacketKind::rsvp,
            .source = captured.data() + ipv6SourceOffset,
            .payload = captured.subspan(offset, totalLength - offset)};
}

} // namespace Packets
