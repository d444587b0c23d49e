#pragma once

#include "packets/Frame.h"

#include <cstddef>
#include <cstdint>

namespace Packets {

enum class PacketKind : std::uint8_t {
    rsvp,     ///< a whole packet of IP protocol 46
    fragment, ///< a fragment that may belong to one
    cut,      ///< the capture lacks part of what is, or may be, a packet of IP protocol 46
    other,    ///< another protocol, or an IP header that cannot be used
};

/// An IP packet seen from RSVP. `source` and `payload` are set for `rsvp` only.
struct NetworkPacket {
    PacketKind kind = PacketKind::other;
    const std::uint8_t* source = nullptr; ///< 4 octets in IPv4, 16 in IPv6
    Bytes payload;                        ///< exactly what the IP length gives to RSVP
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

} // namespace Packets
