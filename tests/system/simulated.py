"""Tests on simulated machines: where the simulator is, and what to do on a host that cannot simulate."""

import os
import sys
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(os.environ["QZGPUINFO_SOURCE"])
BUILD = Path(os.environ["QZGPUINFO_BUILD"])
PROGRAM = Path(os.environ["QZGPUINFO"])

sys.path.insert(0, str(SOURCE / "simulator"))

from qzsim import Simulation, SimulationError  # noqa: E402  (found through the path above)


class SimulatedCase(unittest.TestCase):
    """A test case that lays out machines; they are removed when the test is over."""

    def simulation(self, machine, faults=(), **settings):
        """The machine of that name or path, with qzGpuInfo as its program; skips the test where the host lacks what
        it needs."""
        settings.setdefault("program", PROGRAM)
        try:
            simulation = Simulation(str(machine), BUILD, faults=faults, **settings)
        except SimulationError as error:
            self.skipTest(str(error))
        self.addCleanup(simulation.__exit__)
        return simulation

    def described(self, text, faults=(), **settings):
        """The machine of a description that the test writes itself."""
        folder = tempfile.TemporaryDirectory(prefix="qzsim-test-")
        self.addCleanup(folder.cleanup)
        path = Path(folder.name) / "described.machine"
        path.write_text(text, encoding="utf-8")
        return self.simulation(path, faults, **settings)

    def lines(self, run):
        """What the program wrote, line by line, as text."""
        return run.output.decode("utf-8", "replace").splitlines()


def main():
    """Runs the file's tests. Ends with 77, and says why, when every one of them was skipped."""
    program = unittest.main(exit=False, verbosity=2)
    result = program.result
    if not result.wasSuccessful():
        sys.exit(1)
    if result.testsRun > 0 and len(result.skipped) == result.testsRun:
        print("SKIPPED: " + "; ".join(sorted({reason for _, reason in result.skipped})))
        sys.exit(77)
