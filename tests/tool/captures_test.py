#!/usr/bin/env python3
"""The agent counts captures as independent sources say.

captures_test.py TOOL own SAMPLES        the project's samples, after what their generator meant
captures_test.py TOOL reference FOLDER   captures with the findings of another decoder, if present

Exit code 77 when the folder is not there.
"""

import collections
import csv
import json
import pathlib
import subprocess
import sys
import tempfile
import time
import unittest

TOOL, KIND, FOLDER = sys.argv[1:]
FOLDER = pathlib.Path(FOLDER)
COUNTED = {1, 2, 3, 4, 5, 6, 7, 12, 13, 15, 20}
FAMILIES = {"4": "ipv4", "6": "ipv6"}
SKIPPED = 77
LOCAL = ("--local", "02:00:5e:10:00")


def agent(capture, *options):
    """The report on a capture, counted into empty tables."""
    with tempfile.TemporaryDirectory() as root:
        run = subprocess.run(
            [TOOL, "--root", root, "agent", "--pcap", capture, "--json", *options],
            check=True, stdout=subprocess.PIPE, text=True)
    return json.loads(run.stdout)


def messages(report, with_interfaces=True):
    """Good messages by interface, direction, family and type; and how many were erroneous."""
    counts = collections.Counter()
    for row in report["messages"]:
        interface = row["interface"] if with_interfaces else ""
        if row["type"] == "ERROR":
            counts["errors"] += row["count"]
        else:
            counts[interface, row["direction"], row["family"], row["typeNumber"]] += row["count"]
    return counts


def errors(report):
    counts = collections.Counter()
    for row in report["errors"]:
        counts[row["error"]] += row["count"]
    return dict(counts)


class Captures(unittest.TestCase):
    frames = 0

    def report(self, capture, *options):
        report = agent(capture, *options)
        self.assertEqual(report["frames"], report["rsvp"] + report["ignored"] + report["cut"])
        self.assertEqual(messages(report)["errors"], sum(errors(report).values()))
        Captures.frames += report["frames"]
        return report


class Reference(Captures):
    def test_every_capture(self):
        captures = sorted(FOLDER.glob("*/*.*cap*"))
        self.assertGreaterEqual(len(captures), 21)
        for capture in captures:
            with self.subTest(capture.name):
                self.compare(capture)

    def compare(self, capture):
        report = self.report(capture, *LOCAL)
        if capture.stem == "synth-bad":
            # The other decoder accepts part of the damage; these are the rules' figures.
            self.assertEqual(errors(report), {
                "invalidPktFormatErrorType": 208, "pktParserBadMsgChecksumErrorType": 52,
                "pktParserGenericFailureErrorType": 104})
            self.assertEqual(sum(messages(report).values()), 636 + 208 + 52 + 104)
            return
        wanted = collections.Counter()
        faults = 0
        with open(FOLDER / "expected" / (capture.stem + ".counts.csv"), newline="") as sheet:
            rows = list(csv.DictReader(sheet))
        for row in rows:
            good = int(row["clean"]) + int(row["no_checksum"])
            if int(row["msg_type"] or 0) in COUNTED:
                wanted[row["interface"], row["dir"] or "rx", FAMILIES[row["family"]],
                       int(row["msg_type"])] += good
                faults += int(row["total"]) - good
            else:
                faults += int(row["total"])
        named = any(row["interface"] not in ("", "unknown") for row in rows)
        if not named:
            wanted = collections.Counter({("", *key[1:]): count for key, count in wanted.items()})
        found = messages(report, named)
        wrong = found.pop("errors", 0)
        self.assertEqual(+found, +wanted)
        # A damaged frame may also lack what its headers promise, and is no RSVP then.
        self.assertTrue(wrong == faults or "oobr" in capture.stem, (wrong, faults))

    def test_digests(self):
        capture = FOLDER / "synth/synth-auth.pcap"
        damage = collections.Counter()
        with open(FOLDER / "expected/synth-auth.packets.csv", newline="") as sheet:
            for row in csv.DictReader(sheet):
                damage[row["defect"] == "bad_digest"] += 1
        self.assertGreater(damage[True], 0)
        report = self.report(capture, *LOCAL, "--key", "a1=capture-key-1")
        self.assertEqual(errors(report), {"pktParserIntegrityFailureErrorType": damage[True]})
        self.assertEqual(sum(messages(report).values()), damage[False] + damage[True])
        other = self.report(capture, *LOCAL, "--key", "a2=capture-key-1")
        self.assertEqual(errors(other), {})
        wrong = self.report(capture, *LOCAL, "--key", "0000000000A1=capture-key-2")
        self.assertGreater(errors(wrong)["pktParserIntegrityFailureErrorType"], damage[True])


class Own(Captures):
    def test_samples(self):
        samples = sorted(FOLDER.glob("*.expected.json"))
        self.assertEqual(len(samples), 2)
        for sample in samples:
            with self.subTest(sample.name):
                wanted = json.loads(sample.read_text())
                options = wanted.pop("options", LOCAL)
                (capture,) = FOLDER.glob(sample.name.split(".")[0] + ".pcap*")
                self.assertEqual(self.report(capture, *options), wanted)


if __name__ == "__main__":
    if not FOLDER.is_dir():
        print(f"SKIPPED: no captures in {FOLDER}")
        sys.exit(SKIPPED)
    begin = time.monotonic()
    case = Own if KIND == "own" else Reference
    suite = unittest.defaultTestLoader.loadTestsFromTestCase(case)
    result = unittest.TextTestRunner().run(suite)
    print(f"{Captures.frames} frames counted and compared in {time.monotonic() - begin:.1f} s")
    sys.exit(not result.wasSuccessful())
