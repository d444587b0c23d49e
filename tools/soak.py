"""Runs the agent for as long as one likes, and what may happen to it meanwhile.

A generator sends RSVP messages of several interfaces through a pipe and counts what it sends. The
agents that read them, one after the other, are ended, killed at rest, killed at work, and run out
of room; readers join at random, half of them are killed, and one `watch` stays all the time.

Whenever the generator rests, the tables must show exactly what it sent; while it sends, no less
than at the last rest and no more than was sent. What an agent that was killed leaves is what the
next one begins with, but for a table that was left in the middle of a change: it is formatted anew,
and the agent says so. Neither the agents nor the reader that stays may grow, in memory or in
descriptors.
"""

import argparse
import collections
import json
import os
import pathlib
import pty
import random
import signal
import statistics
import subprocess
import sys
import tempfile
import threading
import time

from capture import big, pcapng
from capture.tally import Random, Tally

INTERFACES = 40
ROOM = 576 << 10  # of the file system that holds the tables
NO_TABLE = 3  # exit code
WRAP = 1 << 32  # counts are 32 bits wide
PATIENCE = 30  # seconds after which what should have happened is a fault
GROWTH = 1 << 20  # of private memory that is not a leak yet: heaps that fill up with rows, stacks


class Fault(Exception):
    pass


class Traffic:
    """The same round of messages for every interface, as blocks of a pcapng file."""

    def __init__(self):
        # Each agent that hears of a session logs it as begun: histories would hide a leak.
        messages = big.round_of_messages(Random(1), name_sessions=False)
        head = pcapng.Section("<", "soak")
        for number in range(INTERFACES):
            head.interface(1, 0, [(pcapng.IF_NAME, self.name(number).encode())])
        self.head = head.bytes()
        frames = [big.record(*message[:3])[16:] for message in messages]
        self.blocks = []
        for number in range(INTERFACES):
            section = pcapng.Section("<", "soak")
            for at, frame in enumerate(frames):
                section.packet(number, big.START + at, frame, len(frame))
            self.blocks.append(section.blocks)
        self.meanings = [(sent, family, meaning) for sent, family, _, meaning in messages]
        self.whole = [(b"".join(self.blocks[number]), self.counts(number, self.meanings))
                      for number in range(INTERFACES)]

    @staticmethod
    def name(number):
        return f"et{number}"

    def counts(self, number, meanings):
        tally = Tally()
        for sent, family, meaning in meanings:
            tally.add(sent, family, [meaning])
        counts = collections.Counter(
            {(self.name(number), *key): count for key, count in tally.messages.items()})
        counts.update(tally.errors)
        return counts

    def some(self, dice, number):
        """Messages of an interface, and what they count: a round, or a part of it."""
        if dice.random() < 0.8:
            return self.whole[number]
        first, last = sorted(dice.sample(range(len(self.meanings)), 2))
        return (b"".join(self.blocks[number][first:last]),
                self.counts(number, self.meanings[first:last]))


def table_of(key):
    """The table of a count, as (interface, direction, family, number) or (direction, error)."""
    if len(key) == 2:
        return f"errorCounters/{key[0]}ErrorCount"
    return f"messageCounters/{key[1]}{key[2].capitalize()}Count"


def counts_of(rows):
    return collections.Counter({
        (row["interface"], row["direction"], row["family"], row["typeNumber"])
        if "interface" in row else (row["direction"], row["errorNumber"]): row["count"]
        for row in rows})


def within(low, shown, high):
    return all((shown[key] - low[key]) % WRAP <= high[key] - low[key]
               for key in low.keys() | shown.keys())


def wrapped(counts):
    return {key: count % WRAP for key, count in counts.items() if count % WRAP}


class Usage:
    """Private memory and descriptors of a process, over its life. Mapped tables are not its own:
    they grow with what they hold, and are bounded by the small file system."""

    def __init__(self, process):
        self.folder = pathlib.Path("/proc", str(process.pid))
        self.memory, self.descriptors = [], []

    def look(self):
        resident, shared = map(int, (self.folder / "statm").read_text().split()[1:3])
        self.memory.append((resident - shared) * os.sysconf("SC_PAGESIZE"))
        self.descriptors.append(len(list((self.folder / "fd").iterdir())))

    def verdict(self, who):
        if len(self.memory) < 5:
            return f"{who} did not live long enough"
        fifth = len(self.memory) // 5
        early, late = (statistics.median(part)
                       for part in (self.memory[1 : fifth + 1], self.memory[-fifth:]))
        if late > early + GROWTH:
            raise Fault(f"{who} grew from {early} to {late} octets")
        fds = [statistics.median(part)
               for part in (self.descriptors[1 : fifth + 1], self.descriptors[-fifth:])]
        if fds[1] > fds[0]:
            raise Fault(f"{who} had {fds[0]} descriptors and has {fds[1]}")
        return f"{who} {early / 1e6:.1f} -> {late / 1e6:.1f} MB, {fds[0]:.0f} -> {fds[1]:.0f} fds"


class Soak:
    def __init__(self, tool, folder, seed):
        self.tool, self.folder, self.dice = tool, pathlib.Path(folder), random.Random(seed)
        self.pipe_path = self.folder / "pipe"
        self.root = self.folder / "small" / "root"
        os.mkfifo(self.pipe_path)
        self.root.parent.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={ROOM}", "tmpfs", self.root.parent],
                       check=True)
        self.traffic = Traffic()
        self.sent = collections.Counter()  # since the tables were made
        self.rested = collections.Counter()  # what the tables held at the last rest
        self.figures = collections.Counter()
        self.readers = []
        self.interfaces = 2

    def command(self, *arguments):
        return [self.tool, "--root", str(self.root), *arguments]

    # The agent and what it is sent.

    def start_agent(self):
        self.errors = tempfile.TemporaryFile("w+")
        self.agent = subprocess.Popen(
            self.command("agent", "--stay", "--local", "02:00:5e:10:00", "--pcap",
                         str(self.pipe_path)),
            stdout=subprocess.DEVNULL, stderr=self.errors)
        self.figures["agents"] += 1
        self.usage = Usage(self.agent)
        end = time.monotonic() + PATIENCE
        self.pipe = None
        while self.pipe is None and self.agent.poll() is None:
            try:
                self.pipe = os.open(self.pipe_path, os.O_WRONLY | os.O_NONBLOCK)
            except OSError:
                if time.monotonic() > end:
                    raise Fault("an agent does not read") from None
                time.sleep(0.005)
        if self.pipe is not None:
            os.set_blocking(self.pipe, True)
            self.write(self.traffic.head)

    def write(self, data):
        """False when there is no agent any more that reads."""
        try:
            while data:
                data = data[os.write(self.pipe, data):]
        except BrokenPipeError:
            return False
        return True

    def said(self):
        self.errors.seek(0)
        return self.errors.read()

    def send(self, seconds):
        """Sends at full speed; False when the agent went meanwhile."""
        end = time.monotonic() + seconds
        look = 0
        while time.monotonic() < end:
            data, counts = self.traffic.some(self.dice, self.dice.randrange(self.interfaces))
            self.figures["messages"] += sum(counts.values())
            self.sent.update(counts)  # first: a reader may see them at once
            if not self.write(data):
                return False
            if time.monotonic() > look:
                look = time.monotonic() + 0.2
                self.look_after_readers()
        return True

    def end_agent(self, number=None):
        """Its exit code. Without a signal it is to end by itself."""
        if number is not None and self.agent.poll() is None:
            self.agent.send_signal(number)
        try:
            code = self.agent.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            raise Fault("an agent does not end") from None
        if self.pipe is not None:
            os.close(self.pipe)
        return code

    # What the tables show.

    def shown(self):
        """What two readers see; None as long as there are no tables."""
        counts = collections.Counter()
        for what in ("messages", "errors"):
            done = subprocess.run(self.command("show", what, "--json"), capture_output=True,
                                  text=True, timeout=PATIENCE)
            if done.returncode == NO_TABLE:
                return None
            if done.returncode != 0:
                raise Fault(f"show {what}: exit code {done.returncode}: {done.stderr}")
            counts.update(counts_of(json.loads(done.stdout)))
        return counts

    def rest(self, starts=False):
        """The agent has counted all that was sent, and nothing else. One that starts may have made
        tables anew."""
        end = time.monotonic() + PATIENCE
        while True:
            anew = self.made_anew() if starts else set()
            expected = collections.Counter({key: count for key, count in self.sent.items()
                                            if table_of(key) not in anew})
            shown = self.shown()
            if shown is not None and wrapped(shown) == wrapped(expected):
                break
            if time.monotonic() > end or self.agent.poll() is not None:
                raise Fault(f"at rest, shown {shown}\nand sent {expected}\n{self.said()}")
        self.figures["made anew"] += len(anew)
        self.sent = expected
        self.rested = expected.copy()
        self.figures["rests"] += 1
        self.usage.look()

    def made_anew(self):
        lines = [line for line in self.said().splitlines() if "validation failed" in line]
        return {table for table in map(table_of, self.sent) if any(table in line for line in lines)}

    def take_what_is_left(self):
        """What an agent that was killed at work has left: something between."""
        shown = self.shown()
        if shown is None or not within(self.rested, shown, self.sent):
            raise Fault(f"left {shown}\nbetween {self.rested}\nand {self.sent}")
        # Wrapped counts say how many were added since the last rest.
        self.sent = collections.Counter(
            {key: self.rested[key] + (shown[key] - self.rested[key]) % WRAP for key in shown})
        self.rested = self.sent.copy()

    # Readers.

    def look_after_readers(self):
        for reader in self.readers[:]:
            process, output, low, begun = reader
            if process.poll() is None:
                if time.monotonic() > begun + PATIENCE:
                    raise Fault("a reader does not end")
                continue
            self.readers.remove(reader)
            if process.returncode != 0:
                raise Fault(f"a reader ended with {process.returncode}")
            output.seek(0)
            shown = counts_of(json.load(output))
            output.close()
            messages = collections.Counter(
                {key: count for key, count in self.sent.items() if len(key) > 2})
            if not within({key: low[key] for key in messages}, shown, messages):
                raise Fault(f"a reader saw {shown}\nbetween {low}\nand {messages}")
            self.figures["readers"] += 1
        while len(self.readers) < 3:
            output = tempfile.TemporaryFile("w+")
            process = subprocess.Popen(self.command("show", "messages", "--json"), stdout=output,
                                       stderr=subprocess.DEVNULL)
            if self.dice.random() < 0.5:
                self.readers.append((process, output, self.rested.copy(), time.monotonic()))
                continue
            time.sleep(self.dice.random() * 0.03)
            process.kill()
            process.wait()
            output.close()
            self.figures["readers killed"] += 1

    def no_readers(self):
        """What they see is only judged while the tables go on as they are."""
        for process, output, *_ in self.readers:
            process.kill()
            process.wait()
            output.close()
        self.readers.clear()

    # The lives of agents.

    def live(self, seconds):
        """An agent from its start until its end, of one kind or another."""
        self.start_agent()
        self.rest(starts=True)
        end = time.monotonic() + seconds
        fate = self.dice.choice(["ended", "killed at rest", "killed at work", "without room"])
        while time.monotonic() < end:
            if not self.send(min(1, seconds)):
                raise Fault(f"an agent ended by itself: {self.said()}")
            self.rest()
        if fate == "without room":
            self.run_out_of_room()
        elif fate == "killed at work":
            self.send(self.dice.random() * 0.3)
            self.end_agent(signal.SIGKILL)
            self.no_readers()
            self.take_what_is_left()
        else:
            self.no_readers()
            code = self.end_agent(signal.SIGTERM if fate == "ended" else signal.SIGKILL)
            if code not in (0, -signal.SIGKILL):
                raise Fault(f"an agent ended with {code}: {self.said()}")
        self.figures[fate] += 1
        self.interfaces = min(self.interfaces + self.dice.randrange(6), INTERFACES)

    def fill(self, pages):
        """Leaves that many pages of the file system."""
        size = os.sysconf("SC_PAGESIZE")
        with open(self.root.parent / "ballast", "wb") as file:
            free = os.statvfs(self.root.parent).f_bfree - pages
            if free > 0:
                os.posix_fallocate(file.fileno(), 0, free * size)

    def run_out_of_room(self):
        """Interfaces come that need room until the agent finds none, and then its successor."""
        self.fill(self.dice.randrange(4))
        known, self.interfaces = self.interfaces, INTERFACES
        alive = self.send(1)
        self.interfaces = known
        if alive:  # there was room enough in the files
            self.rest()
            self.end_agent(signal.SIGTERM)
        else:
            self.figures["ended by that"] += 1
            if self.end_agent() != 1 or "No space left on device" not in self.said():
                raise Fault(f"without room, an agent ended with {self.agent.returncode}: "
                            f"{self.said()}")
        self.no_readers()
        self.take_what_is_left()
        # Tables that are made while there is no room: no agent, and nothing half made.
        os.rename(self.root, self.root.parent / "kept")
        for pages in range(4):
            self.fill(pages)
            self.start_agent()
            if self.end_agent() != 1:
                raise Fault(f"an agent without room ended with {self.agent.returncode}")
            if "No space left on device" not in self.said() or (self.root / "mpls").exists():
                raise Fault(f"an agent without room: {self.said()}")
            self.figures["attaches without room"] += 1
            subprocess.run(["rm", "-rf", self.root], check=True)
        os.rename(self.root.parent / "kept", self.root)
        os.unlink(self.root.parent / "ballast")

    def run(self, minutes):
        begin = time.monotonic()
        end = begin + minutes * 60
        verdicts = []
        # The agent that reads for long, to see whether it grows.
        master, slave = pty.openpty()
        watch = subprocess.Popen(self.command("watch"), stdin=slave, stdout=slave,
                                 env={**os.environ, "TERM": "linux"})
        threading.Thread(target=lambda: [None for _ in iter(lambda: os.read(master, 65536), b"")],
                         daemon=True).start()
        usage = Usage(watch)
        longest = minutes * 60 / 3
        told = begin
        while time.monotonic() < end:
            if verdicts or self.figures["agents"] < 3:
                self.live(self.dice.random() * 3)
            else:
                self.live(longest)
                verdicts.append(self.usage.verdict("agent"))
            if watch.poll() is not None:
                raise Fault(f"watch ended with {watch.returncode}")
            usage.look()
            if time.monotonic() > told + 30:
                told = time.monotonic()
                print(f"{(told - begin) / 60:.1f} min: {self.summary()}", flush=True)
        os.write(master, b"q")
        if watch.wait(PATIENCE) != 0:
            raise Fault(f"watch ended with {watch.returncode}")
        verdicts.append(usage.verdict("watch"))
        print(f"soak: {minutes:g} min, {self.summary()}; {'; '.join(verdicts)}")

    def summary(self):
        return ", ".join(f"{count} {what}" for what, count in sorted(self.figures.items()))


def main():
    parser = argparse.ArgumentParser(description=__doc__, prog="soak",
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("tool", help=argparse.SUPPRESS)
    parser.add_argument("--minutes", type=float, default=1, help="how long (default: 1)")
    parser.add_argument("--seed", type=int, default=int(time.time()), help="of the random choices")
    options = parser.parse_args()
    print(f"soak: seed {options.seed}", flush=True)
    with tempfile.TemporaryDirectory(prefix="rsvp-vesk-soak.") as folder:
        soak = Soak(options.tool, folder, options.seed)
        try:
            soak.run(options.minutes)
        except Fault as fault:
            print(f"soak: FAULT: {fault}")
            return 1
        finally:
            soak.no_readers()
            if soak.figures["agents"] and soak.agent.poll() is None:
                soak.agent.kill()
            subprocess.run(["umount", "-l", soak.root.parent], check=False)
    return 0


sys.exit(main())
