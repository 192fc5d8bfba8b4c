"""The measurements' own logic: limits, medians, turns, counted calls, the page; and their measuring programs."""

import contextlib
import io
import json
import math
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from types import SimpleNamespace
from unittest import mock

import simulated

BENCHMARKS = simulated.SOURCE / "benchmarks"
PROGRAMS = simulated.BUILD / "benchmarks"
sys.path.insert(0, str(BENCHMARKS))

import companion  # noqa: E402  (found through the path above)
import measure  # noqa: E402
import page  # noqa: E402
import trace_calls  # noqa: E402
import wall_time  # noqa: E402


class Scratch(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="qzTest-")
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)


class Limits(Scratch):
    def verdict(self, limit, *arguments, **options):
        """What is printed, the row, and the exit code."""
        rows = self.root / "rows.json"
        with mock.patch.dict(os.environ, {measure.ROWS: str(rows)}), contextlib.redirect_stdout(io.StringIO()) as output:
            figures = measure.Figures()
            getattr(figures, limit)("size", *arguments, **options)
            with self.assertRaises(SystemExit) as end:
                figures.finish()
        [row] = json.loads(rows.read_text(encoding="utf-8"))
        self.assertEqual(row["what"], "size")
        return output.getvalue(), (row["measured"], row["limit"], row["verdict"]), end.exception.code

    def test_limits(self):
        for limit, value, expected, passed in (
            ("at_most", 1.2, "at most 1.2 ms", True), ("at_most", 1.2000001, "at most 1.2 ms", False),
            ("at_most", 0, "at most 1.2 ms", True), ("at_most", math.nan, "at most 1.2 ms", False),
            ("at_least", 1.2, "at least 1.2 ms", True), ("at_least", 1.1999999, "at least 1.2 ms", False),
            ("at_least", math.nan, "at least 1.2 ms", False), ("less_than", 1.2, "less than 1.2 ms", False),
            ("less_than", 1.1999999, "less than 1.2 ms", True), ("less_than", math.nan, "less than 1.2 ms", False),
        ):
            with self.subTest(limit, value=value):
                output, row, code = self.verdict(limit, value, 1.2, " ms", digits=1)
                verdict = "ok" if passed else "FAILED"
                shown = "0 ms" if value == 0 else f"{value:.1f} ms"
                self.assertEqual(row, (shown, expected, verdict))
                self.assertEqual(output, f"{verdict:6}  size: {shown} ({expected})\n")
                self.assertEqual(code, 0 if passed else 1)

    def test_a_figure_without_limit_never_fails(self):
        self.assertEqual(self.verdict("note", math.inf, " ms"), ("        size: inf ms\n", ("inf ms", "", ""), 0))

    def test_agreement(self):
        for seen, expected, tolerance, passed in (
            ("a", "a", 0, True), ("a", "b", 0, False), (5, 5.0, 0, True), (None, None, 0, True), (None, 5.0, 9, False),
            (5.0, None, 0, False), (5.0, 7.0, 2, True), (7.1, 5.0, 2, False), (5.0, 7.1, 2, False),
        ):
            with self.subTest(seen=seen, expected=expected):
                _, row, code = self.verdict("agrees", seen, expected, tolerance)
                self.assertEqual((row[2], code), ("ok", 0) if passed else ("FAILED", 1))

    def test_one_broken_limit_is_enough(self):
        with contextlib.redirect_stdout(io.StringIO()), mock.patch.dict(os.environ):
            os.environ.pop(measure.ROWS, None)
            figures = measure.Figures()
            figures.at_most("a", 2, 1)
            figures.at_most("b", 1, 2)
            with self.assertRaises(SystemExit) as end:
                figures.finish()
        self.assertEqual(end.exception.code, 1)


class Turns(unittest.TestCase):
    def test_ratio_is_that_of_neighbours(self):
        # The medians alone would say 2 / 10.
        self.assertEqual(measure.ratio([1, 2, 300], [10, 1, 100]), 2)

    def test_every_other_turn_goes_backwards(self):
        calls = []

        def counted(name):
            calls.append(name)
            return f"{name}{len(calls)}"
        answers = measure.in_turns(3, lambda: counted("a"), lambda: counted("b"))
        self.assertEqual(calls, ["a", "b", "b", "a", "a", "b"])
        self.assertEqual(answers, [["a1", "a4", "a5"], ["b2", "b3", "b6"]])

    def test_hyperfine_is_given_the_turns(self):
        given = []

        def run_hyperfine(command, folder):
            given.extend(command)
            [export] = [part for part in command if part.startswith("--export-json=")]
            self.assertTrue(export.startswith(f"--export-json={folder}/"))
            lines = command[command.index(export) + 1:]
            Path(export.partition("=")[2]).write_text(json.dumps({"results": [
                {"command": line, "median": turn, "mean": -1} for turn, line in enumerate(lines)]}), encoding="utf-8")
            return SimpleNamespace(exit_code=0)
        with mock.patch("bare_machine.locate", side_effect=lambda tool: f"/bin/{tool}"):
            times = wall_time.in_turns(run_hyperfine, ["a", "b -x"], turns=3, runs=7)
        self.assertEqual(given[0], "/bin/hyperfine")
        self.assertIn("--runs=7", given)
        self.assertEqual(given[-6:], ["a", "b -x", "b -x", "a", "a", "b -x"])
        self.assertEqual(times, [[0, 3, 4], [1, 2, 5]])


class PacedCompanion(companion.Companion):
    """Publishes every 4 s from `first` on, and uses `cost` ms for it; `clock` holds the time."""

    def __init__(self, clock, first, cost):
        super().__init__(SimpleNamespace(pid=lambda: 0, is_running=True))
        self.clock, self.first, self.cost = clock, first, cost

    def cycles(self):
        return max(0, int((self.clock[0] - self.first) // 4) + 1)

    def published(self):
        return self.cycles() or (1 if self.clock[0] > 1 else None)  # the segment is there before its first list

    def is_ready(self):
        return self.cycles() > 0

    def processor_ms(self):
        return 100 + self.cost * self.cycles() ** 2


class Cycles(unittest.TestCase):
    def costs(self, *phases, cycles):
        clock = [0.0]

        def sleep(seconds):
            clock[0] += seconds
        with mock.patch("companion.time", SimpleNamespace(sleep=sleep, monotonic=lambda: clock[0])):
            return clock, companion.cycle_costs([PacedCompanion(clock, first, cost) for first, cost in phases], cycles)

    def test_each_cycle_of_each_companion_is_seen_once(self):
        for phases in (((4.0, 1), (7.9, 2)), ((7.9, 1), (4.0, 2)), ((4.0, 1), (4.05, 2)), ((6.0, 1), (5.9, 2))):
            with self.subTest(phases):
                clock, costs = self.costs(*phases, cycles=5)
                # From the first cycle on: 2 squared less 1, 3 squared less 2 squared, ...
                self.assertEqual(costs, [[3, 5, 7, 9, 11], [6, 10, 14, 18, 22]])
                self.assertLess(clock[0], 7.9 + 5 * 4 + 1)

    def test_one_that_never_publishes(self):
        with self.assertRaisesRegex(SystemExit, "does not publish"):
            self.costs((4.0, 1), (1000.0, 1), cycles=2)


class CountedCalls(unittest.TestCase):
    CYCLE = """7 restart_syscall(<... resuming interrupted poll ...> <unfinished ...>
8 futex(0x1, FUTEX_WAIT) = 0
7 <... restart_syscall resumed>) = 0
7 --- SIGCHLD {si_signo=SIGCHLD} ---
7 openat(AT_FDCWD, "flock(3, LOCK_UN)", O_RDONLY) = 4
7 flock(3, LOCK_EX|LOCK_NB) = 0
7 flock(3, LOCK_UN) = 0
"""
    BEGIN = '7 execve("qzGpuInfo") = 0\n7 brk(NULL) = 1\n'
    END = "7 brk(NULL) = 1\n7 flock(3, LOCK_UN) = 0\n7 exit_group(0) = ?\n7 +++ exited with 0 +++\n"

    def test_a_cycle_is_from_release_to_release(self):
        self.assertEqual(trace_calls.calls_a_cycle(self.BEGIN + 4 * self.CYCLE + self.END, 3), 5)

    def test_the_median_is_a_number_of_calls(self):
        more = "7 read(4) = 1\n" + self.CYCLE
        self.assertEqual(trace_calls.calls_a_cycle(self.BEGIN + 2 * self.CYCLE + more + self.END, 2), 5)
        self.assertEqual(trace_calls.calls_a_cycle(self.BEGIN + 2 * self.CYCLE + 2 * more + self.END, 3), 6)

    def test_too_few_cycles(self):
        with self.assertRaisesRegex(SystemExit, "only 3 whole cycles"):
            trace_calls.calls_a_cycle(self.BEGIN + 4 * self.CYCLE + self.END, 4)
        with self.assertRaises(SystemExit):
            trace_calls.calls_a_cycle("", 1)


class Page(Scratch):
    def script(self, name, text):
        path = self.root / name
        path.write_text(f'#!/usr/bin/env python3\n"""{text}"""\n', encoding="utf-8")
        return path

    def test_section(self):
        script = self.script("size", "How big\n\nMeasured\nso.\n\nusage: size [BUILD]\n")
        rows = [{"what": "a|b", "measured": "1.00 ms", "limit": "at most 2 ms", "verdict": "ok"},
                {"what": "c", "measured": "3", "limit": "", "verdict": ""}]
        text = page.section(script, rows, 0.25)
        self.assertTrue(text.startswith("## How big\n\nMeasured\nso.\n\n`./dev bench size`, "), text)
        self.assertRegex(text, r"`, \d{4}-\d\d-\d\d, \d+ x .*, \d+ GiB, .*, Linux \d+\.\d+, load 0\.2 when it began\.\n\n")
        self.assertTrue(text.endswith("| What | Measured | Limit | |\n|---|---|---|---|\n"
                                      "| a\\|b | 1.00 ms | at most 2 ms | ok |\n| c | 3 |  |  |\n"), text)

    def test_sections_are_replaced_in_order(self):
        old = "# Old head\n\nwords\n\n## B\n\nold b\n\n## Another\n\nkept\n\n### Part\n"
        text = page.with_sections(old, ["## B\n\nnew b\n"], ["A", "B"])
        self.assertEqual(text, page.HEAD + "\n## B\n\nnew b\n\n## Another\n\nkept\n\n### Part\n")
        text = page.with_sections(text, ["## A\n\nnew a\n"], ["A", "B"])
        whole = page.HEAD + "\n## A\n\nnew a\n\n## B\n\nnew b\n\n## Another\n\nkept\n\n### Part\n"
        self.assertEqual(text, whole)
        self.assertEqual(page.with_sections(text, [], ["A", "B"]), whole)

    def test_empty_page(self):
        self.assertEqual(page.with_sections("", ["## A\n\na\n"], ["A"]), page.HEAD + "\n## A\n\na\n")


class Run(Scratch):
    """`run` in a separate tree whose measurements are stand-ins."""

    def setUp(self):
        super().setUp()
        (self.root / "benchmarks").mkdir()
        (self.root / "docs").mkdir()
        for name in ("run", "measure.py", "page.py"):
            shutil.copy(BENCHMARKS / name, self.root / "benchmarks")
        text = (BENCHMARKS / "run").read_text(encoding="utf-8")
        self.names = re.findall(r'"([\w-]+)"', re.search(r"^MEASUREMENTS = \[(.*)\]$", text, re.MULTILINE)[1])
        for name in self.names:
            self.stand_in(name, "figures.at_most('size', 1, 2)\nfigures.finish()")

    def stand_in(self, name, body):
        path = self.root / "benchmarks" / name
        path.write_text(f'#!{sys.executable}\n"""The {name}\n\nMethod.\n\nusage: {name}\n"""\nimport sys\n'
                        f'from measure import Figures\nfigures = Figures()\n{body}\n', encoding="utf-8")
        path.chmod(0o755)

    def run_it(self, *names):
        return subprocess.run([sys.executable, self.root / "benchmarks/run", *names], capture_output=True, text=True,
                              timeout=60, check=False)

    def page(self):
        return (self.root / "docs/performance.md").read_text(encoding="utf-8")

    def test_every_measurement_is_there_and_says_what_it_does(self):
        scripts = [path.name for path in BENCHMARKS.iterdir() if os.access(path, os.X_OK) and path.is_file()]
        self.assertEqual(sorted([*self.names, "run"]), sorted(scripts))
        for name in self.names:
            title, method = page.title_and_method(BENCHMARKS / name)
            self.assertRegex(title, r"^[A-Z].*[^.]$", name)
            self.assertRegex(method, r"(?s)^[A-Z].*\.$", name)

    def test_all(self):
        done = self.run_it()
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(re.findall(r"^== (.*)$", done.stdout, re.MULTILINE), self.names)
        self.assertEqual(re.findall(r"^## The (.*)$", self.page(), re.MULTILINE), self.names)
        self.assertEqual(self.page().count("| size | 1 | at most 2 | ok |"), len(self.names))

    def test_a_broken_limit(self):
        self.stand_in("idle", "figures.at_most('size', 3, 2)\nfigures.finish()")
        done = self.run_it("query", "idle")
        self.assertEqual(done.returncode, 1)
        self.assertTrue(done.stdout.endswith("\nbench: past its limit or failed: idle\n"), done.stdout)
        self.assertEqual(re.findall(r"^## The (.*)$", self.page(), re.MULTILINE), ["query", "idle"])
        self.assertIn("| size | 3 | at most 2 | FAILED |", self.page())

    def test_one_that_dies_leaves_its_section(self):
        self.run_it("idle")
        before = self.page()
        self.stand_in("idle", "sys.exit('no such thing')")
        done = self.run_it("idle", "query")
        self.assertEqual((done.returncode, done.stderr), (1, "no such thing\n"))
        self.assertTrue(done.stdout.endswith("\nbench: past its limit or failed: idle\n"), done.stdout)
        self.assertIn(before.partition("## The idle")[2], self.page())

    def test_one_that_dies_after_its_figures(self):
        self.stand_in("idle", "try:\n    figures.finish()\nexcept SystemExit:\n    sys.exit(3)")
        self.assertEqual(self.run_it("idle").returncode, 1)

    def test_one_that_is_skipped(self):
        self.stand_in("idle", "print('SKIPPED: no such thing', flush=True)\nsys.exit(77)")
        done = self.run_it("idle")
        self.assertEqual((done.returncode, done.stdout), (0, "== idle\nSKIPPED: no such thing\n"))
        self.assertFalse((self.root / "docs/performance.md").exists())

    def test_unknown_name(self):
        done = self.run_it("idle", "startpu")
        self.assertEqual((done.returncode, done.stdout), (2, ""))
        self.assertEqual(done.stderr, f"bench: there is no 'startpu', only: {' '.join(self.names)}\n")


class Programs(simulated.SimulatedCase):
    def test_the_floor_makes_the_calls_of_the_query(self):
        for machine in ("workstation", "farm-node"):
            with self.subTest(machine):
                query = self.simulation(machine).run("-queryGPU")
                floor = self.simulation(machine, program=PROGRAMS / "vendorFloor").run()
                self.assertEqual((query.exit_code, floor.exit_code), (1, 0))
                self.assertEqual(floor.report.calls, query.report.calls)

    def test_benchmark_is_taken_apart(self):
        machine = self.simulation("scripted", program=PROGRAMS / "benchmarkCost", faults=["clBuildProgram = delay 30"])
        run = machine.run("5")
        self.assertEqual(run.exit_code, 0, run.output)
        cost = json.loads(run.output)
        # By the script's clock: a warm-up round of 50 ms, and three of 2000 ms until 5 s are over.
        for what, least in (("rounds_ms", 6050), ("measured_rounds_ms", 6000), ("measured_ms", 6000), ("builds_ms", 60)):
            self.assertGreaterEqual(cost[what], least)
            self.assertLess(cost[what], least + 500)  # a busy machine's pauses
        self.assertGreaterEqual(cost["measured_ms"], cost["measured_rounds_ms"])
        self.assertGreater(cost["total_ms"], cost["rounds_ms"] + cost["builds_ms"])
        self.assertGreater(cost["score"], 0)
        # The builds do nothing but wait, and take no processor time.
        self.assertGreater(cost["outside_processor_ms"], 0)
        self.assertLess(cost["outside_processor_ms"], cost["total_ms"] - cost["rounds_ms"] - 50)
        self.assertEqual(run.report.live, {})

    def test_rounds_that_compute_are_not_outside(self):
        text = simulated.description("workstation")
        machine = self.described(text.replace("[machine]\n", "[machine]\nfast_random = yes\n"),
                                 program=PROGRAMS / "benchmarkCost")
        run = machine.run("1")
        self.assertEqual(run.exit_code, 0, run.output)
        cost = json.loads(run.output)
        # A round takes two seconds of every processor; outside of them one thread works.
        self.assertGreater(cost["rounds_ms"], 1000)
        self.assertLess(cost["outside_processor_ms"], cost["total_ms"] - cost["rounds_ms"] + 200)

    def test_floor_of_the_benchmark(self):
        run = self.simulation("scripted", program=PROGRAMS / "benchmarkFloor").run()
        self.assertEqual(run.exit_code, 0, run.output)
        cost = json.loads(run.output)
        self.assertGreater(cost["processor_ms"], 0)
        # A single thread: it uses no more of the processor than the time that passes.
        self.assertLessEqual(cost["processor_ms"], cost["total_ms"] + 1)
        self.assertEqual((run.report.calls["clEnqueueWriteBuffer"], run.report.live), (2, {}))

    def test_lock_time(self):
        script = ("import fcntl, sys, time\nwith open(sys.argv[1], 'w') as file:\n"
                  "    for seconds in (0.05, 0.1):\n"
                  "        fcntl.flock(file, fcntl.LOCK_EX)\n        time.sleep(seconds)\n"
                  "        fcntl.flock(file, fcntl.LOCK_UN)\n        time.sleep(0.2)\n"
                  "    fcntl.flock(file, fcntl.LOCK_UN)\n")
        with tempfile.TemporaryDirectory(prefix="qzTest-") as folder:
            times = Path(folder, "times")
            subprocess.run([sys.executable, "-c", script, str(Path(folder, "lock"))], check=True, timeout=30,
                           env={**os.environ, "LD_PRELOAD": str(PROGRAMS / "lockTime.so"), "QZ_LOCK_TIMES": str(times)})
            held = [float(line) for line in times.read_text(encoding="utf-8").split()]
        self.assertEqual(len(held), 2)
        for microseconds, least in zip(held, (50_000, 100_000)):
            self.assertGreaterEqual(microseconds, least)
            self.assertLess(microseconds, least + 190_000)  # a busy machine's pauses, not the one between the locks

    def test_reader_time_needs_a_segment(self):
        with tempfile.TemporaryDirectory(prefix="qzTest-") as folder:
            done = subprocess.run([PROGRAMS / "readerTime", folder, "3"], capture_output=True, text=True, timeout=30,
                                  check=False)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertIn("there is no segment", done.stderr)


if __name__ == "__main__":
    simulated.main()
