"""The benchmark on every machine of the list: its kernel compiled and run by PoCL, a score for each GPU that has an
OpenCL device, and the message for each that has none.

The program's clock is stretched and the input data are made cheaply, so that a GPU takes seconds and not a quarter of a
minute. QZ_MACHINES=all adds those of many GPUs, and leaves the clock and the data alone; names separated by commas are
tried alone."""

import os
import re

import simulated
from simulated import BUILD, MACHINES, Expected, SimulatedCase, description

MANY = {"cloud-equal-buses", "demo", "farm-node", "twenty-gpus"}
CHOSEN = os.environ.get("QZ_MACHINES", "")
WHOLE = CHOSEN == "all"
# PoCL's threads bring the leak checker of a sanitizer build down. What is made and not released is counted all the same.
QUIET = {"ASAN_OPTIONS": "detect_leaks=0:verify_asan_link_order=0"}

PERFORMANCE = re.compile(r"^    GpuBenchmarkOpenCL: \d+ rounds, avg [0-9.]+ ms/round, performance ([0-9.]+) GPS$",
                         re.MULTILINE)
SHOWN = re.compile(r"^    #(\d+) *: Speed: +([0-9.]+) GPS$", re.MULTILINE)
SUM = re.compile(r"^    : Speed: +([0-9.]+) GPS$", re.MULTILINE)


def hastened(name):
    """The machine's description, except for the cost of its benchmark."""
    text = description(name)
    if WHOLE:
        return text
    if "fast_random" not in text:
        text = re.sub(r"^(summary = .*)$", r"\1\nfast_random = yes", text, count=1, flags=re.MULTILINE)
    return re.sub(r"^(share = .*)$", r"\1\nstretch = 20", text, count=1, flags=re.MULTILINE)


class Scores(SimulatedCase):
    def test_each_machine(self):
        tried = set(MACHINES) - (set() if WHOLE else MANY)
        for name in sorted(tried if WHOLE or not CHOSEN else CHOSEN.split(",")):
            expected = Expected(name)
            with self.subTest(name):
                machine = self.described(hastened(name), environment=QUIET)
                run = machine.run("-single", "-v", "-benchShort", timeout=40 + 60 * expected.scored)
                text = run.output
                scores = [float(score) for score in PERFORMANCE.findall(text)]
                self.assertEqual((len(scores), text.count(": unable to run Benchmark(openCL), device_HardwareID is NULL")),
                                 (expected.scored, expected.unscored), text)
                self.assertTrue(all(score > 0 for score in scores), scores)
                shown = [float(score) for _, score in SHOWN.findall(text)]
                # The report goes by device number: of GPUs that share one, the first alone is shown.
                self.assertEqual(len(shown), expected.scored - expected.hidden, text)
                for one in shown:
                    self.assertLess(min(abs(one - score) for score in scores), 0.0051, text)
                self.assertEqual(bool(SUM.search(text)), bool(shown))
                if shown:
                    self.assertAlmostEqual(float(SUM.search(text)[1]), sum(shown), delta=0.006 * (1 + len(shown)))
                self.assertEqual((run.exit_code, run.report.live, run.report.misuse), (0, expected.left_over, {}))


class WarmUp(SimulatedCase):
    def test_its_limit_in_a_short_benchmark(self):
        """1 ms: of the script's four rounds of a millisecond the first is the warm-up, and three are measured."""
        text = description("scripted").replace("round_ms = 50, 2000", "round_ms = 1, 1, 1, 1, 2000")
        program = BUILD / "tests/harness/smallBenchmark"
        run = self.described(text, program=program).run("-v", "-returnGPS", "-benchShort")
        rounds = re.findall(r"^    GpuBenchmarkOpenCL: (\d+) rounds, ", run.output, re.MULTILINE)
        self.assertEqual(rounds, ["6", "6"], run.output)


if __name__ == "__main__":
    simulated.main()
