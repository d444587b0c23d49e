"""What a decoder must get right besides the story: damaged messages, rare ones that are sound, and
packets that are no RSVP at the top level."""

import struct

from capture.messages import (
    BUNDLE, HELLO, PATH, PATHERR, PATHTEAR, RESV, RESVERR, RESVTEAR, Key, address_object, obj,
    packed, rsvp)
from capture.network import (
    ALERT_V4, ALERT_V6, ATOMIC_FRAGMENT_V6, AUTHENTICATION_V6, DESTINATION_V6, PROTOCOL_RSVP,
    RECORD_ROUTE_V4, ROUTING_V6, ipv4, ipv6)
from capture.tally import CHECKSUM, FORMAT, INTEGRITY, OBJECTS


def faults(rng, tunnel, key):
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
    case(key.sign(kind, objects, sequence=1 + rng.below(2**40)), fine)
    case(good, fine, tags=[(0x88A8, 40), (0x8100, 41)])

    # Bundles: sound, wrong themselves, with a wrong message that can be stepped over, broken off.
    case(rsvp(BUNDLE), bundled)
    case(rsvp(BUNDLE, hello, good, checksum_is="none"), bundled, fine_hello, fine)
    case(key.sign(BUNDLE, good, other), bundled, fine, fine_other)
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


def foreign_packets(rng, ends, message):
    """(EtherType, packet) of what carries no RSVP at the top level, or has no usable IP header.
    `ends` has (source, destination) by family; `message` is what a decoder might fall for."""
    tcp = struct.pack("!HHIIHHHH", 179, 40000, rng.below(2**32), 0, 0x5018, 512, 0, 0)
    packets = []

    def v4(protocol, payload, **how):
        packets.append((0x0800, ipv4(*ends[4], protocol, payload, **how)))

    def v6(protocol, payload, **how):
        packets.append((0x86DD, ipv6(*ends[6], protocol, payload, **how)))

    # Neighbours of RSVP on a link: OSPF, BGP, bulk data (longer than most snap lengths), ESP.
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


def more_foreign_packets(rng, ends, message):
    """As `foreign_packets`: what that list lacks, most of it in IPv6."""
    carried = {4: ipv4(*ends[4], PROTOCOL_RSVP, message), 6: ipv6(*ends[6], PROTOCOL_RSVP, message)}
    udp = struct.pack("!HHHH", 1698, 1698, 8 + len(message), 0) + message
    return [
        (0x0800, ipv4(*ends[4], 41, carried[6])),
        (0x0800, ipv4(*ends[4], 50, rng.octets(8) + message)),
        (0x0800, ipv4(*ends[4], 17, udp[:64], fragment=0x2000, ident=77)),
        (0x86DD, ipv6(*ends[6], 41, carried[6])),
        (0x86DD, ipv6(*ends[6], 47, b"\x00\x00\x86\xdd" + carried[6], extensions=[DESTINATION_V6])),
        (0x86DD, ipv6(*ends[6], 58, b"\x03\x00\x00\x00" + bytes(4) + carried[6])),
        (0x86DD, ipv6(*ends[6], 17, udp, extensions=[ALERT_V6])),
        (0x86DD, ipv6(*ends[6], 134, message)),
        (0x86DD, ipv6(*ends[6], 17, udp[64:], extensions=[
            (44, bytes(1) + struct.pack("!HI", 64, 78))])),
        # Hop-by-Hop Options stand directly after the IPv6 header or not at all (RFC 8200, 4.1).
        (0x86DD, ipv6(*ends[6], PROTOCOL_RSVP, message, extensions=[DESTINATION_V6, ALERT_V6])),
    ]


def integrity_cases(rng, tunnel, key):
    """As `faults`, about INTEGRITY objects of `key` and of keys that the decoder does not have."""
    kind = rng.pick([PATH, RESV, PATHERR, RESVTEAR])
    objects = tunnel.objects(kind, tunnel.hops[0])
    hello = obj(22, 1, rng.octets(8))
    bad_object = obj(5, 1, bytes(4), length=6)
    spoil = bytearray(16)
    spoil[rng.below(16)] = 1 << rng.below(8)
    sequence = 1 + rng.below(2**40)
    impostor = Key(key.identifier, b"not " + key.text)
    stranger = Key(0xB2, b"nobody knows")
    longer = Key(key.identifier | 1 << 40, b"nobody knows")  # equal in the low octets only
    signed, fine = key.sign(kind, objects, sequence=sequence), (kind, None)
    fine_hello, bundled = (HELLO, None), (BUNDLE, None)
    tampered = signed[:-1] + bytes([signed[-1] ^ 0x20])
    spoiled = key.sign(kind, objects, sequence=sequence + 1, spoil=spoil)
    return [(payload, meaning, {}) for payload, *meaning in (
        (signed, fine),
        (key.sign(HELLO, hello, sequence=sequence + 2), fine_hello),
        (key.sign(kind, objects, sequence=sequence, checksum_is="right"), fine),
        (key.sign(kind, objects, sequence=1), fine),  # replayed or late: not judged
        (signed + rng.octets(8), fine),
        (rsvp(kind, objects), fine),
        (stranger.sign(kind, objects), fine),
        (longer.sign(HELLO, hello, spoil=spoil), fine_hello),
        (tampered, (kind, INTEGRITY)),
        (spoiled, (kind, INTEGRITY)),
        (key.sign(HELLO, hello, spoil=spoil, checksum_is="right"), (HELLO, INTEGRITY)),
        (impostor.sign(kind, objects), (kind, INTEGRITY)),
        (rsvp(kind, key.integrity(), objects), (kind, INTEGRITY)),
        (key.sign(HELLO, hello, checksum_is="wrong"), (HELLO, CHECKSUM)),
        (key.sign(HELLO, hello, checksum_is="wrong", spoil=spoil), (HELLO, CHECKSUM)),
        (key.sign(HELLO, hello, bad_object), (HELLO, OBJECTS)),
        (key.sign(HELLO, hello, bad_object, spoil=spoil), (HELLO, INTEGRITY)),
        (key.sign(BUNDLE, signed, rsvp(HELLO, hello)), bundled, fine, fine_hello),
        (key.sign(BUNDLE, rsvp(HELLO, hello), spoiled), bundled, fine_hello, (kind, INTEGRITY)),
        (key.sign(BUNDLE, rsvp(HELLO, hello), signed, spoil=spoil), (BUNDLE, INTEGRITY)),
        (stranger.sign(BUNDLE, rsvp(HELLO, hello), tampered, rsvp(HELLO, hello), spoil=spoil),
         bundled, fine_hello, (kind, INTEGRITY), fine_hello),
        (rsvp(BUNDLE, impostor.sign(HELLO, hello), signed), bundled, (HELLO, INTEGRITY), fine),
    )]


def sound_cases(rng, tunnel, other):
    """As `faults`: messages that look odd, or come from other corners of the protocol, and count.
    `other` is a tunnel of the other address family."""
    hop = tunnel.hops[0]
    path = tunnel.objects(PATH, hop)
    session, size = tunnel.session(), len(tunnel.session())
    flow, style = tunnel.traffic(9), obj(8, 1, struct.pack("!I", 0x0A))  # fixed filter
    hop_object = address_object(3, hop, bytes(4))
    times = obj(5, 1, struct.pack("!I", 30000))
    # Sessions of RFC 2205 (protocol 17, port 5004) and of RFC 4875 with a sub-LSP.
    plain = address_object(1, tunnel.end, struct.pack("!BBH", 17, 0, 5004))
    sender = address_object(11, tunnel.sender, struct.pack("!HH", 0, 5006))
    wildcard = obj(8, 1, struct.pack("!I", 0x11))
    point = rng.octets(4)
    multi = obj(1, 13 if tunnel.family == 4 else 14,
                point + struct.pack("!HH", 0, tunnel.number) + packed(tunnel.sender))
    group = packed(tunnel.sender) + struct.pack("!HH", 0, 1)
    multi_sender = obj(11, 12 if tunnel.family == 4 else 13,
                       packed(tunnel.sender) + struct.pack("!HH", 0, 7) + group)
    leaf = obj(50, 1 if tunnel.family == 4 else 2, packed(tunnel.end))
    reserved = bytearray(rsvp(PATH, path, checksum_is="none"))
    reserved[0] |= 0x0E  # flags that nobody has defined
    reserved[5] = 0xA5
    return [(payload, [(payload[1], None)], {}) for payload in (
        rsvp(PATH, path, obj(100, 1, bytes(8)), obj(150, 1), obj(230, 1, bytes(4))),
        rsvp(PATH, path[size:]),  # no SESSION
        rsvp(PATH, session, path),
        rsvp(PATH, obj(1, 99, rng.octets(12)), path[size:]),
        rsvp(HELLO),
        rsvp(PATH, session, hop_object, obj(20, 1, bytes([1, 0]) + bytes(6))),
        rsvp(PATH, session, hop_object, obj(20, 1, bytes([1, 40]) + bytes(6))),
        bytes(reserved),
        rsvp(RESV, session, hop_object, times, style, flow, tunnel.sender_id(10),
             obj(16, 1, struct.pack("!I", 17)), flow, tunnel.sender_id(10),
             obj(16, 1, struct.pack("!I", 18))),
        rsvp(PATH, plain, hop_object, times, sender, tunnel.traffic(12)),
        rsvp(RESV, plain, hop_object, times, wildcard, flow),
        rsvp(PATHTEAR, plain, hop_object, sender),
        rsvp(PATH, multi, hop_object, times, leaf, multi_sender, tunnel.traffic(12), leaf),
        rsvp(PATHTEAR, multi, hop_object, multi_sender, leaf),
        rsvp(PATH, other.objects(PATH, other.hops[0])),
        rsvp(PATHTEAR, other.objects(PATHTEAR, other.hops[0])),
    )]
