"""Weeks in minutes: 100,000 update cycles (four days and a half) against the stand-in libraries without the timer. What
the process holds at the end is what it held after the first 1,000. With QZ_WEEKS=all on a machine of 32 GPUs, too.
Then 200 cycles under valgrind."""

import os
import re
import shutil
import unittest

import simulated

CYCLES = 100_000
FIRST = 1_000
HARNESS = simulated.BUILD / "tests/harness/manyCycles"
CACHE = (simulated.BUILD / "CMakeCache.txt").read_text("utf-8")
SANITIZED = bool(re.search(r"^QZGPUINFO_SANITIZE:STRING=.", CACHE, re.MULTILINE))
# The allocator may use a page more or less from one cycle to the next; a leak of one byte a cycle would be 97 KiB.
PAGES_KIB = 16


class Weeks(simulated.SimulatedCase):
    def held(self, simulation, gpus, cycles=CYCLES, first=FIRST, timeout=240):
        """What the process held after the first cycles and at the end: memory in KiB, descriptors, threads."""
        run = simulation.run(str(cycles), str(first), timeout=timeout)
        lines = self.lines(run)
        self.assertEqual(run.exit_code, 0, "\n".join((run.output[-2000:], run.errors[-8000:])))
        self.assertIn(f"listed: {gpus}", lines)
        self.assertEqual(run.report.live, {}, "the vendors' objects were not all released")
        self.assertEqual(run.report.misuse, {})
        self.assertGreaterEqual(run.report.calls["nvmlDeviceGetTemperature"], cycles)
        found = [tuple(int(word) for word in line.split()[1:]) for line in lines if line.startswith("held: ")]
        self.assertEqual([after for after, *_ in found], [first, cycles])
        return found[0][1:], found[1][1:]

    def check_steady(self, simulation, gpus):
        (memory_then, *then), (memory_now, *now) = self.held(simulation, gpus)
        print(f"{gpus} GPUs, {CYCLES} cycles: {memory_then} KiB, descriptors and threads {then} after {FIRST}; "
              f"{memory_now} KiB, {now} at the end")
        self.assertEqual(now, then, "descriptors and threads")
        if not SANITIZED:
            # AddressSanitizer keeps what is freed for a while.
            self.assertLessEqual(abs(memory_now - memory_then), PAGES_KIB, f"{memory_then} KiB became {memory_now}")

    def test_two_gpus(self):
        self.check_steady(self.simulation("both-vendors", program=HARNESS), 2)

    @unittest.skipUnless(os.environ.get("QZ_WEEKS") == "all", "QZ_WEEKS=all asks for it; it takes a minute")
    def test_thirty_two_gpus(self):
        self.check_steady(self.simulation("cycle-numbers", program=HARNESS), 32)

    @unittest.skipIf(SANITIZED, "valgrind does not run what a sanitizer built")
    @unittest.skipIf(shutil.which("valgrind") is None, "valgrind is not installed")
    def test_under_valgrind(self):
        valgrind = ["valgrind", "--quiet", "--error-exitcode=99", "--leak-check=full", "--track-fds=no",
                    "--errors-for-leak-kinds=definite,indirect,possible", "--num-callers=25"]
        self.held(self.simulation("both-vendors", program=HARNESS, wrap=valgrind), 2, cycles=200, first=100)


if __name__ == "__main__":
    simulated.main()
