"""The manual's pages: well formed, and saying what the programs and the headers say."""

import os
import re
import subprocess
import textwrap
import unittest
from pathlib import Path

import manual_pages
import page_links

SOURCE = Path(os.environ["QZGPUINFO_SOURCE"])
STATUS = Path(os.environ["QZGPUINFO_BUILD"], "qzGpuStatus")
DOCTOR = Path(os.environ["QZGPUINFO_BUILD"], "qzGpuDoctor")


def help_of(program):
    return subprocess.run([program, "--help"], capture_output=True, text=True, timeout=20, check=True).stdout


def options_of(program):
    return set(re.findall(r"(?<![\w-])(?:--[a-z][a-z-]*|-[a-z](?![\w-]))", help_of(program).split("Exit code")[0]))


def status_options():
    return options_of(STATUS)


def doctor_options():
    return options_of(DOCTOR)


def info_options():
    """The program has no help text: its table of options is what it knows."""
    table = (SOURCE / "app/CommandLine.cpp").read_text(encoding="utf-8")
    return set(re.findall(r'\{"(-\w+)", &CommandLine::', table))


class Pages(unittest.TestCase):
    def test_no_warnings(self):
        for page in manual_pages.PAGES:
            with self.subTest(page):
                done = subprocess.run(["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z",
                                       manual_pages.FOLDER / page], stdin=subprocess.DEVNULL,
                                      capture_output=True, text=True, timeout=60, check=False)
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.assertGreater(len(done.stdout), 1000)

    def test_version(self):
        version = subprocess.run([STATUS, "--version"], stdout=subprocess.PIPE, text=True, timeout=20,
                                 check=True).stdout.split()[1]
        for page in manual_pages.PAGES:
            with self.subTest(page):
                self.assertIn(f".Os qzGpuInfo {version}\n", manual_pages.source(page))

    def test_sections(self):
        common = ["NAME", "DESCRIPTION", "FILES", "EXAMPLES", "SEE ALSO"]
        commands = common + ["SYNOPSIS", "OPTIONS", "ENVIRONMENT", "SIGNALS", "EXIT STATUS"]
        for page in manual_pages.PAGES:
            for name in commands if page.endswith(".1") else common:
                with self.subTest(page, section=name):
                    self.assertTrue(manual_pages.section(page, name))

    def options_of(self, page):
        """The options at the head of an item, and all that the synopsis names."""
        heads = [line for line in manual_pages.section(page, "OPTIONS") if re.match(r"-", line)]
        heads = "\n".join(re.split(r"\s{2,}", line)[0] for line in heads)
        heads = set(re.findall(r"(?<!\S)(--?\w[\w-]*)", heads))
        named = set(re.findall(r"(?<![\w-])(--?\w[\w-]*)", " ".join(manual_pages.section(page, "SYNOPSIS"))))
        return heads, named

    def test_options(self):
        self.assertEqual(len(info_options()), 10)
        for page, options in (("qzGpuInfo.1", info_options()), ("qzGpuStatus.1", status_options()),
                              ("qzGpuDoctor.1", doctor_options())):
            with self.subTest(page):
                heads, named = self.options_of(page)
                self.assertEqual(heads, options)
                self.assertEqual(named, options - {"-h"})

    def test_exit_codes_of_status(self):
        listed = re.findall(r"^  (\d)  (.*)$", help_of(STATUS).split("Exit codes:\n")[1], re.MULTILINE)
        self.assertEqual(len(listed), 8)
        page = "\n".join(manual_pages.section("qzGpuStatus.1", "EXIT STATUS"))
        page = re.findall(r"^(\d)\s+(.*)$", page, re.MULTILINE)

        def first_words(codes):
            return [(code, re.findall(r"\w+", text.split(".")[0].lower())[:4]) for code, text in codes]
        self.assertEqual(first_words(page), first_words(listed))


class Examples(unittest.TestCase):
    """What a page or README shows of docs/examples is the file; tests run the file."""

    def test_in_the_pages(self):
        for page, names in (("qzGpuInfo.1", ("has_gpu.sh", "has_gpu.py")), ("qzGpuInfo_v2.5", ("gpus.c",))):
            for name in names:
                with self.subTest(page, name=name):
                    text = (SOURCE / "docs" / "examples" / name).read_text(encoding="utf-8")
                    self.assertEqual(manual_pages.literal(manual_pages.source(page), text.splitlines()[0]), text)

    def test_in_readme(self):
        readme = (SOURCE / "README.md").read_text(encoding="utf-8")
        text = (SOURCE / "docs" / "examples" / "has_gpu.sh").read_text(encoding="utf-8")
        self.assertIn("\n\n" + textwrap.indent(text, "    ") + "\n", readme)


class Links(unittest.TestCase):
    def test_every_link_of_the_trees_pages_leads_somewhere(self):
        pages = [*SOURCE.glob("*.md"), *SOURCE.glob("docs/*.md"), *SOURCE.glob("simulator/*.md")]
        self.assertGreater(len(pages), 8)
        self.assertEqual({page.name: found for page in pages if (found := page_links.links_to_nothing(page))}, {})


class Offsets(unittest.TestCase):
    """The tables of qzGpuInfo_v2(5) are the headers' layout."""

    def table(self, heading):
        rows = [re.split(r"\s{2,}", line) for line in manual_pages.section("qzGpuInfo_v2.5", heading)]
        rows = [row for row in rows if re.fullmatch(r"\d+", row[0])]
        return [(int(row[0]), int(row[1]), row[2] if len(row) == 4 else "") for row in rows]

    def check(self, heading, header, size):
        rows = self.table(heading)
        ends = [offset + length for offset, length, _ in rows]
        self.assertEqual([offset for offset, _, _ in rows], [0, *ends[:-1]])
        self.assertEqual(ends[-1], size)
        text = (SOURCE / header).read_text(encoding="utf-8")
        asserted = re.findall(r"offsetof\(\w+, (\w+)\) == (\d+)", text)
        self.assertGreater(len(asserted), 9)
        self.assertEqual({name: offset for offset, _, name in rows if name},
                         {name: int(offset) for name, offset in asserted})

    def test_block(self):
        self.check("THE BLOCK", "gpu/GpuInfoBlock.h", 7472)

    def test_record(self):
        self.check("A RECORD", "gpu/GpuDevice.h", 152)


if __name__ == "__main__":
    unittest.main(verbosity=2)
