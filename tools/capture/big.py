"""A pcap of any number of messages, for long runs: one round of frames, again and again."""

import struct

from capture.messages import (
    ACK, HELLO, PATH, PATHERR, RESV, SREFRESH, Tunnel, obj, rsvp)
from capture.network import PROTOCOL_RSVP, ipv4, ipv6
from capture.tally import CHECKSUM, FORMAT, OBJECTS, Random, Tally

START = 1_751_871_600_000_000  # microseconds
SPACING = 50  # microseconds between frames
TUNNELS = 250
NODE, PEER = bytes.fromhex("02005e100001"), bytes.fromhex("02005e200001")


def round_of_messages(rng, name_sessions=True):
    """(sent, family, message, meaning) of one round.

    Messages without their SESSION are as sound as others, and tell of no state.
    """
    def objects(tunnel, *what):
        whole = tunnel.objects(*what)
        return whole if name_sessions else whole[int.from_bytes(whole[:2], "big"):]

    messages = []
    for number in range(1, TUNNELS + 1):
        family = 6 if number % 3 == 0 else 4
        tunnel = Tunnel(rng, number, family, None, None)
        sent = number % 2 == 0
        hop = tunnel.hops[0]
        path, resv = objects(tunnel, PATH, hop), objects(tunnel, RESV, hop)
        messages.append((sent, family, rsvp(PATH, path), (PATH, None)))
        messages.append((not sent, family, rsvp(RESV, resv), (RESV, None)))
        hello = obj(22, 1, rng.octets(8))
        messages.append((sent, family, rsvp(HELLO, hello), (HELLO, None)))
        acks = obj(24, 1, struct.pack("!II", 0x2A, number))
        messages.append((not sent, family, rsvp(ACK, acks), (ACK, None)))
        listing = obj(25, 1, struct.pack("!6I", 0x2A, *range(number, number + 5)))
        messages.append((sent, family, rsvp(SREFRESH, listing), (SREFRESH, None)))
        if number % 25 == 0:
            error = objects(tunnel, PATHERR, hop, (25, 3))
            messages.append((not sent, family, rsvp(PATHERR, error), (PATHERR, None)))
            messages.append((sent, family, rsvp(PATH, path, checksum_is="wrong"),
                             (PATH, CHECKSUM)))
            messages.append((sent, family, rsvp(PATH, path, version=2), (PATH, FORMAT)))
            messages.append((not sent, family, rsvp(RESV, resv, obj(5, 1, length=2)),
                             (RESV, OBJECTS)))
    return messages


def record(sent, family, message):
    source, target = {4: ("192.0.2.1", "192.0.2.2"), 6: ("2001:db8::1", "2001:db8::2")}[family][
        :: 1 if sent else -1]
    packet = (ipv4 if family == 4 else ipv6)(source, target, PROTOCOL_RSVP, message)
    ether_type = struct.pack("!H", 0x0800 if family == 4 else 0x86DD)
    frame = (PEER + NODE if sent else NODE + PEER) + ether_type + packet
    frame += bytes(max(0, 60 - len(frame)))
    return struct.pack("<IIII", 0, 0, len(frame), len(frame)) + frame


def write(file, seed, count):
    """Writes `count` messages to `file` and returns their Tally. Memory does not grow with it."""
    messages = round_of_messages(Random(seed))
    records = [record(*message[:3]) for message in messages]
    places, end = [], 0
    for data in records:
        places.append(end)
        end += len(data)
    block = bytearray(b"".join(records))
    stamp = struct.Struct("<II").pack_into
    file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, 1))
    time = START
    left = count
    while left:
        here = places[:left]
        for place in here:
            stamp(block, place, *divmod(time, 1_000_000))
            time += SPACING
        file.write(block if left >= len(places) else memoryview(block)[: places[left]])
        left -= len(here)

    tally = Tally()
    rounds, rest = divmod(count, len(messages))
    for at, (sent, family, _, meaning) in enumerate(messages):
        times = rounds + (at < rest)
        if times:
            tally.frames["rsvp"] += times
            tally.add(sent, family, [meaning], times)
    return tally
