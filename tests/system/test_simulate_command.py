"""The command that runs a program on a simulated machine: its arguments, its exit codes, and how it ends."""

import json
import os
import signal
import subprocess
import tempfile
import time
from pathlib import Path
from unittest import mock

import simulated
from qz import wait_until
from simulated import BUILD, LAUNCHER, SOURCE, SandboxError, SimulatedCase


def simulate(*arguments, **settings):
    """The launcher as a user calls it."""
    return subprocess.run([*LAUNCHER, *map(str, arguments)], capture_output=True, timeout=60, check=False, **settings)


class Command(SimulatedCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="qzsim-test-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def test_the_list(self):
        listed = simulate()
        self.assertEqual((listed.returncode, listed.stderr), (0, b""))
        lines = listed.stdout.decode().splitlines()
        names = [line.split()[0] for line in lines]
        self.assertEqual(names, sorted(path.stem for path in (SOURCE / "simulator/machines").glob("*.machine")))
        for needed in ("workstation", "farm-node", "amd-card", "both-vendors", "amd-laptop", "no-opencl",
                       "nvidia-opencl-unregistered", "twenty-gpus", "driver-dies"):
            self.assertIn(needed, names)
        for line in lines:
            self.assertRegex(line, r"^\S+  +\S.{10,}$")

    def test_a_reader_of_the_list_that_has_seen_enough(self):
        with subprocess.Popen([*LAUNCHER], stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
            self.assertTrue(process.stdout.readline())
            process.stdout.close()
            self.assertEqual((process.wait(60), process.stderr.read()), (128 + signal.SIGPIPE, b""))

    def test_files_in_folders_that_the_machine_has_itself(self):
        self.simulation("no-gpu")
        with tempfile.TemporaryDirectory(dir="/dev/shm", prefix="qzsim-test-") as folder:
            described = Path(folder) / "a.machine"
            described.write_text("[nvidia]\ncompute = 8.9\n[platform]\n[opencl]\nmode = scripted\n")
            run = simulate(described, "-queryNvCuda", env={**os.environ, "TMPDIR": folder})
            self.assertEqual((run.returncode, run.stderr, os.listdir(folder)), (1, b"", ["a.machine"]))
            hidden = simulate("--build", folder, "no-gpu")
            self.assertEqual((hidden.returncode, hidden.stderr.decode()), (
                125, f"simulate: {folder}: a simulated machine has its own /dev, /proc and /sys, without this\n"))

    def test_a_run(self):
        self.simulation("no-gpu")
        with tempfile.TemporaryDirectory() as folder:
            report = Path(folder) / "report.json"
            run = simulate("--report", report, "driver-only", "-single", "-queryNvCuda")
            self.assertEqual(run.returncode, 1, run.stderr)
            self.assertIn(b"1 CUDA GPU(s) found", run.stdout)
            counted = json.loads(report.read_text())
        self.assertEqual(counted["calls"]["nvmlInit_v2"], 1)
        self.assertEqual(counted["live"], {})
        self.assertEqual(counted["misuse"], {})
        self.assertEqual(counted["closes"], {"libOpenCL.so.1": 1, "libnvidia-ml.so.1": 1})
        self.assertEqual(counted["events"][0], "load:libnvidia-ml.so.1")
        self.assertLess(counted["events"].index("call:nvmlShutdown"),
                        counted["events"].index("close:libnvidia-ml.so.1"))

    def test_the_exit_code_is_the_programs(self):
        self.simulation("no-gpu")
        self.assertEqual(simulate("--program", "/bin/false", "no-gpu").returncode, 1)
        self.assertEqual(simulate("--program", "/bin/sh", "no-gpu", "-c", "exit 42").returncode, 42)
        self.assertEqual(simulate("--program", "/bin/sh", "no-gpu", "-c", "kill -SEGV $$").returncode,
                         128 + signal.SIGSEGV)

    def test_faults_of_the_command_line(self):
        self.simulation("no-gpu")
        run = simulate("--fault", "libnvidia-ml.so.1 = absent", "--fault", "libOpenCL.so.1 = absent", "driver-only",
                       "-single", "-queryGPU")
        self.assertEqual(run.returncode, 0)
        self.assertIn(b"libnvidia-ml.so not found", run.stdout)
        run = simulate("--fault", "nvmlInit_v2 = crash", "driver-only", "-single")
        self.assertEqual(run.returncode, 128 + signal.SIGSEGV)

    def test_what_cannot_be_simulated(self):
        self.simulation("no-gpu")
        unknown = simulate("no-such-machine")
        self.assertEqual((unknown.returncode, unknown.stdout), (125, b""))
        self.assertIn(b"no-such-machine: neither a file nor one of the machines", unknown.stderr)
        fault = simulate("--fault", "nvmlInit_v2 = explode", "no-gpu")
        self.assertEqual(fault.returncode, 125)
        self.assertEqual(fault.stderr, b"simulate: --fault:1: not something that can happen to nvmlInit_v2: explode\n")
        with tempfile.NamedTemporaryFile("w", suffix=".machine") as description:
            description.write("[nvidia]\nbus = -3\n")
            description.flush()
            wrong = simulate(description.name)
            self.assertEqual(wrong.returncode, 125)
            self.assertEqual(wrong.stderr.decode(), f"simulate: {description.name}:2: bus must lie between 0 and "
                                                    "4294967295: -3\n")

    def test_a_failure_of_bubblewrap_is_not_taken_for_the_programs(self):
        self.simulation("no-gpu")
        bubblewrap = self.folder / "bwrap"
        bubblewrap.write_text("#!/bin/sh\necho 'bwrap: no namespaces here' >&2\nexit 1\n", encoding="utf-8")
        bubblewrap.chmod(0o755)
        with mock.patch.dict(os.environ, {"PATH": f"{self.folder}:{os.environ['PATH']}"}):
            run = simulate("no-gpu", "-queryGPU")
            self.assertEqual((run.returncode, run.stdout.decode(), run.stderr.decode()), (
                125, "", "bwrap: no namespaces here\nsimulate: bubblewrap could not lay out the machine, for the reason "
                         "above\n"))
            with self.assertRaisesRegex(SandboxError, "machine: bwrap: no namespaces here"):
                self.simulation("no-gpu").run("-queryGPU")

    def test_a_folder_for_the_segment_is_made(self):
        self.simulation("no-gpu")
        run = simulate("--shm", self.folder / "a/b", "--program", "touch", "no-gpu", "/dev/shm/touched")
        self.assertEqual((run.returncode, run.stderr), (0, b""))
        self.assertTrue((self.folder / "a/b/touched").exists())
        run = simulate("--shm", self.folder / "a/b/touched/c", "no-gpu", "-queryGPU")
        self.assertEqual((run.returncode, run.stdout.decode(), run.stderr.decode()),
                         (125, "", f"simulate: {self.folder}/a/b/touched/c: Not a directory\n"))

    def test_programs_are_looked_up(self):
        self.simulation("no-gpu")
        run = simulate("--program", "sh", "no-gpu", "-c", "command -v qzGpuInfo; command -v qzGpuStatus")
        self.assertEqual(run.stdout.decode(), f"{BUILD}/qzGpuInfo\n{BUILD}/qzGpuStatus\n")
        self.assertEqual(simulate("--program", "qzGpuStatus", "no-gpu").returncode, 1)
        run = simulate("--program", "python3", "no-gpu", "-c", "print('here')")
        self.assertEqual((run.returncode, run.stdout), (0, b"here\n"))
        for wrong in ("no-such-program", "/etc/passwd"):
            run = simulate("--program", wrong, "no-gpu")
            self.assertEqual((run.returncode, run.stderr.decode()),
                             (125, f"simulate: {wrong}: there is no such program\n"))

    def start(self, *command, **environment):
        """A command that starts the launcher, once the program has said that it runs."""
        process = subprocess.Popen(command, stdout=subprocess.PIPE, env={**os.environ, **environment})
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        lines = iter(process.stdout.readline, b"")
        self.assertTrue(any(line.startswith(b"Continuous run") for line in lines))
        return process

    def test_signals_reach_the_program_and_nothing_is_left(self):
        self.simulation("no-gpu")
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT):
            with self.subTest(number=number):
                temporary, shm = self.folder / f"{number}", self.folder / f"{number}-shm"
                temporary.mkdir()
                process = self.start(*LAUNCHER, "--shm", str(shm), "no-gpu", TMPDIR=str(temporary))
                self.assertEqual((len(os.listdir(temporary)), os.listdir(shm)), (1, ["qzGpuInfo_v2"]))
                process.send_signal(number)
                ended = number != signal.SIGQUIT
                self.assertEqual(process.wait(timeout=20), 0 if ended else 128 + number)
                self.assertEqual((os.listdir(temporary), os.listdir(shm)), ([], [] if ended else ["qzGpuInfo_v2"]))

    def test_signals_that_come_before_the_program_runs(self):
        self.simulation("no-gpu")
        (self.folder / "simulator").mkdir()
        slow = self.folder / "simulator/qzsim-layout"
        slow.write_text('#!/bin/sh\ntouch "$0-runs"\nexec sleep 20\n', encoding="utf-8")
        slow.chmod(0o755)
        runs = self.folder / "simulator/qzsim-layout-runs"
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT):
            with self.subTest(number=number), subprocess.Popen(
                    [*LAUNCHER, "--build", str(self.folder), "no-gpu"],
                    env={**os.environ, "TMPDIR": str(self.folder)}) as process:
                wait_until(runs.exists)
                runs.unlink()
                self.assertEqual(len(os.listdir(self.folder)), 2)
                process.send_signal(number)
                self.assertEqual((process.wait(timeout=10), os.listdir(self.folder)), (128 + number, ["simulator"]))

    def test_a_hang_up_that_is_ignored_stays_so(self):
        self.simulation("no-gpu")
        process = self.start("nohup", *LAUNCHER, "no-gpu")
        process.send_signal(signal.SIGHUP)
        time.sleep(0.5)
        self.assertIsNone(process.poll())
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(timeout=20), 0)

    def test_a_wrapper(self):
        self.simulation("no-gpu")
        run = simulate("--wrap", "sh -c 'echo wrapped; exec \"$@\"' sh", "no-gpu", "-single", "-queryGPU")
        self.assertEqual(run.returncode, 0)
        self.assertEqual(run.stdout.splitlines()[0], b"wrapped")


if __name__ == "__main__":
    simulated.main()
