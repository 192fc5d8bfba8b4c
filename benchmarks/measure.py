"""Shared by the measurements: figures and their limits, medians, and exit code 1 if a limit is exceeded."""

import json
import os
import statistics
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
# The file in which `run` expects the figures for the page.
ROWS = "QZ_BENCH_ROWS"


class Figures:
    """Collects the figures and prints each at once. A limit says "at most" or "at least"."""

    def __init__(self):
        self.rows = []

    def note(self, what, value, unit="", digits=2):
        """A figure without a limit."""
        self._add(what, shown(value, unit, digits), "", None)

    def at_most(self, what, value, limit, unit="", digits=2):
        self._add(what, shown(value, unit, digits), f"at most {limit:g}{unit}", value <= limit)

    def at_least(self, what, value, limit, unit="", digits=2):
        self._add(what, shown(value, unit, digits), f"at least {limit:g}{unit}", value >= limit)

    def less_than(self, what, value, limit, unit="", digits=2):
        self._add(what, shown(value, unit, digits), f"less than {limit:g}{unit}", value < limit)

    def agrees(self, what, seen, expected, tolerance=0.0):
        """A figure of the program compared with another source's; None where either does not know it."""
        unknown = seen is None or expected is None
        passed = seen == expected if unknown or not tolerance else abs(seen - expected) <= tolerance
        self._add(what, str(seen), f"{expected} expected" + (f", give or take {tolerance:g}" if tolerance else ""), passed)

    def _add(self, what, value, limit, passed):
        verdict = {True: "ok", False: "FAILED", None: ""}[passed]
        self.rows.append({"what": what, "measured": value, "limit": limit, "verdict": verdict})
        print(f"{verdict:6}  {what}: {value}" + (f" ({limit})" if limit else ""), flush=True)

    def finish(self):
        """Passes the figures to `run`, and exits: 1 if a limit is exceeded, else 0."""
        if ROWS in os.environ:
            Path(os.environ[ROWS]).write_text(json.dumps(self.rows), encoding="utf-8")
        sys.exit(1 if any(row["verdict"] == "FAILED" for row in self.rows) else 0)


def shown(value, unit="", digits=2):
    return f"{value:.{digits}f}{unit}" if isinstance(value, float) else f"{value}{unit}"


def ratio(of, to):
    """The median of the ratios of figures that were measured side by side, turn by turn: what disturbs one turn
    falls on both of its figures, or on one ratio alone."""
    return statistics.median(one / other for one, other in zip(of, to))


def in_turns(turns, *measures):
    """Calls each of the measures once a turn, every other turn in the opposite order; a list of answers for each."""
    answers = [[] for _ in measures]
    for turn in range(turns):
        order = list(enumerate(measures))
        for place, measure in order if turn % 2 == 0 else reversed(order):
            answers[place].append(measure())
    return answers


def numbers(command):
    """The numbers that a measuring program printed, one per line. Ends the measurement if it fails."""
    run = subprocess.run(command, capture_output=True, text=True, timeout=300, check=False)
    if run.returncode != 0 or not run.stdout:
        sys.exit(f"{command[0]} failed ({run.returncode}): {run.stdout}{run.stderr}")
    return [float(line) for line in run.stdout.split()]


def build_folder():
    """Where the programs were built: the first argument, else build/release."""
    folder = Path(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build/release").resolve()
    for program in ("qzGpuInfo", "benchmarks/floor"):
        if not (folder / program).is_file():
            sys.exit(f"{folder / program} is missing; `./dev bench` builds it")
    return folder
