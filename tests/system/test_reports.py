"""What the program prints on each simulated machine, whole, at both verbosities: reports/MACHINE.txt. A new machine is
a description and its report, no new code.

Each line of a report begins with two characters: blanks if it is always printed, "v " if -v is needed for it. Lines
between "@ 0-15" and "@" are repeated for each number i of the ranges, as f-strings.

QZGPUINFO_UPDATE_REPORTS=1 rewrites what is not as expected; what changed is then a diff to be read before it is
committed."""

import itertools
import os
import unittest
from pathlib import Path

import simulated
from simulated import MACHINES, Expected, SimulatedCase

REPORTS = Path(__file__).parent / "reports"
VERSION_LINE = ". qzGpuInfo  "


def without_version(output):
    """The lines; the program's version, which the banner's own test checks, is left out."""
    assert output.startswith(VERSION_LINE) and output.endswith("\n"), output
    lines = output[:-1].split("\n")
    return [VERSION_LINE + "VERSION", *lines[1:]]


def numbers(ranges):
    """Those of "0-3 9-7": 0, 1, 2, 3, 9, 8, 7."""
    for text in ranges.split():
        first, last = map(int, text.split("-"))
        yield from range(first, last + 1) if first <= last else range(first, last - 1, -1)


def unfolded(text):
    """The lines of a report's file, repeated lines written out."""
    lines = iter(text[:-1].split("\n"))
    for line in lines:
        if line.startswith("@ "):
            repeated = list(itertools.takewhile(lambda each: each != "@", lines))
            for i in numbers(line[2:]):
                yield from (eval("f" + repr(each), {"i": i}) for each in repeated)
        else:
            yield line


def marked(default, verbose):
    """The lines of a report's file; the default lines have to be among the verbose ones, in their order."""
    left, found = list(default), []
    for line in verbose:
        is_default = left[:1] == [line]
        found.append(("  " if is_default else "v ") + line)
        del left[:is_default]
    assert not left, left
    return found


class Reports(SimulatedCase):
    maxDiff = None

    def printed(self, machine, *arguments):
        run = self.simulation(machine).run("-single", *arguments)
        self.assertEqual((run.exit_code, run.errors), (0, ""))
        self.assertEqual((run.report.live, run.report.misuse), (Expected(machine).left_over, {}))
        return without_version(run.output)

    def test_each_machine(self):
        for machine in MACHINES:
            with self.subTest(machine):
                seen = marked(self.printed(machine), self.printed(machine, "-v"))
                path = REPORTS / f"{machine}.txt"
                if os.environ.get("QZGPUINFO_UPDATE_REPORTS") and list(unfolded(path.read_text("utf-8"))) != seen:
                    path.write_text("\n".join(seen) + "\n", "utf-8")
                self.assertEqual("\n".join(seen), "\n".join(unfolded(path.read_text("utf-8"))))

    def test_every_report_has_its_machine(self):
        self.assertEqual({path.stem for path in REPORTS.glob("*.txt")}, set(MACHINES))


if __name__ == "__main__":
    simulated.main()
