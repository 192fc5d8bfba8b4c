"""What the program prints on each simulated machine, whole, at both verbosities: reports/MACHINE.txt and
reports/MACHINE.verbose.txt. A new machine is a description and its two texts, no new code.

QZGPUINFO_UPDATE_REPORTS=1 writes the texts anew; what changed is then a diff to be read before it is committed."""

import os
import unittest
from pathlib import Path

import simulated
from simulated import MACHINES, Expected, SimulatedCase

REPORTS = Path(__file__).parent / "reports"
VERSION_LINE = ". qzGpuInfo  "


def without_version(output):
    """The report does not change with the program's version, which the banner's own test holds."""
    lines = output.split("\n")
    assert lines[0].startswith(VERSION_LINE), lines[0]
    return "\n".join([VERSION_LINE + "VERSION", *lines[1:]])


class Reports(SimulatedCase):
    maxDiff = None

    def hold(self, machine, name, *arguments):
        run = self.simulation(machine).run("-single", *arguments)
        self.assertEqual((run.exit_code, run.errors), (0, ""))
        self.assertEqual((run.report.live, run.report.misuse), (Expected(machine).left_over, {}))
        seen, expected = without_version(run.output), REPORTS / f"{name}.txt"
        if os.environ.get("QZGPUINFO_UPDATE_REPORTS"):
            expected.parent.mkdir(exist_ok=True)
            expected.write_text(seen, "utf-8", newline="")
        self.assertEqual(seen, expected.read_text("utf-8"))

    def test_default_verbosity(self):
        for machine in MACHINES:
            with self.subTest(machine):
                self.hold(machine, machine)

    def test_raised_verbosity(self):
        for machine in MACHINES:
            with self.subTest(machine):
                self.hold(machine, f"{machine}.verbose", "-v")

    def test_every_text_has_its_machine(self):
        names = {path.name.split(".")[0] for path in REPORTS.glob("*.txt")}
        self.assertEqual(names, set(MACHINES))


if __name__ == "__main__":
    simulated.main()
