"""The headers of IPv4 and IPv6."""

import struct

from capture.messages import checksum, packed

PROTOCOL_RSVP = 46


def ipv4(source, target, protocol, payload, ttl=64, options=b"", fragment=0, total=None, ihl=None,
         ident=0):
    words = 5 + len(options) // 4 if ihl is None else ihl
    total = 20 + len(options) + len(payload) if total is None else total
    head = struct.pack("!BBHHHBBH", 0x40 | words, 0xC0, total, ident, fragment, ttl, protocol, 0)
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


def fragments(family, source, target, payload, cuts, ident, options=b"", extensions=(),
              protocol=PROTOCOL_RSVP):
    """The fragments of one datagram, in order, cut at the offsets `cuts` (multiples of 8) of its
    payload. `extensions` stand before the fragment header of IPv6, in every fragment."""
    assert 0 < cuts[0] and cuts[-1] < len(payload) and not any(cut % 8 for cut in cuts)
    packets = []
    for begin, end in zip((0, *cuts), (*cuts, len(payload))):
        more = end < len(payload)
        if family == 4:
            packets.append(ipv4(source, target, protocol, payload[begin:end], options=options,
                                fragment=more << 13 | begin // 8, ident=ident))
        else:
            header = (44, bytes(1) + struct.pack("!HI", begin | more, ident))
            packets.append(ipv6(source, target, protocol, payload[begin:end],
                                extensions=(*extensions, header)))
    return packets
