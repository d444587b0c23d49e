#!/usr/bin/env python3
"""A second implementation of the table files, written from their layout alone.

`layout_reference.py LAYOUTFILES` lets that program make the files of scripted tables, computes the
same bytes itself, and names the first one that differs. Only the hash seed and the time of creation
are taken from the file.
"""

import itertools
import math
import pathlib
import resource
import struct
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "values"))
from hash_reference import intf_hash, mox_hash, word  # noqa: E402

END = 0xFFFFFFFF
BUCKET = 0x80000000
TEMPLATE = "TestSupport::StandIn<TestSupport::StandInKey<Rsvp::Rsvp{}Id>, {}ul>"


class ErrorCounter:
    type_name, size, notifying, default = "Rsvp::Vesk::ErrorCounter", 8, False, bytes(8)
    key = staticmethod(lambda number: number % 256)
    hash = staticmethod(lambda key, seed: mox_hash(seed, bytes([key])))
    value = staticmethod(lambda key, count: struct.pack("<B3xI", key, count))


class MessageCounter:
    type_name, size, notifying = "Rsvp::Vesk::MessageCounter", 24, True
    default = struct.pack("<QI4xI4x", 0xFFFFFFFF, 0, 0)
    key = staticmethod(lambda number: (1 + number // 11, number % 11))
    hash = staticmethod(lambda key, seed: mox_hash(seed, word(intf_hash(key[0])), word(key[1])))
    value = staticmethod(lambda key, count: struct.pack("<QI4xI4x", *key, count))


class SessionStandIn:
    type_name, size, notifying, default = TEMPLATE.format("Session", 7), 72, False, bytes(72)


class SpStandIn:
    type_name, size, notifying = TEMPLATE.format("Sp", 24), 168, False
    default = bytes(40) + word(65536) + bytes(124)


def reverse(value):
    return int(f"{value:032b}"[::-1], 2)


def single(value):
    return struct.unpack("<f", struct.pack("<f", value))[0]


def relink(link, following):
    link[:] = [link[0] + 4, following]


class Table:
    """The words of both files, and what each operation makes of them."""

    def __init__(self, kind, table_size, fixed, seed, ravo_id):
        self.kind, self.table_size, self.seed, self.ravo_id = kind, table_size, seed, ravo_id
        self.slot_size = 16 + kind.size
        fit = (resource.getpagesize() - 600 - self.slot_size) // self.slot_size
        self.slots = []
        self.occupied = self.most_occupied = 0
        self.version = self.bucket_version = 1
        self.lookaside = struct.pack("<IIII", 0, END, 0, 0) + kind.default
        self.buckets = [[4, BUCKET | 1], [4, END]]
        self.format(table_size if fixed else 1 << fit.bit_length() - 1)

    def format(self, end):
        self.free = len(self.slots)
        self.slots += [{"link": [4, i + 1 if i + 1 < end else END], "sequence": 0, "rhash": 0,
                        "value": self.kind.default} for i in range(self.free, end)]

    def find(self, key):
        """The link before the key's place, and its slot or None."""
        hashed = self.kind.hash(key, self.seed)
        link = self.buckets[hashed % len(self.buckets)]
        while link[1] < BUCKET and self.slots[link[1]]["rhash"] <= reverse(hashed):
            slot = self.slots[link[1]]
            if slot["key"] == key:
                return link, slot
            link = slot["link"]
        return link, None

    def write(self, number, count):
        key = self.kind.key(number)
        link, slot = self.find(key)
        value = self.kind.value(key, count)
        if slot is not None:
            self.lookaside = struct.pack("<IIII", 0, END, 0, slot["rhash"]) + value
            slot["sequence"] += 4
            slot["value"] = value
            return
        if self.free == END:
            self.format(math.ceil(single(single(len(self.slots)) * single(1.1))))
            self.version += 1
        index, slot = self.free, self.slots[self.free]
        self.free = slot["link"][1]
        self.occupied += 1
        self.most_occupied = max(self.most_occupied, self.occupied)
        slot |= {"key": key, "value": value, "sequence": slot["sequence"] + 4 | 1,
                 "rhash": reverse(self.kind.hash(key, self.seed))}
        relink(slot["link"], link[1])
        relink(link, index)
        if self.occupied > len(self.buckets):
            self.double()

    direct = write

    def remove(self, number, _):
        link, slot = self.find(self.kind.key(number))
        if slot is None:
            return
        index = link[1]
        relink(link, slot["link"][1])
        slot["sequence"] &= ~1
        relink(slot["link"], self.free)
        self.free = index
        self.occupied -= 1
        if self.occupied < len(self.buckets) // 4:
            self.halve()

    def attach(self, *_):
        pass

    def tail(self, bucket, count):
        """The last link of a chain before a slot that `count` buckets keep elsewhere."""
        link = self.buckets[bucket]
        while link[1] < BUCKET and reverse(self.slots[link[1]]["rhash"]) % count == bucket:
            link = self.slots[link[1]]["link"]
        return link

    def double(self):
        old = len(self.buckets)
        self.buckets += [[4, self.tail(bucket, 2 * old)[1]] for bucket in range(old)]
        self.bucket_version += 1
        for bucket in range(old):
            relink(self.tail(bucket, 2 * old), BUCKET | bucket + old)

    def halve(self):
        half = len(self.buckets) // 2
        for bucket in range(half):
            relink(self.tail(bucket, 2 * half), self.buckets[bucket + half][1])
        self.bucket_version += 1
        del self.buckets[half:]

    def slot_file(self, created):
        header = bytearray(600)
        struct.pack_into("<4sHHIIIIIII4xQ128s", header, 0, b"VSLT", 1, 600, 0x01020304,
                         self.slot_size, self.ravo_id, self.kind.size, self.table_size,
                         2 if self.kind.notifying else 0, resource.getpagesize(), created,
                         self.kind.type_name.encode())
        struct.pack_into("<IIII4xIII", header, 556, self.occupied, self.free, len(self.slots),
                         self.seed, self.version, len(self.slots), self.most_occupied)
        return bytes(header) + self.lookaside + b"".join(
            struct.pack("<IIII", *slot["link"], slot["sequence"], slot["rhash"]) + slot["value"]
            for slot in self.slots)

    def bucket_file(self):
        return struct.pack("<4sIIIII", b"VBKT", self.ravo_id, 1, 0, self.bucket_version,
                           len(self.buckets)) + b"".join(
                               struct.pack("<II", *link) for link in self.buckets)


def histories():
    for kind in (ErrorCounter, MessageCounter, SessionStandIn, SpStandIn):
        yield "fresh", kind, 1000, False, []
        yield "fresh, fixed", kind, 17, True, []
    for kind in (ErrorCounter, MessageCounter):
        yield "mixed", kind, 30, True, [("write", n, 100 + n) for n in range(10)] + [
            ("write", 4, 7), ("remove", 3, 0), ("remove", 8, 0), ("write", 20, 1),
            ("direct", 5, 6), ("direct", 21, 2), ("remove", 99, 0), ("write", 22, 3)]
        full = 10 + 4096 // (16 + kind.size)
        grown = [("write", n, n * n) for n in range(full)]
        yield "growth", kind, 1000, False, grown
        yield "halving", kind, 1000, False, grown + [("remove", n, 0) for n in range(full - 3)] + [
            ("attach", 0, 0), ("write", 1, 1), ("direct", full - 1, 9)]


def compare(program, root, kind, table_size, fixed, operations):
    command = [program, root, kind.__name__, str(table_size), "fixed" if fixed else "growing"]
    before = time.time_ns()
    with subprocess.Popen(command, stdin=subprocess.PIPE, text=True) as process:
        process.communicate("".join(f"{name} {n} {count}\n" for name, n, count in operations))
    found = {name: (pathlib.Path(root) / "table" / name).read_bytes()
             for name in ("slots", "buckets")}
    (created,) = struct.unpack_from("<Q", found["slots"], 40)
    (seed,) = struct.unpack_from("<I", found["slots"], 568)
    if process.returncode != 0 or not before - 10**6 <= created <= time.time_ns() + 10**6:
        return f"return code {process.returncode}, creation time {created}"
    # The creator's process and its first generation.
    table = Table(kind, table_size, fixed, seed, process.pid % 65536 or 65536)
    for name, number, count in operations:
        getattr(table, name)(number, count)
    for file, wanted in (("slots", table.slot_file(created)), ("buckets", table.bucket_file())):
        for offset, (left, right) in enumerate(itertools.zip_longest(found[file], wanted)):
            if left != right:
                return f"file {file}, offset {offset}: found {left}, wanted {right}"
    return None


def main():
    failures = number = 0
    for number, (name, kind, *table) in enumerate(histories(), 1):
        with tempfile.TemporaryDirectory() as root:
            problem = compare(sys.argv[1], root, kind, *table)
        if problem is not None:
            failures += 1
            print(f"{kind.__name__}, {name}: {problem}")
    print(f"{number} histories, {failures} differ")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
