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
HEADER_FIELDS = {
    0: "magic", 4: "format version", 6: "header size", 8: "byte order", 12: "slot size",
    16: "ravo id", 20: "value size", 24: "table size", 28: "flags", 32: "page size",
    40: "creation time", 48: "type name", 176: "padding", 550: "runtime flags", 552: "padding",
    556: "occupied slots", 560: "free head", 564: "high-water slot count", 568: "hash seed",
    572: "padding", 576: "slot count version", 580: "slot count", 584: "high-water occupancy",
    588: "padding", 592: "scratchpad"}
TEMPLATE = "TestSupport::StandIn<TestSupport::StandInKey<Rsvp::Rsvp{}Id>, {}ul>"


class ErrorCounter:
    type_name, size, notifying = "Rsvp::Vesk::ErrorCounter", 8, False
    default = bytes(8)

    @staticmethod
    def key(number):
        return number % 256

    @staticmethod
    def hash(key, seed):
        return mox_hash(seed, bytes([key]))

    @staticmethod
    def value(key, count):
        return struct.pack("<B3xI", key, count)


class MessageCounter:
    type_name, size, notifying = "Rsvp::Vesk::MessageCounter", 24, True
    default = struct.pack("<QI4xI4x", 0xFFFFFFFF, 0, 0)

    @staticmethod
    def key(number):
        return 1 + number // 11, number % 11

    @staticmethod
    def hash(key, seed):
        return mox_hash(seed, word(intf_hash(key[0])), word(key[1]))

    @staticmethod
    def value(key, count):
        return struct.pack("<QI4xI4x", *key, count)


class SessionStandIn:
    type_name, size, notifying = TEMPLATE.format("Session", 7), 72, False
    default = bytes(72)


class SpStandIn:
    type_name, size, notifying = TEMPLATE.format("Sp", 24), 168, False
    default = bytes(40) + word(65536) + bytes(124)


def reverse(value):
    return int(f"{value:032b}"[::-1], 2)


def single(value):
    return struct.unpack("<f", struct.pack("<f", value))[0]


class Table:
    """The words of both files, and the stores of each operation."""

    def __init__(self, kind, table_size, fixed, seed, ravo_id, page):
        self.kind, self.table_size, self.seed, self.ravo_id = kind, table_size, seed, ravo_id
        self.page, self.fixed = page, fixed
        self.slot_size = 16 + kind.size
        self.header_size = 600 + self.slot_size
        fit = (page - self.header_size) // self.slot_size
        minimum = table_size if fixed else 1 << fit.bit_length() - 1
        self.slots, self.free = [], END
        self.occupied = self.most_occupied = 0
        self.version, self.bucket_version = 1, 1
        self.look_rhash, self.look_value = 0, kind.default
        self.buckets = [[4, BUCKET | 1], [4, END]]
        self.format(minimum)

    def format(self, end):
        start = len(self.slots)
        for i in range(start, end):
            self.slots.append({"link": [4, i + 1 if i + 1 < end else END], "sequence": 0,
                               "rhash": 0, "value": self.kind.default, "key": None})
        self.free = start

    @staticmethod
    def relink(link, following):
        link[:] = [link[0] + 4, following]

    def hash_of(self, index):
        return self.kind.hash(self.slots[index]["key"], self.seed)

    def find(self, key):
        """The link before the key's place and the slot that holds it, or None."""
        rhash = reverse(self.kind.hash(key, self.seed))
        link = self.buckets[self.kind.hash(key, self.seed) % len(self.buckets)]
        while link[1] < BUCKET:
            slot = self.slots[link[1]]
            if slot["key"] == key:
                return link, link[1]
            if (slot["rhash"], slot["key"]) > (rhash, key):
                break
            link = slot["link"]
        return link, None

    def write(self, number, count, direct=False):
        key = self.kind.key(number)
        value = self.kind.value(key, count)
        link, index = self.find(key)
        if index is not None:
            slot = self.slots[index]
            self.look_rhash, self.look_value = slot["rhash"], value
            slot["sequence"] += 4
            slot["value"] = value
            return
        if self.free == END:
            assert not self.fixed
            self.format(math.ceil(single(single(len(self.slots)) * single(1.1))))
            self.version += 1
        index = self.free
        slot = self.slots[index]
        self.free = slot["link"][1]
        self.occupied += 1
        self.most_occupied = max(self.most_occupied, self.occupied)
        slot["rhash"] = reverse(self.kind.hash(key, self.seed))
        slot["key"], slot["value"] = key, value
        slot["sequence"] = slot["sequence"] + 4 | 1
        self.relink(slot["link"], link[1])
        self.relink(link, index)
        if self.occupied > len(self.buckets):
            self.double()

    direct = write

    def remove(self, number):
        link, index = self.find(self.kind.key(number))
        if index is None:
            return
        slot = self.slots[index]
        self.relink(link, slot["link"][1])
        slot["sequence"] &= ~1
        self.relink(slot["link"], self.free)
        self.free = index
        self.occupied -= 1
        if self.occupied < len(self.buckets) // 4:
            self.halve()

    def tail(self, bucket, count):
        """The last link of a chain before a slot that `count` buckets keep elsewhere."""
        link = self.buckets[bucket]
        while link[1] < BUCKET and self.hash_of(link[1]) % count == bucket:
            link = self.slots[link[1]]["link"]
        return link

    def double(self):
        old = len(self.buckets)
        for bucket in range(old):
            self.buckets.append([4, self.tail(bucket, 2 * old)[1]])
        self.bucket_version += 1
        for bucket in range(old):
            self.relink(self.tail(bucket, 2 * old), BUCKET | bucket + old)

    def halve(self):
        half = len(self.buckets) // 2
        for bucket in range(half):
            self.relink(self.tail(bucket, 2 * half), self.buckets[bucket + half][1])
        self.bucket_version += 1
        del self.buckets[half:]

    def slot_file(self, created):
        header = bytearray(600)
        struct.pack_into("<4sHHIIIIIII", header, 0, b"VSLT", 1, 600, 0x01020304, self.slot_size,
                         self.ravo_id, self.kind.size, self.table_size,
                         2 if self.kind.notifying else 0, self.page)
        struct.pack_into("<Q128s", header, 40, created, self.kind.type_name.encode())
        struct.pack_into("<IIII4xII", header, 556, self.occupied, self.free, len(self.slots),
                         self.seed, self.version, len(self.slots))
        struct.pack_into("<I", header, 584, self.most_occupied)
        lookaside = struct.pack("<IIII", 0, END, 0, self.look_rhash) + self.look_value
        return bytes(header) + lookaside + b"".join(
            struct.pack("<IIII", *slot["link"], slot["sequence"], slot["rhash"]) + slot["value"]
            for slot in self.slots)

    def bucket_file(self):
        return struct.pack("<4sIIIII", b"VBKT", self.ravo_id, 1, 0, self.bucket_version,
                           len(self.buckets)) + b"".join(
                               struct.pack("<II", *link) for link in self.buckets)

    def name_of(self, file, offset):
        if file == "buckets":
            return f"bucket {(offset - 24) // 8}" if offset >= 24 else "bucket header"
        if offset < 600:
            return HEADER_FIELDS[max(at for at in HEADER_FIELDS if at <= offset)]
        index, at = divmod(offset - 600, self.slot_size)
        part = "link state, link next, sequence, rhash".split(", ")[at // 4] if at < 16 else "value"
        return f"{part} of " + (f"slot {index - 1}" if index else "the lookaside slot")


def histories():
    for kind in (ErrorCounter, MessageCounter, SessionStandIn, SpStandIn):
        yield "fresh", kind, 1000, False, []
        yield "fresh, fixed", kind, 17, True, []
    for kind in (ErrorCounter, MessageCounter):
        some = [("write", n, 100 + n) for n in range(10)]
        yield "insertions", kind, 1000, False, some
        yield "overwrite", kind, 1000, False, some + [("write", 4, 7)]
        yield "removal", kind, 1000, False, some + [("write", 4, 7), ("remove", 4)]
        changes = some + [("remove", 3), ("remove", 8), ("write", 20, 1), ("direct", 5, 6),
                          ("direct", 21, 2), ("remove", 99), ("write", 22, 3), ("write", 22, 4)]
        yield "mixed", kind, 30, True, changes
        full = 10 + 4096 // (16 + kind.size)
        many = [("write", n, n * n) for n in range(full)]
        yield "growth", kind, 1000, False, many
        yield "halving", kind, 1000, False, many + [("remove", n) for n in range(full - 3)] + [
            ("attach",), ("write", 1, 1), ("direct", full - 1, 9)]


def compare(program, root, kind, table_size, fixed, operations):
    lines = [f"open {kind.__name__} {table_size} {'fixed' if fixed else 'growing'}"]
    lines += [" ".join(map(str, operation)) for operation in operations]
    before = time.time_ns()
    with subprocess.Popen([program, root], stdin=subprocess.PIPE, text=True) as process:
        process.communicate("\n".join(lines) + "\n")
    if process.returncode != 0:
        return f"{program} ended with {process.returncode}"
    found = {name: (pathlib.Path(root) / "table" / name).read_bytes()
             for name in ("slots", "buckets")}
    (created,) = struct.unpack_from("<Q", found["slots"], 40)
    (seed,) = struct.unpack_from("<I", found["slots"], 568)
    if not before - 10**6 <= created <= time.time_ns() + 10**6:
        return f"creation time {created}"
    # The creator's process and its first generation.
    table = Table(kind, table_size, fixed, seed, process.pid % 65536 or 65536,
                  resource.getpagesize())
    for name, *arguments in operations:
        if name != "attach":
            getattr(table, name)(*arguments)
    for file, wanted in (("slots", table.slot_file(created)), ("buckets", table.bucket_file())):
        for offset, (left, right) in enumerate(itertools.zip_longest(found[file], wanted)):
            if left != right:
                return (f"file {file}, offset {offset} ({table.name_of(file, offset)}): "
                        f"found {left}, wanted {right}")
    return None


def main():
    failures = 0
    number = size = 0
    for number, (name, kind, table_size, fixed, operations) in enumerate(histories(), 1):
        with tempfile.TemporaryDirectory() as root:
            problem = compare(sys.argv[1], root, kind, table_size, fixed, operations)
            size += sum((pathlib.Path(root) / "table" / file).stat().st_size
                        for file in ("slots", "buckets"))
        if problem is not None:
            failures += 1
            print(f"{kind.__name__}, {name}: {problem}")
    print(f"{number} histories, {size} bytes compared, {failures} differ")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
