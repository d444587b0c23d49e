#include "packets/LinkLayer.h"

#include <pcap/dlt.h>

#include <algorithm>

namespace Packets {

namespace {

constexpr std::uint16_t etherTypeIpv4 = 0x0800;
constexpr std::uint16_t etherTypeIpv6 = 0x86dd;
constexpr std::uint16_t etherTypeCustomerTag = 0x8100; // IEEE 802.1Q
constexpr std::uint16_t etherTypeServiceTag = 0x88a8;  // IEEE 802.1ad
constexpr std::uint16_t etherTypeOldServiceTag = 0x9100;

constexpr std::size_t macLength = 6;
constexpr std::size_t tagLength = 4;

[[nodiscard]] constexpr bool isTag(std::uint16_t etherType) noexcept {
    return etherType == etherTypeCustomerTag || etherType == etherTypeServiceTag ||
           etherType == etherTypeOldServiceTag;
}

/// Walks EtherTypes from `offset` on: tags, then the one that names the network protocol.
[[nodiscard]] LinkPayload parseEtherTypes(Bytes captured, std::size_t wireLength,
                                          std::size_t offset) noexcept {
    while (true) {
        if (offset + 2 > captured.size()) {
            return {.network = offset + 2 > wireLength ? Network::other : Network::cut,
                    .captured = {},
                    .wireLength = 0,
                    .sourceMac = nullptr};
        }
        const std::uint16_t etherType = readBe16(captured.data() + offset);
        if (isTag(etherType)) {
            offset += tagLength;
            continue;
        }
        const Network network = etherType == etherTypeIpv4   ? Network::ipv4
                                : etherType == etherTypeIpv6 ? Network::ipv6
                                                             : Network::other;
        return {.network = network,
                .captured = captured.subspan(offset + 2),
                .wireLength = wireLength - (offset + 2),
                .sourceMac = nullptr};
    }
}

} // namespace

std::optional<LinkType> linkTypeOfDlt(int dlt) noexcept {
    switch (dlt) {
    case DLT_EN10MB:
        return LinkType::ethernet;
    default:
        return std::nullopt;
    }
}

LinkPayload parseLink(LinkType type, const Frame& frame) noexcept {
    const std::size_t wireLength = std::max(frame.wireLength, frame.captured.size());
    LinkPayload payload;
    switch (type) {
    case LinkType::ethernet:
        payload = parseEtherTypes(frame.captured, wireLength, 2 * macLength);
        if (frame.captured.size() >= 2 * macLength) {
            payload.sourceMac = frame.captured.data() + macLength;
        }
        break;
    }
    return payload;
}

} // namespace Packets
