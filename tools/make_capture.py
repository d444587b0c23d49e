#!/usr/bin/env python3
"""Makes the sample captures, and the counts that a correct decoder finds in them.

    make_capture.py [--sample two-links] [--output FILE] [--seed N] [--snap-length N]
    make_capture.py --sample many-links [--output FILE] [--seed N]
    make_capture.py --big NUMBER --output FILE

`two-links` is a pcap of Ethernet: one port of a router. `many-links` is a pcapng of two sections
whose interfaces have many link types. `--big` writes a pcap of NUMBER messages for long runs, in
little memory.

Each capture gets a NAME.expected.json beside it: the counts of frames, messages and errors. They
are what the generator meant to send: every frame is written together with its meaning, and no frame
is ever read back. So they check a decoder without sharing a line with one.
"""

import argparse
import json
import pathlib
import sys

from capture import big, many_links, two_links
from capture.tally import report

SAMPLES = pathlib.Path(__file__).resolve().parent.parent / "samples"
SUFFIXES = {"two-links": ".pcap", "many-links": ".pcapng"}


def parse_arguments():
    parser = argparse.ArgumentParser(
        description="Make a sample capture and, beside it, NAME.expected.json: the counts of "
        "frames, messages and errors that were meant. 'two-links' is a pcap of Ethernet; "
        "'many-links' is a pcapng of many link types.",
        epilog="The same arguments give the same bytes on every machine. The node's MAC addresses "
        "begin with 02:00:5e:10:00; give that prefix to the tool as --local. INTEGRITY objects "
        f"(HMAC-MD5) use key {two_links.KEY.identifier:x}, '{two_links.KEY.text.decode()}', in "
        f"two-links and key {many_links.KEY.identifier:x}, '{many_links.KEY.text.decode()}', in "
        "many-links, whose counts are those with the tool's options that its JSON names.")
    parser.add_argument("--sample", choices=SUFFIXES, default="two-links",
                        help="which sample to make (default: %(default)s)")
    parser.add_argument("--big", type=int, metavar="NUMBER",
                        help="instead of a sample, a pcap of NUMBER messages, one in each frame")
    parser.add_argument("--output", type=pathlib.Path, metavar="FILE",
                        help="capture to write (default: the sample's place in samples/)")
    parser.add_argument("--seed", type=int, default=20707, metavar="N",
                        help="start of the random numbers (default: %(default)s)")
    parser.add_argument("--snap-length", type=int, metavar="N",
                        help="octets kept of each frame of two-links (default: 640)")
    options = parser.parse_args()
    if options.big is not None:
        if options.big < 0:
            parser.error(f"--big {options.big}: wanted 0 or more")
        if options.output is None:
            parser.error("--big needs --output FILE")
    if options.snap_length is None:
        options.snap_length = 640
    elif options.big is not None or options.sample != "two-links":
        parser.error("--snap-length is for the sample two-links")
    elif not 128 <= options.snap_length <= 262144:
        parser.error(f"--snap-length {options.snap_length}: wanted 128 to 262144")
    if options.output is None:
        options.output = SAMPLES / (options.sample + SUFFIXES[options.sample])
    return options


def write(options):
    """Writes the capture; returns its counts."""
    output = options.output
    if options.big is not None:
        with output.open("wb") as file:
            tally = big.write(file, options.seed, options.big)
        return report({output.stem: tally}) | {"options": many_links.OPTIONS[:2]}
    if options.sample == "two-links":
        capture = two_links.build(options.seed, options.snap_length)
        output.write_bytes(capture.bytes())
        return report({output.stem: capture.tally})
    capture = many_links.build(options.seed, output.stem)
    output.write_bytes(capture.bytes())
    return report(capture.tallies()) | {"options": many_links.OPTIONS}


def main():
    options = parse_arguments()
    expected = options.output.with_suffix(".expected.json")
    try:
        counts = write(options)
        expected.write_text(json.dumps(counts, indent=1) + "\n")
    except OSError as error:
        sys.exit(f"make_capture.py: {error}")
    messages = sum(row["count"] for row in counts["messages"])
    print(f"{options.output}: {counts['frames']} frames, {messages} messages, counts in "
          f"{expected.name}", file=sys.stderr)


if __name__ == "__main__":
    main()
