"""RSVP objects and messages, and the tunnels that they are about."""

import hmac
import ipaddress
import struct

PATH, RESV, PATHERR, RESVERR, PATHTEAR, RESVTEAR, RESVCONF = range(1, 8)
BUNDLE, ACK, SREFRESH, HELLO = 12, 13, 15, 20
# Messages that travel towards a tunnel's end point and are caught by Router Alert on the way.
END_TO_END = {PATH, PATHTEAR, RESVCONF}

REFRESH = 30.0  # seconds
MTU = 1500


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


class Key:
    """A key of RFC 2747 and the objects and messages made with it."""

    def __init__(self, identifier, text):
        self.identifier, self.text = identifier, text

    def integrity(self, digest=bytes(16), sequence=1):
        identifier = self.identifier.to_bytes(6, "big")
        return obj(4, 1, bytes(2) + identifier + struct.pack("!Q", sequence) + digest)

    def sign(self, type_number, *objects, sequence=1, checksum_is="none", spoil=bytes(16)):
        """A message with its digest, taken while digest and checksum are zero. `spoil` is XORed to
        the digest, so anything but zeros makes it wrong."""
        blank = rsvp(type_number, self.integrity(sequence=sequence), *objects, checksum_is="none")
        right = hmac.new(self.text, blank, "md5").digest()
        digest = bytes(ours ^ theirs for ours, theirs in zip(right, spoil))
        return rsvp(type_number, self.integrity(digest, sequence), *objects,
                    checksum_is=checksum_is)


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
