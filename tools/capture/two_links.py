"""The sample two-links: one port of a router for a quarter of an hour, as pcap of Ethernet.

Two links share the port: one to neighbour A, untagged, with plain soft-state refresh (RFC 2205),
and one to neighbour B in a VLAN, with refresh reduction (RFC 2961). Tunnels (RFC 3209) begin at the
router, end at it or pass through. Between their messages stand damaged ones, rare but legal ones,
and traffic of other protocols.
"""

import itertools
import struct

from capture.messages import PATH, REFRESH, Key, Tunnel, packed, rsvp
from capture.network import ALERT_V4, ALERT_V6, PROTOCOL_RSVP, ipv4, ipv6
from capture.oddities import faults, foreign_packets
from capture.story import Story
from capture.tally import Random, Tally

START = 1_751_871_600_000_000  # microseconds; 2025-07-07 07:00:00 UTC
DURATION = 900.0  # seconds
KEY = Key(1, b"two-links")


class Link:
    def __init__(self, name, node, peer, tags, reduction):
        self.name, self.reduction = name, reduction
        self.mac = {True: node, False: peer}  # by "sent"
        self.tags = tags
        net = {"A": ("192.0.2.", "2001:db8:a::"), "B": ("198.51.100.", "2001:db8:b::")}[name]
        self.address = {(sent, family): net[family == 6] + ("1" if sent else "2")
                        for sent in (True, False) for family in (4, 6)}


class Capture:
    """Writes frames, cut at the snap length, and tallies their meaning."""

    def __init__(self, rng, snap_length):
        self.rng, self.snap_length = rng, snap_length
        self.tally = Tally()
        self.records = [struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, snap_length, 1)]

    def frame(self, time, link, sent, ether_type, packet, meaning=None, family=4, padding=b"",
              tags=None):
        """`meaning`: (type, error or None) for each RSVP message; None for a frame to be ignored.

        `padding` is what fills a frame up to 60 octets, where it is not zeros."""
        head = link.mac[not sent] + link.mac[sent]
        for protocol, vlan in link.tags if tags is None else tags:
            head += struct.pack("!HH", protocol, vlan)
        data = head + struct.pack("!H", ether_type) + packet
        data += (padding + bytes(60))[: max(0, 60 - len(data))]
        kept = data[: self.snap_length]
        stamp = START + round(time * 1e6)
        self.records.append(
            struct.pack("<IIII", stamp // 10**6, stamp % 10**6, len(kept), len(data)) + kept)
        if meaning is None:
            self.tally.frames["ignored"] += 1
        elif len(kept) < len(data):
            self.tally.frames["cut"] += 1
        else:
            self.tally.frames["rsvp"] += 1
            self.tally.add(sent, family, meaning)

    def rsvp(self, time, link, sent, family, payload, meaning, ends=None, alert=False, padding=b"",
             options=b"", extensions=(), tags=None):
        """`ends`: source and destination where these are not the two ends of the link."""
        source, target = ends or (link.address[sent, family], link.address[not sent, family])
        if family == 4:
            packet = ipv4(source, target, PROTOCOL_RSVP, payload,
                          options=options or ALERT_V4 * alert)
        else:
            packet = ipv6(source, target, PROTOCOL_RSVP, payload,
                          extensions=(ALERT_V6,) * alert + tuple(extensions))
        ether_type = {4: 0x0800, 6: 0x86DD}[family]
        self.frame(time, link, sent, ether_type, packet, meaning, family, padding, tags)

    def bytes(self):
        return b"".join(self.records)


def foreign(rng, link, sent, tunnel):
    """(EtherType, packet) of what is no RSVP at the top level, or no usable packet."""
    ends = {family: (link.address[sent, family], link.address[not sent, family])
            for family in (4, 6)}
    # ARP, LLDP, and spanning tree (an IEEE 802.3 length instead of an EtherType).
    arp = struct.pack("!HHBBH", 1, 0x0800, 6, 4, 1) + link.mac[sent] + packed(ends[4][0])
    frames = [(0x0806, arp + bytes(6) + packed(ends[4][1])),
              (0x88CC, bytes.fromhex("02070402005e1000010403026531060200780000")),
              (38, bytes.fromhex("424203") + bytes(35))]
    message = rsvp(PATH, tunnel.objects(PATH, tunnel.hops[0]))
    return frames + foreign_packets(rng, ends, message)


def build(seed, snap_length):
    rng = Random(seed)
    link_a = Link("A", bytes.fromhex("02005e100001"), bytes.fromhex("02005e200001"),
                  [], False)
    link_b = Link("B", bytes.fromhex("02005e100002"), bytes.fromhex("02005e200002"),
                  [(0x8100, 210)], True)
    capture = Capture(rng, snap_length)
    story = Story(rng, capture, DURATION)

    for link, family, interval in ((link_a, 4, 20.0), (link_b, 4, 20.0), (link_b, 6, 45.0)):
        for sent in (True, False):
            story.at(rng.between(0, interval), story.hello(link, sent, family, interval))
    for sent, family in itertools.product((True, False), (4, 6)):
        story.at(rng.between(5, REFRESH), story.summary_refresh(link_b, sent, family))

    roles = [(None, link_a), (link_a, None), (link_a, link_b), (link_b, link_a), (None, link_b),
             (link_b, None)]
    begin = 1.0
    for number in range(1, 91):
        upstream, downstream = roles[number % len(roles)]
        tunnel = Tunnel(rng, number, 6 if number % 5 in (1, 3) else 4, upstream, downstream)
        if number % 6 == 1:  # tunnels come up in groups, so that there is something to bundle
            begin += rng.between(20, 60)
        story.tunnel(tunnel, begin + rng.between(0, 0.02), begin + rng.between(40, 420))

    number = itertools.count(1000)
    for family, sent, link in itertools.product((4, 6), (True, False), (link_a, link_b)):
        victim = Tunnel(rng, next(number), family, None, link)
        for payload, meaning, how in faults(rng, victim, KEY):
            args = (link, sent, family, payload, meaning)
            story.at(rng.between(2, DURATION - 1),
                     lambda now, args=args, how=how: capture.rsvp(now, *args, **how))
        for ether_type, packet in foreign(rng, link, sent, victim) if family == 4 else ():
            args = (link, sent, ether_type, packet)
            story.at(rng.between(2, DURATION - 1),
                     lambda now, args=args: capture.frame(now, *args))
    story.run()
    return capture
