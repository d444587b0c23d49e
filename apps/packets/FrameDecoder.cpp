#include "packets/FrameDecoder.h"

#include "packets/NetworkLayer.h"

namespace Packets {

Location FrameDecoder::locate(const CaptureRecord& record, RsvpPacket& packet) {
    const LinkPayload link = parseLink(record.linkType, record.frame);
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
    packet.source = {.direction =
                         record.direction != Direction::unknown ? record.direction : link.direction,
                     .mac = link.sourceMac,
                     .family = family,
                     .address = network.source};
    packet.payload = network.payload;
    switch (network.kind) {
    case PacketKind::rsvp:
        return Location::found;
    case PacketKind::cut:
        return Location::cut;
    case PacketKind::other:
        return Location::ignored;
    case PacketKind::fragment:
        break;
    }
    const auto whole = reassembler_.add(family, record.interface, record.timestamp, network);
    if (!whole) return Location::ignored;
    const auto payload = rsvpBehind(family, whole->nextHeader, whole->octets);
    if (!payload) return Location::ignored;
    packet.payload = *payload;
    return Location::found;
}

} // namespace Packets
