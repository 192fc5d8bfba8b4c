"""How a reader judges a companion that hangs, is killed or is followed by another: fresh is only what a living one
published, and not longer ago than a living one takes."""

import json
import os
import signal
import time

import simulated
import status_command
from companion import CompanionCase
from qz import NAME, wait_until

MACHINE = """
[os-release]
id = debian
[libraries]
cudart = none
[nvidia]
name = NVIDIA One
bus = 0x01
compute = 8.9
utilisation = cycle
temperature = 40
memory_total = 8GiB
memory_used = 1GiB
[opencl]
mode = scripted
round_ms = 5000
sleep = no
[platform]
name = NVIDIA CUDA
[device]
name = NVIDIA One
nv_bus = 0x01
"""
QUERY = "nvmlDeviceGetUtilizationRates"
OK, STALE = 0, 3


class Freshness(CompanionCase):
    def expect(self, folder, code, *arguments, **members):
        result = status_command.run("--json", *arguments, directory=str(folder))
        report = json.loads(result.stdout)
        self.assertEqual({name: report[name] for name in members}, members, report)
        self.assertEqual(result.returncode, code, report)
        return report

    def kill(self, run):
        run.send(signal.SIGKILL)
        self.assertEqual(run.wait(), 128 + signal.SIGKILL)

    def set_age(self, folder, seconds):
        instant = time.time() - seconds
        os.utime(folder / NAME, (instant, instant))

    def test_what_a_killed_one_left(self):
        folder, first = self.companion(MACHINE)
        left = self.published(folder)
        self.expect(folder, OK, state="ok", published=True, measuring=False)
        self.kill(first)
        self.expect(folder, STALE, state="stale", writerAttached=False, published=False)
        hangs = self.companion(MACHINE, shm=folder, faults=["nvmlInit_v2 = hang"])[1]
        wait_until(lambda: hangs.report.calls.get("nvmlInit_v2") == 1, what="the driver's start")
        self.assertEqual((folder / NAME).read_bytes(), left)
        self.expect(folder, STALE, "--max-age", "0", state="stale", writerAttached=True, published=False)
        following = self.companion(MACHINE, shm=folder, cycle_start=50)[1]
        self.published(folder, left)
        self.expect(folder, OK, state="ok", published=True)
        self.kill(hangs)
        self.expect(folder, OK, state="ok", published=True)
        following.send(signal.SIGTERM)
        self.assertEqual(following.wait(), 0)

    def test_a_driver_that_hangs(self):
        """In the second cycle, of a companion without and of one with benchmarks."""
        starts = [self.companion(MACHINE, *arguments, faults=[f"{QUERY} = hang at 2"]) for arguments in ((), ("-bench",))]
        for folder, run in starts:
            self.addCleanup(self.kill, run)
            wait_until(lambda run=run: run.report.calls.get(QUERY) == 2, 20, "the call that hangs")
        (folder, _), (benchmarking, _) = starts
        self.set_age(folder, 15)
        self.expect(folder, OK, state="ok", measuring=False)
        self.set_age(folder, 21)
        self.expect(folder, STALE, state="stale", writerAttached=True, published=True, measuring=False)
        self.expect(folder, OK, "--max-age", "100", state="ok")

        self.set_age(benchmarking, 1700)
        self.expect(benchmarking, OK, state="ok", published=True, measuring=True)
        self.set_age(benchmarking, 1801)
        self.expect(benchmarking, STALE, state="stale", measuring=True)


if __name__ == "__main__":
    simulated.main()
