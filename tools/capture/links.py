"""What stands before an IP packet: link headers, and the tags, labels and tunnels between.

A packet travels as (EtherType, octets); an "EtherType" below 1536 is a length of IEEE 802.3. A shim
turns one such pair into another; a link header turns the last one into (octets, trailer).
"""

import struct

ETHER_IPV4, ETHER_IPV6, ETHER_MPLS, ETHER_VLAN, ETHER_QINQ, ETHER_PPPOE = (
    0x0800, 0x86DD, 0x8847, 0x8100, 0x88A8, 0x8864)
# By EtherType. Numbers of PPP stand for themselves where no EtherType means the same.
PPP_PROTOCOLS = {ETHER_IPV4: 0x0021, ETHER_IPV6: 0x0057, ETHER_MPLS: 0x0281}
NULL, ETHERNET, PPP, RAW, COOKED, PPP_HDLC, CISCO_HDLC, COOKED_2, USER = (
    0, 1, 9, 101, 113, 50, 104, 276, 147)  # numbers of link types in files
PACKET_OUTGOING = 4


def vlan(identifier, protocol=ETHER_VLAN, priority=6):
    def wrap(ether_type, packet):
        return protocol, struct.pack("!HH", priority << 13 | identifier, ether_type) + packet
    return wrap


def mpls(*labels):
    """Outermost first; the last gets the bottom-of-stack bit (RFC 3032)."""
    def wrap(_, packet):
        stack = b"".join(struct.pack("!I", label << 12 | 6 << 9 | (at == len(labels)) << 8 | 63)
                         for at, label in enumerate(labels, 1))
        return ETHER_MPLS, stack + packet
    return wrap


def snap(organisation=bytes(3)):
    """IEEE 802.2 LLC with a SNAP header (RFC 1042)."""
    def wrap(ether_type, packet):
        packet = b"\xaa\xaa\x03" + organisation + struct.pack("!H", ether_type) + packet
        return len(packet), packet
    return wrap


def pppoe(session):
    """RFC 2516."""
    def wrap(ether_type, packet):
        packet = struct.pack("!H", PPP_PROTOCOLS.get(ether_type, ether_type)) + packet
        return ETHER_PPPOE, struct.pack("!BBHH", 0x11, 0, session, len(packet)) + packet
    return wrap


# Link headers: (sent, EtherType, octets, padding) -> (octets, trailer). `padding` is what fills an
# Ethernet frame up to 60 octets, where it is not zeros.


def ethernet(node, peer, check_sequence=b""):
    mac = {True: node, False: peer}

    def wrap(sent, ether_type, packet, padding=b""):
        data = mac[not sent] + mac[sent] + struct.pack("!H", ether_type) + packet
        return data, (padding + bytes(60))[: max(0, 60 - len(data))] + check_sequence
    return wrap


def cooked(hardware, node=b"", peer=b""):
    """Linux cooked capture; the address is empty on a link that has none."""
    mac = {True: node, False: peer}

    def wrap(sent, ether_type, packet, padding=b""):
        protocol = 4 if ether_type < 1536 else ether_type  # 4 = LLC follows
        return struct.pack("!HHH8sH", PACKET_OUTGOING * sent, hardware, len(mac[sent]), mac[sent],
                           protocol) + packet, b""
    return wrap


def cooked_2(hardware, index, node=b"", peer=b""):
    mac = {True: node, False: peer}

    def wrap(sent, ether_type, packet, padding=b""):
        protocol = 4 if ether_type < 1536 else ether_type
        return struct.pack("!HHIHBB8s", protocol, 0, index, hardware, PACKET_OUTGOING * sent,
                           len(mac[sent]), mac[sent]) + packet, b""
    return wrap


def raw(sent, ether_type, packet, padding=b""):
    return packet, b""


def loopback(order, ipv6_families):
    """BSD loopback; `order` is the byte order of the machine that captured ("<" or ">"). Systems
    differ in their number for IPv6, so each frame takes the next of `ipv6_families`."""
    turn = 0

    def wrap(sent, ether_type, packet, padding=b""):
        nonlocal turn
        family = 2
        if ether_type == ETHER_IPV6:
            family = ipv6_families[turn % len(ipv6_families)]
            turn += 1
        elif ether_type != ETHER_IPV4:
            family = 7  # ISO protocols
        return struct.pack(order + "I", family) + packet, b""
    return wrap


def ppp(*forms):
    """PPP, each frame in the next of `forms`: "full"; "bare", without address and control octets;
    "short", without them and with the protocol in one octet (RFC 1661, sections 6.5 and 6.6)."""
    turn = 0

    def wrap(sent, ether_type, packet, padding=b""):
        nonlocal turn
        form = forms[turn % len(forms)]
        turn += 1
        number = PPP_PROTOCOLS.get(ether_type, ether_type)
        compressed = form == "short" and number < 0x100
        head = b"\xff\x03" * (form == "full")
        return head + number.to_bytes(1 if compressed else 2, "big") + packet, b""
    return wrap


def cisco_hdlc(sent, ether_type, packet, padding=b""):
    address = 0x8F if ether_type == 0x8035 else 0x0F  # keepalives are multicast
    return struct.pack("!BBH", address, 0, ether_type) + packet, b""
