"""Tests on simulated machines: where the simulator is, and what to do on a host that cannot simulate."""

import configparser
import tempfile
import unittest
from pathlib import Path

from qz import BUILD, PROGRAM, SOURCE, main  # noqa: F401  (for the tests)

from qzsim import SandboxError, Simulation

# The command as a user calls it; arguments follow.
LAUNCHER = [str(SOURCE / "simulator" / "simulate"), "--build", str(BUILD), "--program", str(PROGRAM)]


def description(machine):
    """The text that describes a machine of the simulator's list."""
    return (SOURCE / f"simulator/machines/{machine}.machine").read_text("utf-8")


MACHINES = sorted(path.stem for path in (SOURCE / "simulator/machines").glob("*.machine"))


class Expected:
    """What a machine of the list says the program does there, in its section [expected]; `text`: the description of
    another."""

    def __init__(self, machine=None, text=None):
        sections = configparser.ConfigParser(strict=False, interpolation=None, delimiters="=")
        sections.read_string(description(machine) if text is None else text)
        section = sections["expected"]
        self.queries = {query.strip() for query in section.get("queries", "").split(",")} - {""}
        self.scored, self.unscored, self.hidden = (section.getint(key, 0) for key in ("scored", "unscored", "hidden"))
        self.left_over = {section["left_over"]: 1} if "left_over" in section else {}
        self.problems = {check.strip() for check in section.get("problems", "").split(",")} - {""}
        self.exit_code = section.get("exit_code", "0")


class SimulatedCase(unittest.TestCase):
    """A test case that lays out machines; they are removed when the test is over."""

    def simulation(self, machine, faults=(), **settings):
        """The machine of that name or path, with qzGpuInfo as its program; skips the test where the host lacks what
        it needs."""
        settings.setdefault("program", PROGRAM)
        try:
            simulation = Simulation(str(machine), BUILD, faults=faults, **settings)
        except SandboxError as error:
            self.skipTest(str(error))
        self.addCleanup(simulation.close)
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
        return run.output.splitlines()
