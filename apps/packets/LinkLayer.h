#pragma once

#include "packets/Frame.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace Packets {

/// The link layers that `parseLink` understands.
enum class LinkType : std::uint8_t {
    ethernet,
};

/// Maps libpcap's DLT number; empty for a link layer that is not understood.
[[nodiscard]] std::optional<LinkType> linkTypeOfDlt(int dlt) noexcept;

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
    std::size_t wireLength = 0;              ///< at least captured.size()
    const std::uint8_t* sourceMac = nullptr; ///< 6 octets; null where the header lacks them
};

/// Walks the link header: Ethernet II with any number of VLAN tags (IEEE 802.1Q, 802.1ad).
[[nodiscard]] LinkPayload parseLink(LinkType type, const Frame& frame) noexcept;

} // namespace Packets
