#!/usr/bin/env python3
"""What README.md and docs/ show and quote is what the programs print and the headers say.

documents_test.py PROJECT TOOL EXAMPLE HOST_WRITER HOST_READER
"""

import pathlib
import re
import subprocess
import sys
import tempfile
import time
import unittest

PROJECT = pathlib.Path(sys.argv[1])
TOOL, EXAMPLE, WRITER, READER = sys.argv[2:]


def read(path):
    return (PROJECT / path).read_text()


def block(document, name):
    pattern = rf"<!-- checked: {name} -->\n```\w*\n(.*?)^```$"
    return re.search(pattern, read(document), re.DOTALL | re.MULTILINE)[1]


def run(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def plain(text):
    """Words with single blanks between, without the marks of Markdown and of comments."""
    return " ".join(re.sub("[`*]|\n//", "", text).split())


def anchors(document):
    """The names under which links reach the headings of a document."""
    headings = re.findall("^#+ +(.*)", read(document), re.MULTILINE)
    return {re.sub("[^a-z0-9 -]", "", heading.lower()).replace(" ", "-") for heading in headings}


class Documents(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = folder.name

    def agent(self, *options):
        return run(TOOL, "--root", self.root, "agent", "--pcap", PROJECT / "samples/two-links.pcap",
                   "--local", "02:00:5e:10:00", *options)

    def expect(self, document, name, real):
        """Expects the block to be `real`, but for whole lines left out where it says "..."."""
        shown = block(document, name)
        parts = re.split(r"^\.\.\.\n", shown, flags=re.MULTILINE)
        if not re.fullmatch(r"(?:.*\n)+".join(map(re.escape, parts)), real):
            self.assertEqual(shown, real)

    def test_outputs_of_the_agent(self):
        self.expect("README.md", "agent",
                    self.agent().replace(self.root, "/dev/shm/rsvp-vesk.4SI0NT"))
        self.expect("README.md", "show", run(TOOL, "--root", self.root, "show", "errors"))
        self.expect("README.md", "get", "$ rsvp-vesk get MessageCounterColl collectionSize\n"
                    + run(TOOL, "--root", self.root, "get", "MessageCounterColl", "collectionSize"))
        files = sorted(path for path in pathlib.Path(self.root).rglob("*") if path.is_file())
        tree = "".join(f"{path.relative_to(self.root)}\n" for path in files)
        self.expect("docs/layout.md", "tree", tree)
        self.expect("docs/layout.md", "interfaces", read(self.root + "/interfaces"))

    def test_output_in_json(self):
        self.expect("README.md", "json", self.agent("--json"))

    def test_example(self):
        self.assertEqual(block("README.md", "example"), read("tests/docs/example.cpp"))
        output = run(EXAMPLE, self.root).replace(self.root, "/dev/shm/rsvp-vesk")
        self.assertEqual(block("README.md", "example output"), output)

    def host(self, program):
        host = subprocess.Popen([program, self.root], stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE, text=True, bufsize=1)
        self.addCleanup(host.__exit__, None, None, None)
        self.addCleanup(host.kill)
        return host

    @staticmethod
    def ask(host):
        host.stdin.write("one more\n")
        return host.stdout.readline().strip()

    def until(self, what):
        end = time.monotonic() + 10
        while not what() and time.monotonic() < end:
            time.sleep(0.01)
        self.assertTrue(what())

    def ends(self, host):
        host.stdin.close()
        self.assertEqual(host.wait(timeout=10), 0)

    def test_hosts_look_after_their_tables(self):
        for name in ("writer", "reader"):
            self.assertEqual(block("docs/hosting.md", name), read(f"examples/host/{name}.cpp"))
        reader = self.host(READER)
        self.assertEqual(self.ask(reader), "no table yet")
        writer = self.host(WRITER)
        marker = pathlib.Path(self.root, "demo/errors/rxErrorCount/corruption-detected")
        for count in ("1", "2"):
            self.assertEqual(self.ask(writer), count)
            self.until(lambda: self.ask(reader) == count)
            marker.touch()
            self.until(lambda: not marker.exists())
        self.ends(writer)
        self.assertEqual(self.ask(reader), "2")
        mapped = [line for line in open(f"/proc/{reader.pid}/maps") if self.root in line]
        self.assertEqual([line.split()[1] for line in mapped], 4 * ["r--s"])
        # Who counts next counts on, and the reader sees it without a word.
        self.assertEqual(self.ask(self.host(WRITER)), "3")
        self.assertEqual(self.ask(reader), "3")
        self.ends(reader)

    def test_invariants_and_rules_are_quoted(self):
        """They stand in the headers that keep them."""
        names = []
        for header in ("platform/Vesk/SlotWords.h", "src/Vesk/SlotWriter.h",
                       "src/VeskCore/WriterHashMap.h", "src/Vesk/WriterShrink.h",
                       "src/Vesk/SlotReader.h",
                       "src/VeskCore/ReaderHashMap.h", "src/Vesk/VeskReader.h"):
            for rule in re.findall("\n// ([IR][0-9].*(?:\n//     .*)*)", read(header)):
                self.assertIn(plain(rule), plain(read("docs/protocol.md")))
                names.append(rule.split()[0])
        self.assertEqual(names, [f"I{number}" for number in range(1, 13)] +
                         [f"R{number}" for number in range(1, 13)])

    def test_links_lead_somewhere(self):
        documents = ["README.md", *sorted(path.relative_to(PROJECT) for path in
                                          PROJECT.glob("docs/*.md"))]
        for document in map(pathlib.Path, documents):
            links = re.findall(r"\]\((?!http)([^)#]*)#?([^)]*)\)", read(document))
            self.assertTrue(links, document)
            for file, anchor in links:
                target = document.parent / file if file else document
                self.assertTrue((PROJECT / target).exists(), f"{document}: {target}")
                if anchor:
                    self.assertIn(anchor, anchors(target), f"{document}: {target}#{anchor}")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
