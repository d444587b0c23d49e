#include "packets/FrameDecoder.h"

#include "packets/NetworkLayer.h"

namespace Packets {

Location locateRsvp(LinkType type, const Frame& frame, RsvpPacket& packet) noexcept {
    const LinkPayload link = parseLink(type, frame);
    NetworkPacket network;
    Family family = Family::ipv4;
    switch (link.network) {
    case Network::ipv4:
        network = parseIpv4(link.captured, link.wireLength);
        break;
    case Network::ipv6:
        network = parseIpv6(link.captured, link.wireLength);
        family = Family::ipv6;
        break;
    case Network::other:
        return Location::ignored;
    case Network::cut:
        return Location::cut;
    }
    switch (network.kind) {
    case PacketKind::rsvp:
        break;
    case PacketKind::cut:
        return Location::cut;
    case PacketKind::fragment:
    case PacketKind::other:
        return Location::ignored;
    }
    packet = {.source = {.mac = link.sourceMac, .family = family, .address = network.source},
              .payload = network.payload};
    return Location::found;
}

} // namespace Packets
