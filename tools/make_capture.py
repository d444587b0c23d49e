#!/usr/bin/env python3
"""Makes the sample capture and the counts that a correct decoder finds in it.

The capture shows one port of a router for a quarter of an hour. Two links share it: one to
neighbour A, untagged, with plain soft-state refresh (RFC 2205), and one to neighbour B in a VLAN,
with refresh reduction (RFC 2961). Tunnels (RFC 3209) begin at the router, end at it or pass
through. Between their messages stand damaged ones, rare but legal ones, and traffic of other
protocols.

The counts are what the generator meant to send: every frame is written together with its meaning,
and no frame is ever read back. So they check a decoder without sharing a line with one.
"""

import argparse
import heapq
import hmac
import ipaddress
import itertools
import json
import pathlib
import struct
import sys

PATH, RESV, PATHERR, RESVERR, PATHTEAR, RESVTEAR, RESVCONF = range(1, 8)
BUNDLE, ACK, SREFRESH, HELLO = 12, 13, 15, 20
TYPE_NAMES = {
    0: "ERROR", PATH: "PATH", RESV: "RESV", PATHERR: "PATHERR", RESVERR: "RESVERR",
    PATHTEAR: "PATHTEAR", RESVTEAR: "RESVTEAR", RESVCONF: "RESVCONF", BUNDLE: "BUNDLE", ACK: "ACK",
    SREFRESH: "SREFRESH", HELLO: "HELLO",
}
FORMAT, OBJECTS, CHECKSUM = 5, 6, 7
ERROR_NAMES = {
    FORMAT: "invalidPktFormatErrorType",
    OBJECTS: "pktParserGenericFailureErrorType",
    CHECKSUM: "pktParserBadMsgChecksumErrorType",
}
# Messages that travel towards a tunnel's end point and are caught by Router Alert on the way.
END_TO_END = {PATH, PATHTEAR, RESVCONF}

DEFAULT_OUTPUT = pathlib.Path(__file__).resolve().parent.parent / "samples" / "two-links.pcap"
START = 1_751_871_600_000_000  # microseconds; 2025-07-07 07:00:00 UTC
DURATION = 900.0  # seconds
REFRESH = 30.0
MTU = 1500
PROTOCOL_RSVP = 46
INTEGRITY_KEY_ID, INTEGRITY_KEY = 1, b"two-links"


class Random:
    """SplitMix64. The library's generator may change its sequences from version to version."""

    def __init__(self, seed):
        self.state = seed & 0xFFFFFFFFFFFFFFFF

    def bits64(self):
        self.state = (self.state + 0x9E3779B97F4A7C15) & 0xFFFFFFFFFFFFFFFF
        z = self.state
        z = ((z ^ (z >> 30)) * 0xBF58476D1CE4E5B9) & 0xFFFFFFFFFFFFFFFF
        z = ((z ^ (z >> 27)) * 0x94D049BB133111EB) & 0xFFFFFFFFFFFFFFFF
        return z ^ (z >> 31)

    def below(self, limit):
        return self.bits64() % limit

    def between(self, low, high):
        return low + (high - low) * (self.bits64() / 2**64)

    def pick(self, items):
        return items[self.below(len(items))]

    def octets(self, count):
        return bytes(self.below(256) for _ in range(count))


class Tally:
    """What was meant, in the rows that the tool prints."""

    def __init__(self):
        self.frames = {"rsvp": 0, "ignored": 0, "cut": 0}
        self.messages = {}
        self.errors = {}

    def add(self, sent, family, meaning):
        direction = "tx" if sent else "rx"
        for type_number, error in meaning:
            key = (direction, f"ipv{family}", 0 if error else type_number)
            self.messages[key] = self.messages.get(key, 0) + 1
            if error:
                self.errors[direction, error] = self.errors.get((direction, error), 0) + 1

    def report(self, interface):
        return {
            "frames": sum(self.frames.values()),
            **self.frames,
            "messages": [
                {"interface": interface, "direction": direction, "family": family,
                 "type": TYPE_NAMES[number], "typeNumber": number, "count": count}
                for (direction, family, number), count in sorted(self.messages.items())
            ],
            "errors": [
                {"direction": direction, "error": ERROR_NAMES[number], "errorNumber": number,
                 "count": count}
                for (direction, number), count in sorted(self.errors.items())
            ],
        }


# RSVP objects and messages


def checksum(data):
    total = sum(struct.unpack(f"!{len(data) // 2}H", data[: len(data) & ~1]))
    total += data[-1] << 8 if len(data) % 2 else 0
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return total ^ 0xFFFF


def obj(number, c_type, body=b"", length=None):
    """`length` makes the header lie; the body stays as it is."""
    return struct.pack("!HBB", 4 + len(body) if length is None else length, number, c_type) + body


def rsvp(type_number, *objects, ttl=64, version=1, length=None, checksum_is="right"):
    """A message; `length`, `version` and `checksum_is` ("right", "wrong", "none") make it odd."""
    body = b"".join(objects)
    length = 8 + len(body) if length is None else length
    head = struct.pack("!BBHBBH", version << 4, type_number, 0, ttl, 0, length)
    right = checksum((head + body)[: max(length, 8)]) or 0xFFFF
    wrong = right ^ (0x0400 if right != 0x0400 else 1)  # but not zero, which means "none"
    value = {"right": right, "wrong": wrong, "none": 0}[checksum_is]
    return head[:2] + struct.pack("!H", value) + head[4:] + body


def integrity(digest=bytes(16), sequence=1):
    key = INTEGRITY_KEY_ID.to_bytes(6, "big")
    return obj(4, 1, bytes(2) + key + struct.pack("!Q", sequence) + digest)


def authenticated(type_number, *objects, sequence=1):
    """RFC 2747: the digest is taken over the message with the digest and the checksum zero."""
    blank = rsvp(type_number, integrity(sequence=sequence), *objects, checksum_is="none")
    digest = hmac.new(INTEGRITY_KEY, blank, "md5").digest()
    return rsvp(type_number, integrity(digest, sequence), *objects, checksum_is="none")


def packed(address):
    return ipaddress.ip_address(address).packed


def address_object(number, address, tail=b"", c_types=(1, 2)):
    raw = packed(address)
    return obj(number, c_types[len(raw) == 16], raw + tail)


class Tunnel:
    """A label-switched path and the objects that name and describe it."""

    def __init__(self, rng, number, family, upstream, downstream):
        self.family, self.number = family, number
        self.upstream, self.downstream = upstream, downstream  # links; None at an end of the tunnel
        loopback = {4: "10.0.0.{}", 6: "2001:db8:ffff::{:x}"}[family]
        self.sender = loopback.format(1 if upstream is None else 10 + rng.below(200))
        self.end = loopback.format(1 if downstream is None else 10 + rng.below(200))
        self.lsp_id = 1 + rng.below(9)
        self.bandwidth = float(1 + rng.below(400)) * 125_000  # octets per second
        self.label = 16 + rng.below(100_000)
        self.name = b"to-%d-%s" % (number, rng.pick([b"gold", b"silver", b"bulk"]))
        self.confirms = rng.below(4) == 0
        self.hops = [{4: "198.18.{}.{}", 6: "2001:db8:{:x}::{:x}"}[family].format(
            rng.below(250), 1 + rng.below(250)) for _ in range(2 + rng.below(3))]
        self.route = (self.hops, [self.sender] + self.hops)

    def session(self):
        tail = struct.pack("!HH", 0, self.number) + packed(self.sender)
        return address_object(1, self.end, tail, c_types=(7, 8))

    def sender_id(self, number):  # SENDER_TEMPLATE (11) or FILTER_SPEC (10)
        tail = struct.pack("!HH", 0, self.lsp_id)
        return address_object(number, self.sender, tail, c_types=(7, 8))

    def traffic(self, number):  # SENDER_TSPEC (12) or FLOWSPEC (9): token bucket of RFC 2210
        service = 1 if number == 12 else 5
        return obj(number, 2, struct.pack("!HHBBHBBHfffII", 0, 7, service, 0, 6, 127, 0, 5,
                                          self.bandwidth, 1000.0, self.bandwidth, 64, MTU))

    def route_object(self, number):  # EXPLICIT_ROUTE (20) or RECORD_ROUTE (21)
        kind, bits = {4: (1, 32), 6: (2, 128)}[self.family]
        return obj(number, 1, b"".join(
            struct.pack("!BB", kind, 4 + bits // 8) + packed(hop) + bytes([bits, 0])
            for hop in self.route[number == 21]))

    def attributes(self):
        name = self.name + bytes(-len(self.name) % 4)
        return obj(207, 7, bytes([7, 7, 0x04, len(self.name)]) + name)  # SE style desired

    def objects(self, type_number, hop, error=(0, 0)):
        """What stands in a message of this type that `hop` (an address of the link) sends."""
        hop_object = address_object(3, hop, bytes(4))
        error_object = address_object(6, hop, struct.pack("!BBH", 0, *error))
        times = obj(5, 1, struct.pack("!I", int(REFRESH * 1000)))
        style = obj(8, 1, struct.pack("!I", 0x12))  # shared explicit
        sender = self.sender_id(11) + self.traffic(12)
        flow = self.traffic(9) + self.sender_id(10)
        confirm = address_object(15, self.end) if self.confirms else b""
        request = obj(19, 1, struct.pack("!HH", 0, 0x0800 if self.family == 4 else 0x86DD))
        label = obj(16, 1, struct.pack("!I", self.label))
        return self.session() + {
            PATH: hop_object + times + self.route_object(20) + request + self.attributes() + sender
            + self.route_object(21),
            RESV: hop_object + times + confirm + style + flow + label + self.route_object(21),
            PATHERR: error_object + sender,
            RESVERR: hop_object + error_object + style + flow,
            PATHTEAR: hop_object + sender,
            RESVTEAR: hop_object + style + flow,
            RESVCONF: error_object + confirm + style + flow,
        }[type_number]


# Headers below RSVP


def ipv4(source, target, protocol, payload, ttl=64, options=b"", fragment=0, total=None, ihl=None):
    words = 5 + len(options) // 4 if ihl is None else ihl
    total = 20 + len(options) + len(payload) if total is None else total
    head = struct.pack("!BBHHHBBH", 0x40 | words, 0xC0, total, 0, fragment, ttl, protocol, 0)
    head += packed(source) + packed(target) + options
    return head[:10] + struct.pack("!H", checksum(head)) + head[12:] + payload


def ipv6(source, target, protocol, payload, hops=64, extensions=()):
    """`extensions` are (number, header without its first octet), outermost first."""
    numbers = [number for number, _ in extensions] + [protocol]
    chain = b"".join(bytes([after]) + rest for after, (_, rest) in zip(numbers[1:], extensions))
    head = struct.pack("!IHBB", 0x6C000000, len(chain + payload), numbers[0], hops)
    return head + packed(source) + packed(target) + chain + payload


ALERT_V4 = bytes([0x94, 4, 0, 0])  # RFC 2113
RECORD_ROUTE_V4 = bytes([7, 7, 8, 10, 0, 0, 1, 0])
ALERT_V6 = (0, bytes([0, 5, 2, 0, 1, 1, 0]))  # Hop-by-Hop: Router Alert "RSVP" (RFC 2711), PadN
DESTINATION_V6 = (60, bytes([0, 1, 4, 0, 0, 0, 0]))
ROUTING_V6 = (43, bytes([2, 4, 0]) + bytes(4) + packed("2001:db8:b::7"))
AUTHENTICATION_V6 = (51, bytes([4, 0, 0]) + struct.pack("!II", 77, 1) + bytes(12))
ATOMIC_FRAGMENT_V6 = (44, bytes([0, 0, 0]) + struct.pack("!I", 99))


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


class Story:
    """Events in the order of time. Each link and direction keeps its own refresh state."""

    def __init__(self, rng, capture):
        self.rng, self.capture = rng, capture
        self.events, self.order = [], itertools.count()
        self.batches = {}  # messages that wait for a bundle, by (link name, sent, family)
        self.identifiers = itertools.count(1)
        self.refreshed = {}  # MESSAGE_ID numbers for SREFRESH, by (link name, sent, family)

    def at(self, time, action):
        heapq.heappush(self.events, (time, next(self.order), action))

    def run(self):
        while self.events:
            time, _, action = heapq.heappop(self.events)
            if time < DURATION:
                action(time)

    def send(self, time, tunnel, type_number, link, sent, error=(0, 0)):
        """One message of a tunnel over a link; with refresh reduction it may travel in a bundle."""
        objects = tunnel.objects(type_number, link.address[sent, tunnel.family], error)
        if not link.reduction:
            ends = (tunnel.sender, tunnel.end) if type_number in END_TO_END else None
            self.capture.rsvp(time, link, sent, tunnel.family, rsvp(type_number, objects),
                              [(type_number, None)], ends, alert=type_number in END_TO_END)
            return
        key = (link.name, sent, tunnel.family)
        number = next(self.identifiers)
        if type_number in (PATH, RESV):
            self.refreshed.setdefault(key, {})[tunnel.number, type_number] = number
        if type_number in (PATHTEAR, RESVTEAR):
            self.refreshed.get(key, {}).pop((tunnel.number, type_number - 4), None)
        if type_number == PATHTEAR:  # the reservation, refreshed the other way, goes with the path
            back = (link.name, not sent, tunnel.family)
            self.refreshed.get(back, {}).pop((tunnel.number, RESV), None)
        message_id = obj(23, 1, struct.pack("!II", 0x01_00_00_2A, number))  # ACK_Desired, epoch 42
        batch = self.batches.setdefault(key, [])
        if not batch:
            self.at(time + 0.05, lambda now: self.flush(now, link, sent, tunnel.family))
        batch.append((type_number, rsvp(type_number, message_id, objects), number))

    def flush(self, time, link, sent, family):
        waiting = self.batches.pop((link.name, sent, family))
        while waiting:
            bundle, room = [], MTU - 40 - 8
            while waiting and len(waiting[0][1]) <= room:
                room -= len(waiting[0][1])
                bundle.append(waiting.pop(0))
            meaning = [(type_number, None) for type_number, _, _ in bundle]
            payload = bundle[0][1]
            if len(bundle) > 1:
                payload = rsvp(BUNDLE, *(message for _, message, _ in bundle))
                meaning.insert(0, (BUNDLE, None))
            self.capture.rsvp(time, link, sent, family, payload, meaning)
            acks = [obj(24, 1, struct.pack("!II", 0x2A, number)) for _, _, number in bundle]
            self.at(time + self.rng.between(0.01, 0.04),
                    lambda now, acks=acks: self.capture.rsvp(
                        now, link, not sent, family, rsvp(ACK, *acks), [(ACK, None)]))

    def refresh(self, tunnel, type_number, link, sent, until):
        """Sends soft state again and again, at the intervals of RFC 2205, section 3.7."""

        def again(time):
            if time < until:
                self.send(time, tunnel, type_number, link, sent)
                self.at(time + REFRESH * self.rng.between(0.5, 1.5), again)

        return again

    def summary_refresh(self, link, sent, family):
        def again(time):
            numbers = list(self.refreshed.get((link.name, sent, family), {}).values())
            if numbers:
                listing = struct.pack(f"!I{len(numbers)}I", 0x2A, *numbers)
                self.capture.rsvp(time, link, sent, family, rsvp(SREFRESH, obj(25, 1, listing)),
                                  [(SREFRESH, None)])
            self.at(time + REFRESH * self.rng.between(0.5, 1.5), again)

        return again

    def hello(self, link, sent, family, interval):
        mine, theirs = self.rng.below(2**32), self.rng.below(2**32)

        def again(time):
            request = rsvp(HELLO, obj(22, 1, struct.pack("!II", mine, theirs)), ttl=1)
            answer = rsvp(HELLO, obj(22, 2, struct.pack("!II", theirs, mine)), ttl=1)
            self.capture.rsvp(time, link, sent, family, request, [(HELLO, None)])
            self.at(time + self.rng.between(0.001, 0.005), lambda now: self.capture.rsvp(
                now, link, not sent, family, answer, [(HELLO, None)]))
            self.at(time + interval, again)

        return again

    def tunnel(self, tunnel, begin, end):
        """From the first PATH to the tear. A link behind us answers; one before us asks."""
        up, down = tunnel.upstream, tunnel.downstream
        fate = self.rng.below(8)
        towards_end = [(link, sent) for link, sent in ((up, False), (down, True)) if link]
        towards_sender = [(link, sent) for link, sent in ((down, False), (up, True)) if link]

        def pass_on(time, type_number, route, refreshing=False, error=(0, 0)):
            for delay, (link, sent) in enumerate(route):
                keeps = refreshing and not link.reduction
                self.at(time + 0.015 * delay, self.refresh(tunnel, type_number, link, sent, end)
                        if keeps else lambda now, link=link, sent=sent: self.send(
                            now, tunnel, type_number, link, sent, error))

        if fate == 0:  # no route to the end point: an error instead of a reservation
            pass_on(begin, PATH, towards_end)
            pass_on(begin + 0.08, PATHERR, towards_sender, error=(24, 5))
            pass_on(begin + 0.5, PATHTEAR, towards_end)
            return
        pass_on(begin, PATH, towards_end, refreshing=True)
        if fate == 1:  # a first reservation is too large for the link
            pass_on(begin + 0.08, RESV, towards_sender[:1])
            pass_on(begin + 0.10, RESVERR, [(link, not sent) for link, sent in towards_sender[:1]],
                    error=(1, 2))
        pass_on(begin + 0.2, RESV, towards_sender, refreshing=True)
        if tunnel.confirms:
            pass_on(begin + 0.3, RESVCONF, towards_end)
        if fate == 2:  # repaired locally on the way
            pass_on(self.rng.between(begin, end), PATHERR, towards_sender, error=(25, 3))
        if fate in (3, 4):
            pass_on(end, RESVTEAR, towards_sender)
        pass_on(end + 0.05, PATHTEAR, towards_end)


# What a decoder must get right besides the story


def faults(rng, tunnel):
    """(payload, meaning, more arguments of Capture.rsvp) of odd packets. Where one packet has two
    faults, the check that comes first names the error."""
    hop = tunnel.hops[0]
    kind = rng.pick([PATH, RESV, PATHERR, PATHTEAR, RESVTEAR])
    objects = tunnel.objects(kind, hop)
    good, size = rsvp(kind, objects), 8 + len(objects)
    wrong_checksum = rsvp(kind, objects, checksum_is="wrong")
    other_kind = rng.pick([PATH, RESV, RESVERR])
    other = rsvp(other_kind, tunnel.objects(other_kind, hop))
    hello = rsvp(HELLO, obj(22, 1, rng.octets(8)))
    unknown = rng.pick([0, 8, 9, 10, 11, 14, 16, 21, 25, 26, 66, 200, 255])
    fine, fine_other, fine_hello = (kind, None), (other_kind, None), (HELLO, None)
    bundled = (BUNDLE, None)
    cases = []

    def case(payload, *meaning, **how):
        cases.append((payload, meaning, how))

    # Format. A packet of a few octets is padded with what would complete a message.
    for count in (0, 1, 4, 7):
        case(hello[:count], (0, FORMAT), padding=hello[count:])
    for version in (0, 2, 3, 15):
        case(rsvp(kind, objects, version=version), (kind, FORMAT))
    for length in (0, 4, 7, size - 2, size + 4, 0xFFFC):
        case(rsvp(kind, objects, length=length), (kind, FORMAT))
    case(rsvp(kind, objects, rng.octets(4), length=size + 1), (kind, FORMAT))
    case(rsvp(unknown, objects), (unknown, FORMAT))
    case(rsvp(unknown, obj(5, 1, length=0)), (unknown, FORMAT))
    case(rsvp(kind, objects, version=2, checksum_is="wrong"), (kind, FORMAT))

    # Checksum.
    case(wrong_checksum, (kind, CHECKSUM))
    case(good[:-1] + bytes([good[-1] ^ 0x10]), (kind, CHECKSUM))
    case(rsvp(kind, obj(5, 1, length=0), checksum_is="wrong"), (kind, CHECKSUM))

    # Objects: lengths of nothing, of less than a header, of no multiple of 4, beyond the message.
    for length in (0, 3, 6, 12, 0xFFFC):
        case(rsvp(kind, objects, obj(5, 1, rng.octets(4), length=length)), (kind, OBJECTS))
    case(rsvp(kind, obj(5, 1, length=2), checksum_is="none"), (kind, OBJECTS))

    # Rare and sound.
    case(rsvp(kind, objects, checksum_is="none"), fine)
    case(good + rng.octets(1 + rng.below(9)), fine)
    case(good + other, fine)
    case(rsvp(kind, objects, obj(63, 9, rng.octets(8)), obj(191, 1), obj(254, 3, bytes(4))), fine)
    case(rsvp(kind), fine)
    case(authenticated(kind, objects, sequence=1 + rng.below(2**40)), fine)
    case(good, fine, tags=[(0x88A8, 40), (0x8100, 41)])

    # Bundles: sound, wrong themselves, with a wrong message that can be stepped over, broken off.
    case(rsvp(BUNDLE), bundled)
    case(rsvp(BUNDLE, hello, good, checksum_is="none"), bundled, fine_hello, fine)
    case(authenticated(BUNDLE, good, other), bundled, fine, fine_other)
    case(rsvp(BUNDLE, good, hello, checksum_is="wrong"), (BUNDLE, CHECKSUM))
    case(rsvp(BUNDLE, good, wrong_checksum, hello), bundled, fine, (kind, CHECKSUM), fine_hello)
    case(rsvp(BUNDLE, rsvp(kind, objects, version=3), hello), bundled, (kind, FORMAT), fine_hello)
    case(rsvp(BUNDLE, rsvp(unknown, objects), hello), bundled, (unknown, FORMAT), fine_hello)
    case(rsvp(BUNDLE, rsvp(kind, objects, obj(5, 1, length=3)), hello),
         bundled, (kind, OBJECTS), fine_hello)
    case(rsvp(BUNDLE, hello, rsvp(BUNDLE, good, other), hello),
         bundled, fine_hello, (BUNDLE, FORMAT), fine_hello)
    case(rsvp(BUNDLE, hello, rsvp(kind, objects, length=size + 16), hello[:12]),
         bundled, fine_hello, (kind, FORMAT))
    case(rsvp(BUNDLE, rsvp(kind, objects, length=4), hello), bundled, (kind, FORMAT))
    case(rsvp(BUNDLE, hello, good[:4]), bundled, fine_hello, (0, FORMAT))

    if tunnel.family == 4:
        case(good, fine, options=RECORD_ROUTE_V4 + ALERT_V4)
    else:
        case(good, fine, alert=True, extensions=[DESTINATION_V6])
        case(good, fine, extensions=[ROUTING_V6, DESTINATION_V6])
        case(good, fine, extensions=[AUTHENTICATION_V6])
        case(good, fine, extensions=[ATOMIC_FRAGMENT_V6])
    return cases


def foreign(rng, link, sent, tunnel):
    """(EtherType, packet) of what is no RSVP at the top level, or no usable packet."""
    ends = {family: (link.address[sent, family], link.address[not sent, family])
            for family in (4, 6)}
    message = rsvp(PATH, tunnel.objects(PATH, tunnel.hops[0]))
    tcp = struct.pack("!HHIIHHHH", 179, 40000, rng.below(2**32), 0, 0x5018, 512, 0, 0)
    packets = []

    def v4(protocol, payload, **how):
        packets.append((0x0800, ipv4(*ends[4], protocol, payload, **how)))

    def v6(protocol, payload, **how):
        packets.append((0x86DD, ipv6(*ends[6], protocol, payload, **how)))

    # Neighbours of RSVP on a link: ARP, LLDP, spanning tree (an IEEE 802.3 length instead of an
    # EtherType), OSPF, BGP, bulk data (longer than the snap length), ESP.
    arp = struct.pack("!HHBBH", 1, 0x0800, 6, 4, 1) + link.mac[sent] + packed(ends[4][0])
    packets.append((0x0806, arp + bytes(6) + packed(ends[4][1])))
    packets.append((0x88CC, bytes.fromhex("02070402005e1000010403026531060200780000")))
    packets.append((38, bytes.fromhex("424203") + bytes(35)))
    v4(89, b"\x02\x01\x00\x2c" + bytes(40), ttl=1)
    v6(89, b"\x03\x01\x00\x24" + bytes(32), hops=1)
    v4(6, tcp + b"\xff" * 16 + b"\x00\x13\x04", ttl=1)
    v4(6, tcp + rng.octets(1200))
    v6(50, rng.octets(64), extensions=[DESTINATION_V6])

    # RSVP in UDP, GRE, IP in IP, an ICMP error; protocol 134; after "no next header".
    carried = ipv4(*ends[4], PROTOCOL_RSVP, message)
    v4(17, struct.pack("!HHHH", 1698, 1698, 8 + len(message), 0) + message)
    v4(47, b"\x00\x00\x08\x00" + carried)
    v4(4, carried)
    v6(4, carried)
    v4(1, b"\x0b\x00\x00\x00" + bytes(4) + carried)
    v4(134, message)
    v6(59, message)

    # Headers that cannot be used: a header of 16 octets, a packet longer than its frame, one
    # shorter than its header, IPv6 under IPv4's EtherType. Fragments whose rest never comes.
    v4(PROTOCOL_RSVP, message, ihl=4)
    v4(PROTOCOL_RSVP, message, total=60 + len(message))
    v4(PROTOCOL_RSVP, message, total=16)
    packets.append((0x0800, ipv6(*ends[6], PROTOCOL_RSVP, message)))
    v4(PROTOCOL_RSVP, message[:64], fragment=0x2000)
    v6(PROTOCOL_RSVP, message[64:], extensions=[(44, struct.pack("!BHI", 0, 64, 4711))])
    return packets


def build(seed, snap_length):
    rng = Random(seed)
    link_a = Link("A", bytes.fromhex("02005e100001"), bytes.fromhex("02005e200001"),
                  [], False)
    link_b = Link("B", bytes.fromhex("02005e100002"), bytes.fromhex("02005e200002"),
                  [(0x8100, 210)], True)
    capture = Capture(rng, snap_length)
    story = Story(rng, capture)

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
        for payload, meaning, how in faults(rng, victim):
            args = (link, sent, family, payload, meaning)
            story.at(rng.between(2, DURATION - 1),
                     lambda now, args=args, how=how: capture.rsvp(now, *args, **how))
        for ether_type, packet in foreign(rng, link, sent, victim) if family == 4 else ():
            args = (link, sent, ether_type, packet)
            story.at(rng.between(2, DURATION - 1),
                     lambda now, args=args: capture.frame(now, *args))
    story.run()
    return capture


def main():
    parser = argparse.ArgumentParser(
        description="Make the sample capture (pcap, Ethernet, RSVP-TE over IPv4 and IPv6) and, "
        "beside it, NAME.expected.json: the counts of frames, messages and errors that were meant.",
        epilog="The same seed and snap length give the same bytes on every machine. The node's MAC "
        "addresses begin with 02:00:5e:10:00; give that prefix to the tool as --local. "
        f"INTEGRITY objects use key {INTEGRITY_KEY_ID:x}, '{INTEGRITY_KEY.decode()}' (HMAC-MD5).")
    parser.add_argument("--output", type=pathlib.Path, default=DEFAULT_OUTPUT, metavar="FILE",
                        help="capture to write (default: %(default)s)")
    parser.add_argument("--seed", type=int, default=20707, metavar="N",
                        help="start of the random numbers (default: %(default)s)")
    parser.add_argument("--snap-length", type=int, default=640, metavar="N",
                        help="octets kept of each frame (default: %(default)s)")
    options = parser.parse_args()
    if not 128 <= options.snap_length <= 262144:
        parser.error(f"--snap-length {options.snap_length}: wanted 128 to 262144")

    capture = build(options.seed, options.snap_length)
    expected = options.output.with_suffix(".expected.json")
    try:
        options.output.write_bytes(capture.bytes())
        expected.write_text(json.dumps(capture.tally.report(options.output.stem), indent=1) + "\n")
    except OSError as error:
        sys.exit(f"make_capture.py: {error}")
    frames = sum(capture.tally.frames.values())
    print(f"{options.output}: {frames} frames, counts in {expected.name}", file=sys.stderr)


if __name__ == "__main__":
    main()
