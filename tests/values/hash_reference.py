# A second implementation of the hashes of interfaces and of attribute lists, written from their
# descriptions alone. The golden vectors of all key hashes come from such an implementation.

import struct

M32 = (1 << 32) - 1
M64 = (1 << 64) - 1


def word(value):
    return struct.pack("<I", value)


# Blocks are bytes objects of length 1 or 4.
def mox_hash(seed, *blocks):
    state = length = 0
    for block in blocks:
        state = (state ^ int.from_bytes(block, "little")) * 0xCC9E2D51 & M32
        state = (state << 15 | state >> 17) & M32
        length += len(block)
    state ^= seed ^ length
    state = (state ^ state >> 16) * 0x85EBCA6B & M32
    state = (state ^ state >> 13) * 0xC2B2AE35 & M32
    return state ^ state >> 16


def intf_hash(raw):
    raw = (raw ^ raw >> 32) * 0xFF51AFD7ED558CCD & M64
    return ((raw ^ raw >> 29) * 0xC4CEB9FE1A85EC53 & M64) >> 32
