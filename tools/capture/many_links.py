"""The sample many-links: many interfaces of many link types in one pcapng file.

The file has two sections of five minutes each, the first little-endian, the second big-endian, as
two machines would write them. On every link tunnels come and go (RFC 3209), some with refresh
reduction (RFC 2961). Between their messages stand signed ones (RFC 2747), fragments, damaged
messages, rare ones, traffic of other protocols and frames that the capture cut.

What tells the direction of a frame differs: a flag of the capture, the cooked header, the MAC
address, or nothing.
"""

import itertools
import struct

from capture import links
from capture.fragmented import Sender, play
from capture.links import ETHER_IPV4, ETHER_IPV6, ETHER_QINQ, mpls, pppoe, snap, vlan
from capture.messages import HELLO, PATH, REFRESH, Key, Tunnel, obj, packed, rsvp
from capture.network import ALERT_V4, ALERT_V6, DESTINATION_V6, PROTOCOL_RSVP, ipv4, ipv6
from capture.oddities import (
    faults, foreign_packets, integrity_cases, more_foreign_packets, sound_cases)
from capture.pcapng import (
    IF_CHECK_SEQUENCE, IF_DESCRIPTION, IF_NAME, IF_OFFSET, IF_RESOLUTION, INBOUND, OUTBOUND,
    UNICAST, Section)
from capture.story import Story
from capture.tally import Random, Tally

START = 1_751_958_000  # seconds; 2025-07-08 07:00:00 UTC
DURATION = 300.0  # seconds, of each section
KEY = Key(0xA1, b"many-links-key")
OPTIONS = ["--local", "02:00:5e:10:00", "--key", f"{KEY.identifier:x}={KEY.text.decode()}"]
UNLIMITED = 262144
NODE, PEER = bytes.fromhex("02005e100000"), bytes.fromhex("02005e200000")


def mac(base, number):
    return base[:5] + bytes([number])


class Port:
    """One interface of a section, and the link behind it.

    `header` makes the link header (see links.py); `styles` are what may stand between it and a
    packet, innermost first. `told` says what tells the direction: "flags", "header", "mac" or None.
    `resolution` is that of pcapng: a power of ten, or of two with the highest bit set."""

    def __init__(self, name, link_type, header, told, styles=((),), reduction=False,
                 snap_length=UNLIMITED, resolution=None, offset=0, options=()):
        self.option, self.link_type, self.header, self.told = name, link_type, header, told
        self.styles, self.reduction, self.snap_length = styles, reduction, snap_length
        self.resolution, self.offset = resolution, offset
        self.options = list(options)
        self.tally = Tally()

    def place(self, index, number, stem):
        """`index` counts through the file, `number` through the section."""
        self.number = number
        self.name = self.option or (f"{stem}-{index}" if index else stem)
        self.address = {(sent, family): (f"192.0.2.{4 * index + 2 - sent}" if family == 4 else
                                         f"2001:db8:{index:x}::{2 - sent:x}")
                        for sent in (True, False) for family in (4, 6)}

    def describe(self, section):
        options = [(IF_NAME, self.option.encode())] if self.option else []
        options += self.options
        if self.resolution is not None:
            options.append((IF_RESOLUTION, bytes([self.resolution])))
        if self.offset:
            options.append((IF_OFFSET, struct.pack(section.order + "q", self.offset)))
        section.interface(self.link_type, self.snap_length, options)

    def stamp(self, nanoseconds):
        units = 6 if self.resolution is None else self.resolution
        nanoseconds -= self.offset * 10**9
        if units & 0x80:
            return (nanoseconds << (units & 0x7F)) // 10**9
        return nanoseconds * 10**units // 10**9


class Recorder:
    """Writes the frames of one section and tallies their meaning on each interface."""

    def __init__(self, rng, section, ports, start):
        self.rng, self.section, self.ports, self.start = rng, section, ports, start
        self.written = itertools.count()
        for port in ports:
            port.describe(section)

    def frame(self, time, port, sent, ether_type, packet, meaning=None, family=4, padding=b"",
              shims=None, keep=None, outcome=None, simple=False):
        """`meaning`: (type, error or None) for each RSVP message; None for a frame to be ignored.

        `shims` None takes one of the link's styles. `keep`: octets of the packet that are captured;
        below zero the link header is cut, too. `outcome` where it does not follow from that."""
        for shim in self.rng.pick(port.styles) if shims is None else shims:
            ether_type, packet_in_shim = shim(ether_type, packet)
            keep = None if keep is None else keep + len(packet_in_shim) - len(packet)
            packet = packet_in_shim
        data, trailer = port.header(sent, ether_type, packet, padding)
        kept = (data + trailer)[: port.snap_length]
        if keep is not None:
            kept = kept[: len(data) - len(packet) + keep]
        whole = len(kept) >= len(data)
        size = len(data) + len(trailer)
        number = next(self.written)
        if simple:
            self.section.simple_packet(kept, size)
        else:
            stamp = port.stamp(self.start * 10**9 + round(time * 1e6) * 1000)
            self.section.packet(port.number, stamp, kept, size, self.flags(port, sent, number),
                                "from the generator" if number % 97 == 0 else None)
        if outcome is None:
            outcome = "ignored" if meaning is None else "rsvp" if whole else "cut"
        port.tally.frames[outcome] += 1
        if outcome == "rsvp":
            port.tally.add(sent and port.told is not None, family, meaning)

    @staticmethod
    def flags(port, sent, number):
        """The flags of a frame. They may well be there without a direction."""
        if port.told == "flags":
            return (OUTBOUND if sent else INBOUND) | UNICAST * (number % 2)
        return UNICAST if port.told == "mac" and number % 3 == 0 else None

    def rsvp(self, time, port, sent, family, payload, meaning, ends=None, alert=False, padding=b"",
             options=b"", extensions=(), tags=None, **how):
        """As Capture.rsvp of two_links.py; `tags` are for links that have MAC addresses."""
        source, target = ends or (port.address[sent, family], port.address[not sent, family])
        if family == 4:
            packet = ipv4(source, target, PROTOCOL_RSVP, payload,
                          options=options or ALERT_V4 * alert)
        else:
            packet = ipv6(source, target, PROTOCOL_RSVP, payload,
                          extensions=(ALERT_V6,) * alert + tuple(extensions))
        if tags is not None and port.link_type == links.ETHERNET:
            how["shims"] = [vlan(number, protocol) for protocol, number in reversed(tags)]
        self.frame(time, port, sent, ETHER_IPV4 if family == 4 else ETHER_IPV6, packet, meaning,
                   family, padding, **how)


# The interfaces


def little_ports():
    tags = [[vlan(17)], [vlan(40), vlan(41, ETHER_QINQ)], [mpls(1001)], [mpls(1002, 2002)],
            [mpls(16, 17, 18)], [mpls(3003), vlan(18)],
            [mpls(1, 19), vlan(42), vlan(43, ETHER_QINQ)], [snap()], [snap(), vlan(19)]]
    cooked_tags = [[], [], [vlan(20)], [mpls(20, 21)], [snap()]]
    # On et2 the flags tell the direction, and the neighbour has a MAC address like the node's.
    return [
        Port("et1", links.ETHERNET, links.ethernet(mac(NODE, 1), mac(PEER, 1)), "mac"),
        Port("et2", links.ETHERNET, links.ethernet(mac(PEER, 2), mac(NODE, 2)), "flags", tags,
             reduction=True, resolution=9, options=[(IF_DESCRIPTION, b"tags and labels")]),
        Port("lnx1", links.COOKED, links.cooked(1, mac(NODE, 3), mac(PEER, 3)), "header",
             cooked_tags, resolution=6),
        Port("lnx2", links.COOKED_2, links.cooked_2(512, 5), "header", [[], [vlan(21)]],
             reduction=True, resolution=9),
        Port("raw1", links.RAW, links.raw, None, resolution=9),
        Port("lo1", links.NULL, links.loopback("<", (24, 28, 30, 10)), None),
        Port(None, links.ETHERNET, links.ethernet(mac(NODE, 7), mac(PEER, 7)), "mac",
             [[], [vlan(22)]]),
        Port("user1", links.USER, links.raw, None),
    ]


def big_ports():
    sessions = [[pppoe(7)], [pppoe(8)], [pppoe(9), vlan(23)],
                [pppoe(10), vlan(24), vlan(44, ETHER_QINQ)]]
    labels = [[], [], [mpls(100)], [mpls(101, 102, 103)]]
    return [
        Port("et3", links.ETHERNET, links.ethernet(mac(NODE, 9), mac(PEER, 9), b"\xde\xad\xbe\xef"),
             "mac", snap_length=400, resolution=9, offset=1_000_000_000,
             options=[(IF_CHECK_SEQUENCE, b"\x04")]),
        Port("ppp1", links.PPP, links.ppp("full", "bare", "short"), "flags", labels,
             resolution=3),
        Port("ppp2", links.PPP_HDLC, links.ppp("full"), None, labels, reduction=True),
        Port("hdlc1", links.CISCO_HDLC, links.cisco_hdlc, "flags", labels, resolution=0x80 | 20),
        Port("lo2", links.NULL, links.loopback(">", (30, 28, 24, 10)), None, resolution=9),
        Port("et4", links.ETHERNET, links.ethernet(mac(NODE, 14), mac(PEER, 14)), "mac", sessions,
             offset=-3600),
    ]


# What happens on them


def link_neighbours(port, sent):
    """(EtherType, packet, shims) of other protocols directly above the link, never RSVP."""
    ends = port.address[sent, 4], port.address[not sent, 4]
    hello = rsvp(HELLO, obj(22, 1, bytes(8)))
    inside = ipv4(*ends, PROTOCOL_RSVP, hello)
    lcp, ipcp = bytes.fromhex("0901000811223344"), bytes.fromhex("0101000a0306c0000201")
    if port.link_type == links.ETHERNET:
        arp = struct.pack("!HHBBH", 1, 0x0800, 6, 4, 1) + bytes(6) + packed(ends[0]) + bytes(6)
        cdp = bytes.fromhex("02b4a3c800010006") + b"R1"
        return [(0x0806, arp + packed(ends[1]), ()),
                (0x0806, arp + packed(ends[1]), [vlan(17), vlan(41, ETHER_QINQ)]),
                (0x88CC, bytes.fromhex("02070402005e1000010403026531060200780000"), ()),
                (38, bytes.fromhex("424203") + bytes(35), ()),
                (0x2000, cdp, [snap(b"\x00\x00\x0c")]),
                (0x8863, bytes.fromhex("110900000004") + bytes.fromhex("01010000"), ()),
                (0xC021, lcp, [pppoe(7)]),
                (0x8021, ipcp, [pppoe(7), vlan(23)]),
                # A pseudowire: a control word, then an Ethernet frame with RSVP in it.
                (0, bytes(4) + bytes(12) + b"\x08\x00" + inside, [mpls(900, 901)])]
    if port.link_type in (links.PPP, links.PPP_HDLC):
        return [(0xC021, lcp, ()), (0x8021, ipcp, ()), (0x0023, inside, ()),
                (0x00FD, bytes.fromhex("9001") + inside, ()), (0, bytes(4) + inside, [mpls(902)])]
    if port.link_type == links.CISCO_HDLC:
        return [(0x8035, bytes.fromhex("0000000200000001000000020000ffff"), ()),
                (0x2000, bytes.fromhex("02b4a3c8"), ()), (0, bytes(4) + inside, [mpls(903)])]
    if port.link_type in (links.COOKED, links.COOKED_2):
        return [(0x0806, bytes.fromhex("0001080006040001") + bytes(20), ()),
                (0x88CC, bytes(4), [vlan(20)]), (38, bytes.fromhex("424203") + bytes(35), ())]
    if port.link_type == links.NULL:
        return [(0xFEFE, bytes.fromhex("8314010011010000"), ()), (ETHER_IPV4, b"", ())]
    return []


def cut_frames(port, sent, tunnel):
    """(EtherType, packet, octets of it that are kept, outcome): a frame is cut when what is left
    does not show that it is none of RSVP's."""
    ends = {family: (port.address[sent, family], port.address[not sent, family])
            for family in (4, 6)}
    message = rsvp(PATH, tunnel.objects(PATH, tunnel.hops[0]))
    v4 = ipv4(*ends[4], PROTOCOL_RSVP, message, options=ALERT_V4)
    v6 = ipv6(*ends[6], PROTOCOL_RSVP, message, extensions=[ALERT_V6])
    web4, web6 = ipv4(*ends[4], 6, bytes(40)), ipv6(*ends[6], 6, bytes(40))
    esp6 = ipv6(*ends[6], 50, bytes(40), extensions=[DESTINATION_V6])
    frames = [(ETHER_IPV4, v4, keep, "cut") for keep in (0, 1, 9, 19, 24, 31, len(v4) - 1)]
    frames += [(ETHER_IPV6, v6, keep, "cut") for keep in (0, 6, 39, 44, 48, len(v6) - 1)]
    frames += [(ETHER_IPV4, web4, 9, "cut"), (ETHER_IPV4, web4, 10, "ignored"),
               (ETHER_IPV6, web6, 6, "cut"), (ETHER_IPV6, web6, 7, "ignored"),
               (ETHER_IPV6, esp6, 44, "cut"), (ETHER_IPV6, esp6, 48, "ignored")]
    if port.header is not links.raw:
        frames += [(ETHER_IPV4, v4, -1, "cut"), (ETHER_IPV4, web4, -1, "cut")]
    if port.link_type == links.ETHERNET:
        frames += [(0x88CC, bytes(28), 5, "ignored"), (ETHER_IPV4, v4, -9, "cut")]
    return frames


class Script:
    """Puts the scenes of one section on its links."""

    def __init__(self, rng, story, capture):
        self.rng, self.story, self.capture = rng, story, capture
        self.numbers = itertools.count(1)

    def anywhere(self, action):
        self.story.at(self.rng.between(1, DURATION - 1), action)

    def frame(self, *args, **how):
        self.anywhere(lambda now: self.capture.frame(now, *args, **how))

    def life(self, ports):
        """Tunnels that begin, end or pass between neighbouring links; neighbours that say hello."""
        for port in ports:
            for family, sent in ((4, True), (6, False)):
                self.story.at(self.rng.between(0, 50), self.story.hello(port, sent, family, 50.0))
            if port.reduction:
                for sent, family in itertools.product((True, False), (4, 6)):
                    self.story.at(self.rng.between(5, REFRESH),
                                  self.story.summary_refresh(port, sent, family))
        for at, port in enumerate(ports):
            beside = ports[(at + 1) % len(ports)]
            routes = [(None, port, 4), (port, None, 6), (port, beside, 4 if at % 2 else 6)]
            if port.reduction:  # something to bundle
                routes += [(None, port, 4), (None, port, 4)]
            begin = self.rng.between(1, 60)
            for upstream, downstream, family in routes:
                tunnel = Tunnel(self.rng, next(self.numbers), family, upstream, downstream)
                self.story.tunnel(tunnel, begin + self.rng.between(0, 0.02),
                                  begin + self.rng.between(30, 120))

    def victim(self, family, port):
        return Tunnel(self.rng, next(self.numbers), family, None, port)

    def cases(self, cases, port, sent, family):
        for payload, meaning, how in cases:
            self.anywhere(lambda now, args=(port, sent, family, payload, meaning), how=how:
                          self.capture.rsvp(now, *args, **how))

    def faults(self, port, sent, family, part):
        """`part` is a slice of the list, so that the file stays small."""
        self.cases(faults(self.rng, self.victim(family, port), KEY)[part], port, sent, family)

    def signed(self, port, sent, family):
        self.cases(integrity_cases(self.rng, self.victim(family, port), KEY), port, sent, family)

    def rare(self, port, sent, family):
        tunnel, other = self.victim(family, port), self.victim(10 - family, port)
        self.cases(sound_cases(self.rng, tunnel, other), port, sent, family)
        # A wrong checksum of the IPv4 header is the next router's business.
        hello = rsvp(HELLO, obj(22, 1, self.rng.octets(8)))
        packet = bytearray(ipv4(port.address[sent, 4], port.address[not sent, 4], PROTOCOL_RSVP,
                                hello))
        packet[10] ^= 0x40
        self.frame(port, sent, ETHER_IPV4, bytes(packet), [(HELLO, None)], 4)

    def fragments(self, port, sent, family, ident):
        sender = Sender(self.story, self.capture, port, sent, family, self.victim(family, port),
                        ident)
        play(sender, self.rng, 1, DURATION - 40)

    def strangers(self, port, sent, shims=()):
        ends = {family: (port.address[sent, family], port.address[not sent, family])
                for family in (4, 6)}
        message = rsvp(PATH, self.victim(4, port).objects(PATH, ends[4][0]))
        for ether_type, packet in (foreign_packets(self.rng, ends, message)
                                   + more_foreign_packets(self.rng, ends, message)):
            # Where nothing but the packet tells its version, the wrong EtherType is not seen.
            told = port.header is not links.raw or packet[0] >> 4 == (
                4 if ether_type == ETHER_IPV4 else 6)
            if told:
                self.frame(port, sent, ether_type, packet, shims=shims)

    def neighbours(self, port):
        for sent in (True, False):
            for ether_type, packet, shims in link_neighbours(port, sent):
                self.frame(port, sent, ether_type, packet, shims=shims)

    def cuts(self, port, sent, family):
        for ether_type, packet, keep, outcome in cut_frames(port, sent, self.victim(family, port)):
            shims = () if ether_type == 0x88CC else None
            self.frame(port, sent, ether_type, packet, keep=keep, outcome=outcome, shims=shims)

    def trailers(self, port, sent):
        """Frames that lack no more than what comes after the packet."""
        for family, ether_type in ((4, ETHER_IPV4), (6, ETHER_IPV6)):
            ends = port.address[sent, family], port.address[not sent, family]
            hello = rsvp(HELLO, obj(22, 1, self.rng.octets(8)))
            packet = (ipv4 if family == 4 else ipv6)(*ends, PROTOCOL_RSVP, hello)
            self.frame(port, sent, ether_type, packet + bytes(6), [(HELLO, None)], family,
                       shims=(), keep=len(packet), outcome="rsvp")

    def unknown(self, port):
        """Frames of a link type that nobody understands, though they look like IP."""
        for family, ether_type in ((4, ETHER_IPV4), (6, ETHER_IPV6)):
            message = rsvp(PATH, self.victim(family, port).objects(PATH, "192.0.2.1"))
            ends = port.address[True, family], port.address[False, family]
            packet = (ipv4 if family == 4 else ipv6)(*ends, PROTOCOL_RSVP, message)
            for keep in (len(packet), len(packet), 30):
                self.frame(port, True, ether_type, packet, keep=keep)

    def simple(self, port, sent):
        """Blocks without a time: a message that no state depends on, and one that is cut."""
        ends = port.address[sent, 4], port.address[not sent, 4]
        hello = rsvp(HELLO, obj(22, 1, self.rng.octets(8)))
        long_hello = rsvp(HELLO, obj(22, 1, self.rng.octets(8)), obj(230, 1, bytes(400)))
        for message in (hello, long_hello):
            self.frame(port, sent, ETHER_IPV4, ipv4(*ends, PROTOCOL_RSVP, message),
                       [(HELLO, None)], 4, simple=True)


def little_scenes(script, ports):
    et1, et2, lnx1, lnx2, raw1, lo1, nameless, user1 = ports
    script.life(ports[:-1])
    script.faults(raw1, True, 4, slice(None))
    script.faults(lnx2, True, 6, slice(None))
    script.faults(et2, False, 6, slice(0, None, 3))
    script.faults(nameless, True, 4, slice(1, None, 3))
    for port, sent, family in ((et1, False, 4), (lnx1, True, 6), (raw1, False, 6)):
        script.signed(port, sent, family)
    for port, sent, family in ((et2, True, 4), (lo1, False, 6)):
        script.rare(port, sent, family)
    for port, sent, family in ((et1, True, 4), (et1, False, 6), (et2, False, 4), (raw1, False, 6),
                               (lnx2, True, 4)):
        script.fragments(port, sent, family, 100 * (1 + port.number))
    for port, sent in ((et1, True), (lnx1, False), (raw1, False)):
        script.strangers(port, sent)
    for port, sent, family in ((et1, True, 4), (et2, False, 6), (lnx1, True, 4), (raw1, False, 4)):
        script.cuts(port, sent, family)
    for port in (et1, lnx2, raw1, nameless):
        script.trailers(port, True)
    for port in (et1, lnx1, lnx2, lo1):
        script.neighbours(port)
    script.frame(raw1, False, ETHER_IPV4, b"")  # a frame of no octets
    script.unknown(user1)


def big_scenes(script, ports):
    et3, ppp1, ppp2, hdlc1, lo2, et4 = ports
    script.life(ports)
    script.faults(ppp1, True, 6, slice(0, None, 2))
    script.faults(hdlc1, False, 4, slice(1, None, 2))
    script.faults(lo2, False, 6, slice(0, None, 3))
    script.faults(et4, True, 4, slice(2, None, 3))
    for port, sent, family in ((hdlc1, True, 4), (et4, False, 6)):
        script.signed(port, sent, family)
    script.rare(ppp2, True, 4)
    for port, sent, family in ((ppp1, True, 4), (hdlc1, False, 6), (et4, False, 4)):
        script.fragments(port, sent, family, 100 * (1 + port.number))
    script.strangers(ppp1, True)
    script.strangers(et4, False, shims=None)
    for port, sent, family in ((hdlc1, True, 4), (lo2, False, 6), (et4, False, 4)):
        script.cuts(port, sent, family)
    for port in (et3, ppp1, hdlc1, lo2):
        script.trailers(port, False)
    for port in ports:
        script.neighbours(port)
    for sent in (True, False):
        script.simple(et3, sent)


class File:
    """The sections, one after the other."""

    def __init__(self, sections, ports):
        self.sections, self.ports = sections, ports

    def bytes(self):
        return b"".join(section.bytes() for section in self.sections)

    def tallies(self):
        return {port.name: port.tally for port in self.ports}


def build(seed, stem):
    """`stem` names the interface that has no name."""
    rng = Random(seed)
    sections, everything = [], []
    for order, ports, scenes, start in (("<", little_ports(), little_scenes, START),
                                        (">", big_ports(), big_scenes, START + int(DURATION) + 60)):
        for number, port in enumerate(ports):
            port.place(len(everything) + number, number, stem)
        section = Section(order, "make_capture")
        section.custom(b"of no meaning")
        capture = Recorder(rng, section, ports, start)
        section.names(packed(ports[0].address[True, 4]), "router.example")
        story = Story(rng, capture, DURATION)
        scenes(Script(rng, story, capture), ports)
        story.run()
        for port in ports:
            stamp = port.stamp((start + int(DURATION)) * 10**9)
            section.statistics(port.number, stamp, sum(port.tally.frames.values()))
        sections.append(section)
        everything += ports
    return File(sections, everything)
