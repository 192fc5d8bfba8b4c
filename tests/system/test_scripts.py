"""The scripts of docs/examples that ask whether there is a GPU: each distinguishes the two answers from a crash, a driver
that hangs and a program that is not there."""

import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from simulated import SOURCE, SimulatedCase, main

EXAMPLES = SOURCE / "docs" / "examples"
SCRIPTS = ("has_gpu.sh", "has_gpu.py")


class OnMachines(SimulatedCase):
    def check(self, machine, faults, seconds, code, said):
        for script in SCRIPTS:
            with self.subTest(script):
                run = self.simulation(machine, faults, program=EXAMPLES / script).run(seconds)
                self.assertEqual(run.exit_code, code, run.output)
                answer, failure = (run.output, "") if code != 2 else ("", run.errors)
                self.assertEqual((run.output, run.errors), (answer, failure))
                self.assertRegex(answer + failure, rf"\A(?:{said})\n\Z")

    def test_a_gpu(self):
        self.check("scripted", [], "60", 0, "at least one GPU")

    def test_no_gpu(self):
        self.check("no-gpu", [], "60", 1, "no GPU")

    def test_a_driver_that_crashes(self):
        # The shell adds a line on the signal, in words of its own.
        self.check("scripted", ["nvmlInit_v2 = crash"], "60", 2, r"(?:.*\n)?qzGpuInfo crashed(?:: signal \d+)?")

    def test_a_driver_that_crashes_at_the_end(self):
        self.check("scripted", ["libnvidia-ml.so.1 = crash-at-exit"], "60", 2, r"(?:.*\n)?qzGpuInfo crashed(?:: signal \d+)?")

    def test_a_driver_that_hangs(self):
        self.check("scripted", ["nvmlInit_v2 = hang"], "2", 2, "no answer in time|.* timed out after .* seconds")


class WithoutAMachine(unittest.TestCase):
    """Something else in PATH under the program's name, or nothing."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        for tool in ("timeout", "sh", "sleep"):
            (self.folder / tool).symlink_to(shutil.which(tool))

    def place(self, text, mode=0o755):
        program = self.folder / "qzGpuInfo"
        program.write_text(f"#!/bin/sh\n{text}\n", encoding="utf-8")
        program.chmod(mode)

    def check(self, code, *expected, seconds="60"):
        for script, interpreter, said in zip(SCRIPTS, ("/bin/sh", sys.executable), expected, strict=True):
            with self.subTest(script):
                done = subprocess.run([interpreter, EXAMPLES / script, seconds], stdin=subprocess.DEVNULL,
                                      capture_output=True, text=True, timeout=60,
                                      env={"PATH": str(self.folder), "LC_ALL": "C.UTF-8"})
                self.assertEqual((done.returncode, done.stdout), (code, ""), done.stderr)
                self.assertRegex(done.stderr, said)

    def test_no_such_program(self):
        self.check(2, r"\nqzGpuInfo or a library it needs was not found\n\Z", r"\A.*No such file.*\n\Z")

    def test_a_program_that_must_not_be_run(self):
        self.place("exit 1", mode=0o644)
        self.check(2, r"\nqzGpuInfo or a library it needs was not found\n\Z", r"\A.*Permission denied.*\n\Z")

    def test_a_library_is_missing(self):
        self.place("exit 127")
        self.check(2, r"\AqzGpuInfo or a library it needs was not found\n\Z", r"\AqzGpuInfo failed: exit code 127\n\Z")

    def test_another_exit_code(self):
        self.place("exit 3")
        self.check(2, r"\AqzGpuInfo crashed\n\Z", r"\AqzGpuInfo failed: exit code 3\n\Z")

    def test_not_to_be_ended(self):
        self.place("trap '' TERM; sleep 5 >/dev/null 2>&1 & wait")
        self.check(2, r"(\A|\n)no answer in time\n\Z", r"\A.* timed out .*\n\Z", seconds="1")

    def test_the_question(self):
        self.place('[ "$*" = -queryGPU ] || exit 3\nexec sleep 5')
        self.check(2, r"\Ano answer in time\n\Z", r"\A.* timed out .*\n\Z", seconds="0.5")


class Mistyped(SimulatedCase):
    """What README says of a mistyped option: it is a companion, whose end is no answer."""

    def test_starts_a_companion(self):
        run = self.simulation("no-gpu").start("-querygpu")
        run.wait_for("Continuous run...\n")
        self.assertEqual(run.stop()[0], 0)

    def test_without_the_dash_it_is_a_name(self):
        run = self.simulation("scripted").run("queryGPU")
        self.assertEqual(run.exit_code, 0)
        self.assertIn("Process 'queryGPU' does  not exist", run.output)


if __name__ == "__main__":
    main()
