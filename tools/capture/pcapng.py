"""Blocks of a pcapng file (draft-ietf-opsawg-pcapng)."""

import struct

IF_NAME, IF_DESCRIPTION, IF_RESOLUTION, IF_OFFSET, IF_CHECK_SEQUENCE = 2, 3, 9, 14, 13
COMMENT, PACKET_FLAGS = 1, 2
INBOUND, OUTBOUND, UNICAST = 1, 2, 1 << 2  # of PACKET_FLAGS


def padded(data):
    return data + bytes(-len(data) % 4)


class Section:
    """One section in one byte order ("<" or ">"). Interfaces are numbered from 0 in each."""

    def __init__(self, order, application):
        self.order = order
        self.blocks = []
        self.head = struct.pack(order + "IHHq", 0x1A2B3C4D, 1, 0, -1) + self.options(
            [(4, application.encode())])  # shb_userappl

    def bytes(self):
        return self.sealed(0x0A0D0D0A, self.head) + b"".join(self.blocks)

    def sealed(self, kind, body):
        size = struct.pack(self.order + "I", 12 + len(body))
        return struct.pack(self.order + "I", kind) + size + body + size

    def options(self, options):
        """`options` are (code, octets); nothing is written for none."""
        text = b"".join(struct.pack(self.order + "HH", code, len(value)) + padded(value)
                        for code, value in options)
        return text + bytes(4) if text else b""

    def block(self, kind, body):
        self.blocks.append(self.sealed(kind, body))

    def interface(self, link_type, snap_length, options):
        self.block(1, struct.pack(self.order + "HHI", link_type, 0, snap_length)
                   + self.options(options))

    def packet(self, interface, stamp, kept, size, flags=None, comment=None):
        """`stamp` in the interface's units since its offset; `flags` None: no such option."""
        options = [(COMMENT, comment.encode())] if comment else []
        if flags is not None:
            options.append((PACKET_FLAGS, struct.pack(self.order + "I", flags)))
        self.block(6, struct.pack(self.order + "IIIII", interface, stamp >> 32, stamp & 0xFFFFFFFF,
                                  len(kept), size) + padded(kept) + self.options(options))

    def simple_packet(self, kept, size):
        """Of interface 0, without a time; its snap length tells how much was kept."""
        self.block(3, struct.pack(self.order + "I", size) + padded(kept))

    def names(self, address, name):
        """A name resolution block, of no meaning for packets."""
        record = address + name.encode() + b"\0"
        self.block(4, struct.pack(self.order + "HH", 1, len(record)) + padded(record) + bytes(4))

    def statistics(self, interface, stamp, received):
        self.block(5, struct.pack(self.order + "III", interface, stamp >> 32, stamp & 0xFFFFFFFF)
                   + self.options([(4, struct.pack(self.order + "Q", received))]))  # isb_ifrecv

    def custom(self, data):
        """A block of a private enterprise, which others skip."""
        self.block(0x00000BAD, struct.pack(self.order + "I", 32473) + padded(data))
