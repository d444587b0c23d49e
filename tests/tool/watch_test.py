#!/usr/bin/env python3
"""What `rsvp-vesk watch` shows on a terminal, and how it leaves it.

watch_test.py TOOL SAMPLES
"""

import fcntl
import os
import pathlib
import pty
import select
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest

import pyte

TOOL, SAMPLES = sys.argv[1:]
WAIT = 15


class Terminal:
    """The tool on a terminal of that size and kind."""

    def __init__(self, root, columns, lines, kind):
        self.screen = pyte.Screen(columns, lines)
        self.stream = pyte.ByteStream(self.screen)
        self.bytes = b""
        self.master, slave = pty.openpty()
        self.size(columns, lines)
        self.before = termios.tcgetattr(slave)
        self.slave = slave
        self.process = subprocess.Popen(
            [TOOL, "--root", root, "watch", "--interval", "0.1"], stdin=slave, stdout=slave,
            stderr=subprocess.PIPE, start_new_session=True,
            env=dict(os.environ, TERM=kind, LC_ALL="C.UTF-8"))

    def size(self, columns, lines):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", lines, columns, 0, 0))

    def turn(self):
        if select.select([self.master], [], [], 0.05)[0]:
            data = os.read(self.master, 65536)
            self.bytes += data
            self.stream.feed(data)

    def until(self, what):
        end = time.monotonic() + WAIT
        while not what() and time.monotonic() < end:
            self.turn()
        return what()

    def press(self, keys):
        os.write(self.master, keys.encode())

    def row(self, *words):
        """The last two columns of the first row that holds the words."""
        for line in self.screen.display:
            if all(word in line for word in words):
                return line.split()[-2:]
        return None

    def ends(self):
        end = time.monotonic() + WAIT
        while self.process.poll() is None and time.monotonic() < end:
            self.turn()
        for _ in range(3):
            self.turn()
        left = termios.tcgetattr(self.slave)
        self.process.communicate()
        return self.process.returncode, left == self.before


class Watch(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = folder.name + "/root"

    def terminal(self, columns=80, lines=24, kind="linux"):
        terminal = Terminal(self.root, columns, lines, kind)
        self.addCleanup(terminal.process.kill)
        return terminal

    def agent(self, capture="two-links.pcap"):
        subprocess.run([TOOL, "--root", self.root, "agent", "--local", "02:00:5e:10:00", "--pcap",
                        pathlib.Path(SAMPLES, capture)], check=True, stdout=subprocess.DEVNULL)

    def test_follows_an_agent(self):
        terminal = self.terminal()
        shows = lambda text: any(text in line for line in terminal.screen.display)
        self.assertTrue(terminal.until(lambda: shows("waiting for the tables")))
        self.agent()
        path = ("rx ipv4 PATH ",)
        self.assertTrue(terminal.until(lambda: terminal.row(*path) == ["153", "-"]),
                        terminal.screen.display)
        self.assertTrue(shows("the agent has ended"))
        rates = set()
        self.agent()
        self.assertTrue(terminal.until(
            lambda: rates.add(tuple(terminal.row(*path))) or ("306", "-") in rates), rates)
        self.assertTrue(all(float(rate) >= 0 for _, rate in rates if rate != "-"), rates)
        # Sorted by totals, then the other way round; errors; a filter.
        total = lambda line: int(line.split()[-2])
        rows = lambda: [line for line in terminal.screen.display if " ipv" in line]
        terminal.press("s")
        totals = lambda: [total(line) for line in rows()]
        self.assertTrue(terminal.until(
            lambda: shows("by total") and sorted(totals(), reverse=True) == totals()), totals())
        terminal.press("r")
        self.assertTrue(terminal.until(
            lambda: shows("reversed") and sorted(totals()) == totals()), totals())
        terminal.press("e")
        self.assertTrue(terminal.until(lambda: terminal.row("invalidPktFormatErrorType", "rx") ==
                                       ["190", "-"]), terminal.screen.display)
        terminal.press("e/HELLO\n")
        self.assertTrue(terminal.until(lambda: rows() and all("HELLO" in row for row in rows())))
        self.assertTrue(terminal.until(lambda: shows('filter "HELLO"')))
        terminal.press("q")
        self.assertEqual(terminal.ends(), (0, True))

    def test_fits_any_terminal(self):
        self.agent("many-links.pcapng")
        for columns, lines in ((80, 24), (40, 10), (5, 2), (1, 1), (200, 60)):
            # One with a second screen for programs like this, which goes in the end.
            terminal = self.terminal(columns, lines, "xterm")
            self.assertTrue(terminal.until(lambda: terminal.bytes))
            terminal.size(60, 12)
            if columns > 5:  # it need not be told
                terminal.process.send_signal(signal.SIGWINCH)
            terminal.screen.resize(12, 60)
            self.assertTrue(terminal.until(lambda: terminal.row(" ipv")), terminal.screen.display)
            # Nothing is wrapped: every line is one of the view's.
            display = lambda: terminal.screen.display
            whole = lambda: (display()[0].startswith(self.root[:59]) and
                             all(" ipv" in line or not line.strip() for line in display()[3:-1]) and
                             display()[-1].startswith("q quit"))
            self.assertTrue(terminal.until(whole), display())
            terminal.press("\x1b[B" * 300 + "\x1b[6~" * 9)
            os.kill(terminal.process.pid, signal.SIGINT if columns == 80 else signal.SIGTERM)
            self.assertEqual(terminal.ends(), (0, True))
            self.assertIn(b"\x1b[?1049l", terminal.bytes)

    def test_needs_a_terminal(self):
        run = subprocess.run([TOOL, "--root", self.root, "watch"], stdin=subprocess.DEVNULL,
                             capture_output=True, text=True)
        self.assertEqual((run.returncode, run.stdout), (2, ""))
        self.assertIn("needs a terminal", run.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
