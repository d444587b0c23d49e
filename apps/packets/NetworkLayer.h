#pragma once

#include "packets/Frame.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace Packets {

enum class PacketKind : std::uint8_t {
    rsvp,     ///< a whole packet of IP protocol 46
    fragment, ///< a fragment of what is, or may be, one
    cut,      ///< the capture lacks part of what is, or may be, a packet of IP protocol 46
    other,    ///< another protocol, or an IP header that cannot be used
};

/// Where a fragment belongs (RFC 791, section 3.2; RFC 8200, section 4.5).
struct FragmentInfo {
    std::uint32_t identification = 0;
    std::uint32_t offset = 0; ///< of its first octet, a multiple of 8 below 2^16
    bool more = false;
    std::uint8_t nextHeader = 0; ///< what the reassembled octets begin with
};

/// An IP packet seen from RSVP. All but the kind is set for `rsvp` and `fragment` only.
struct NetworkPacket {
    PacketKind kind = PacketKind::other;
    const std::uint8_t* source = nullptr;      ///< 4 octets in IPv4, 16 in IPv6
    const std::uint8_t* destination = nullptr; ///< likewise
    Bytes payload;         ///< exactly what the IP length gives to RSVP, or to the fragment
    FragmentInfo fragment; ///< for `fragment` only
};

/// An IPv4 packet (RFC 791). RSVP is what its protocol field calls 46, whatever options the header
/// has; the header's checksum is the receiving router's business and is not looked at. A packet
/// that claims more bytes than the frame had on the wire has no usable header.
///
/// `wireLength` is at least `captured.size()` and counts from the IP header on.
[[nodiscard]] NetworkPacket parseIpv4(Bytes captured, std::size_t wireLength) noexcept;

/// An IPv6 packet (RFC 8200) with any chain of extension headers. What is encrypted (ESP) or
/// tunnelled is another protocol. Parameters as for `parseIpv4`.
[[nodiscard]] NetworkPacket parseIpv6(Bytes captured, std::size_t wireLength) noexcept;

/// The RSVP payload of reassembled octets that begin with a header of that number; nothing when
/// another protocol is in them.
[[nodiscard]] std::optional<Bytes> rsvpBehind(Family family, std::uint8_t nextHeader,
                                              Bytes octets) noexcept;

} // namespace Packets
