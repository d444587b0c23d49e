#!/usr/bin/env python3
"""A second implementation of the key hashes, written from their descriptions alone.

Buckets follow from these hashes and files outlive builds, so a hash that changes by accident makes
every table unreadable. `hash_reference.py write` makes hashGolden.inc, which HashTest.cpp compares
with the library; `hash_reference.py check` fails when the file is not what this program writes.
"""

import ipaddress
import pathlib
import struct
import sys

M32 = (1 << 32) - 1
M64 = (1 << 64) - 1
GOLDEN = pathlib.Path(__file__).with_name("hashGolden.inc")


def rotl(value, count, width):
    mask = (1 << width) - 1
    return (value << count | value >> (width - count)) & mask


def fmix32(value):
    value ^= value >> 16
    value = value * 0x85EBCA6B & M32
    value ^= value >> 13
    value = value * 0xC2B2AE35 & M32
    return value ^ value >> 16


def mox_hash(seed, *blocks):
    """Blocks are bytes objects of length 1 or 4."""
    state = length = 0
    for block in blocks:
        state = rotl((state ^ int.from_bytes(block, "little")) * 0xCC9E2D51 & M32, 15, 32)
        length += len(block)
    return fmix32(state ^ seed ^ length)


def word(value):
    return struct.pack("<I", value)


def fold(left, right):
    product = left * right
    return product & M64 ^ product >> 64


def halves(value):
    return (value ^ value >> 32) & M32


def hash_mix(*words):
    state = 0
    for value in words:
        state = (rotl(state, 32, 64) ^ value) * 0x9E3779B97F4A7C15 & M64
    return state >> 32


def intf_hash(raw):
    raw ^= raw >> 32
    raw = raw * 0xFF51AFD7ED558CCD & M64
    raw ^= raw >> 29
    raw = raw * 0xC4CEB9FE1A85EC53 & M64
    return raw >> 32


A, B, C, D, E = (0x2D358DCCAA6C78A5, 0x8BB84B93962EACC9, 0x4B33A62ED433D4A3, 0x4D5A2DA51DE1AA47,
                 0xA0761D6478BD642F)


def address(text):
    if text == "none":
        return bytes(17)
    parsed = ipaddress.ip_address(text)
    return parsed.packed.ljust(16, b"\0") + bytes([1 if parsed.version == 4 else 2])


def session_hash(seed, session):
    kind, destination, tunnel, extended = session
    image = bytes([kind]) + address(destination) + struct.pack("<H", tunnel) + address(extended)
    assert len(image) == 37
    w0, w1, w2, w3 = struct.unpack("<4Q", image[:32])
    (w4,) = struct.unpack("<Q", image[29:])
    return halves(fold(fold(w0 ^ A ^ seed, w1 ^ B) ^ fold(w2 ^ C, w3 ^ D), w4 ^ E))


def sub_group_hash(seed, group):
    originator, number = group
    image = address(originator)
    w0, w1 = struct.unpack("<2Q", image[:16])
    return halves(fold(fold(w0 ^ A ^ seed, w1 ^ B), image[16] + 65536 * number ^ E))


def sp_hash(session, lsp, group):
    return hash_mix(session_hash(0, session), mox_hash(0, word(lsp)),
                    0 if group is None else sub_group_hash(0, group))


SEEDS = [0, 1, 0x6B8B4567, 0xFFFFFFFF]
INTERFACES = [0, 1, 2, 0xFFFFFFFF, 0x100000000, 0x0123456789ABCDEF, M64]
SESSIONS = [
    (0, "none", 0, "none"),
    (7, "10.0.0.1", 5, "10.0.0.2"),
    (7, "10.0.0.2", 5, "10.0.0.1"),
    (8, "2001:db8::1", 65535, "2001:db8::ffff:2"),
    (13, "0.0.0.77", 256, "192.0.2.1"),
    (1, "224.1.2.3", 5004, "0.0.0.17"),
]
GROUPS = [("none", 0), ("10.9.8.7", 1), ("2001:db8::9", 65535)]


def rows():
    yield "constexpr IntfGolden kIntfGolden[] = {"
    for raw in INTERFACES:
        yield f"    {{{raw:#018x}U, {intf_hash(raw):#010x}U}},"
    yield "};"
    yield "constexpr MessageKeyGolden kMessageKeyGolden[] = {"
    for seed in SEEDS:
        for raw in INTERFACES:
            for number in (0, 1, 20):
                result = mox_hash(seed, word(intf_hash(raw)), word(number))
                yield f"    {{{seed:#x}U, {raw:#018x}U, {number}U, {result:#010x}U}},"
    yield "};"
    yield "constexpr ErrorKeyGolden kErrorKeyGolden[] = {"
    for seed in SEEDS:
        for number in (0, 1, 15, 255):
            yield f"    {{{seed:#x}U, {number}U, {mox_hash(seed, bytes([number])):#010x}U}},"
    yield "};"
    yield "constexpr SessionGolden kSessionGolden[] = {"
    for seed in SEEDS:
        for session in SESSIONS:
            kind, destination, tunnel, extended = session
            yield (f'    {{{seed:#x}U, {{{kind}, "{destination}", {tunnel}, "{extended}"}}, '
                   f"{session_hash(seed, session):#010x}U}},")
    yield "};"
    yield "constexpr SubGroupGolden kSubGroupGolden[] = {"
    for seed in SEEDS:
        for group in GROUPS:
            yield (f'    {{{seed:#x}U, "{group[0]}", {group[1]}, '
                   f"{sub_group_hash(seed, group):#010x}U}},")
    yield "};"
    yield "constexpr SpGolden kSpGolden[] = {"
    for session in SESSIONS:
        kind, destination, tunnel, extended = session
        for lsp in (65536, 1):
            for group in [None] + GROUPS:
                text = "nullptr, 0" if group is None else f'"{group[0]}", {group[1]}'
                yield (f'    {{{{{kind}, "{destination}", {tunnel}, "{extended}"}}, {lsp}U, {text}, '
                       f"{sp_hash(session, lsp, group):#010x}U}},")
    yield "};"


def main():
    text = "// Made by hash_reference.py. Do not edit.\n" + "\n".join(rows()) + "\n"
    if sys.argv[1:] == ["write"]:
        GOLDEN.write_text(text)
        return 0
    if sys.argv[1:] == ["check"]:
        if GOLDEN.read_text() == text:
            return 0
        print(f"{GOLDEN} is not what hash_reference.py writes", file=sys.stderr)
        return 1
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main())
