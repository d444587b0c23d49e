#pragma once

#include "packets/Frame.h"

#include <cstddef>
#include <cstdint>

namespace Packets {

/// The link layers that `parseLink` understands.
enum class LinkType : std::uint8_t {
    ethernet,
    linuxCooked,  ///< LINKTYPE_LINUX_SLL
    linuxCooked2, ///< LINKTYPE_LINUX_SLL2
    rawIp,        ///< an IP packet and nothing before it
    bsdLoopback,  ///< LINKTYPE_NULL and LINKTYPE_LOOP
    ppp,          ///< with or without address and control octets
    ciscoHdlc,
    unknown, ///< not understood: every frame is ignored
};

/// Maps a link type as files store it (LINKTYPE_..., www.tcpdump.org/linktypes.html); `unknown` for
/// one that is not understood.
[[nodiscard]] LinkType linkTypeOfNumber(std::uint32_t number) noexcept;

enum class Network : std::uint8_t {
    ipv4,
    ipv6,
    other, ///< another protocol, or a frame too short to have one
    cut,   ///< the capture ends before the protocol is named
};

/// What follows the link header. Bytes beyond the network packet (padding, a trailer) are included.
struct LinkPayload {
    Network network = Network::other;
    Bytes captured;
    std::size_t wireLength = 0;               ///< at least captured.size()
    const std::uint8_t* sourceMac = nullptr;  ///< 6 octets; null where the header lacks them
    Direction direction = Direction::unknown; ///< as the link header says
};

/// Walks the link header, and what may stand between it and the IP packet: any number of VLAN tags
/// (IEEE 802.1Q, 802.1ad) and MPLS labels (RFC 3032), LLC and SNAP (IEEE 802.2, RFC 1042), a PPPoE
/// session (RFC 2516).
[[nodiscard]] LinkPayload parseLink(LinkType type, const Frame& frame) noexcept;

} // namespace Packets
