"""A machine recorded by qzGpuDoctor and replayed gives the program's own output and answers, byte for byte."""

import os
import stat
import tempfile
import unittest
from pathlib import Path

import doctor
from doctor import DoctorCase
from simulated import MACHINES, Expected

RECORDED = sorted((Path(__file__).parent / "recorded").glob("*.machine"))
RUNS = (("-single", "-v"), ("-queryGPU",), ("-queryNvCuda",), ("-queryNvOptix",), ("-queryAmdRt",))

# What drivers do, at one call or at all, on a machine with GPUs of both vendors.
FAULTS = (
    "nvmlInit_v2 = crash", "nvmlInit_v2 = exit 5", "nvmlInit_v2 = signal 6", "nvmlInit_v2 = fail 18",
    'nvmlInit_v2 = print "a driver says\\n"', "nvmlDeviceGetCount_v2 = fail 999", "nvmlDeviceGetCount_v2 = answer 3",
    "nvmlDeviceGetHandleByIndex_v2 = fail 15", "nvmlDeviceGetPciInfo_v3 = fail 15 at 2",
    "nvmlDeviceGetPciInfo_v3 = answer 7 at 2", 'nvmlDeviceGetName = answer "a\\nb {i} %1"',
    "nvmlDeviceGetTemperature = fail 3", "nvmlDeviceGetUtilizationRates = answer 4294967295", "nvmlShutdown = fail 999",
    "libnvidia-ml.so.1 = absent", "libnvidia-ml.so.1 = exit 3", "libnvidia-ml.so.1 = omit nvmlErrorString",
    "libnvidia-ml.so.1 = crash-at-unload", "libOpenCL.so.1 = crash-at-exit", "libOpenCL.so.1 = omit clFinish",
    "libcudart.so.12 = absent", "cudaGetDeviceCount = fail 35 at 1", "cudaGetDeviceCount = fail 35",
    "cudaGetDeviceProperties_v2 = fail 3", "libcudart.so.12 = omit cudaGetDeviceProperties_v2",
    "clGetPlatformIDs = fail -30 at 2", "clGetPlatformIDs = answer 1", 'clGetPlatformInfo = answer "x" at 2',
    "clGetDeviceIDs = fail -6 at 1", "clGetDeviceIDs = answer 99", "clGetDeviceInfo = fail -33 at 2",
    "clGetDeviceInfo#1 = crash at 3", "clGetDeviceInfo#1 = answer 131 at 2",
    "card1/vendor = fail EIO", 'card1/gpu_busy_percent = answer "many\\n"', "card1/mem_info_vram_total = refuse EACCES",
    "card1/hwmon/hwmon5/temp1_input = fail EINVAL", "nvmlInit_v2 = delay 1100",
)


class Recordings(DoctorCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="qzsim-test-")
        self.addCleanup(folder.cleanup)
        self.file = Path(folder.name, "recorded.machine")

    def record(self, machine, *arguments, faults=()):
        """Records a machine; the report's exit code."""
        run = self.doctor(machine, "--json", "--record", str(self.file), *arguments, faults=faults)
        self.assertEqual(run.errors, "")
        return run.exit_code

    def outputs(self, machine, faults=(), runs=RUNS):
        simulation = self.simulation(machine, faults)
        ended = [simulation.run(*arguments) for arguments in runs]
        return [(run.exit_code, run.output) for run in ended]

    def test_each_machine_of_the_list(self):
        for machine in MACHINES:
            with self.subTest(machine):
                self.record(machine)
                self.assertEqual(self.outputs(self.file), self.outputs(machine))
                self.assertEqual(Expected(text=self.file.read_text("utf-8")).queries, Expected(machine).queries)

    def test_what_drivers_do(self):
        for fault in FAULTS:
            with self.subTest(fault):
                self.record("both-vendors", "--only", "pairing", faults=[fault])
                runs = RUNS[:1]
                self.assertEqual(self.outputs(self.file, runs=runs), self.outputs("both-vendors", [fault], runs))

    def test_one_that_hangs(self):
        self.record("both-vendors", "--only", "pairing", "--timeout", "3", faults=["nvmlDeviceGetName = hang"])
        text = self.file.read_text("utf-8")
        self.assertIn("nvmlDeviceGetName#0 = hang\n", text)
        self.assertIn("exit_code = none\n", text)

    def test_several_cycles(self):
        """A recording of a recording says the same, so nothing of any cycle is lost."""
        for machine in ("driver-dies", "amd-card", "both-vendors"):
            with self.subTest(machine):
                self.record(machine, "--only", "pairing", "--readings", "6")
                first = self.file.read_text("utf-8")
                copy = self.file.with_name("first.machine")
                copy.write_text(first, "utf-8")
                self.record(copy, "--only", "pairing", "--readings", "6")
                self.assertEqual(self.file.read_text("utf-8"), first)
        self.record("driver-dies", "--only", "pairing", "--readings", "6")
        text = self.file.read_text("utf-8")
        self.assertIn("nvmlDeviceGetTemperature#0 = fail 15 from 3\n", text)
        self.assertIn("temperature = 50, 51, 52, 53\n", text)

    def test_the_file_is_its_owners(self):
        before = os.umask(0)
        self.addCleanup(os.umask, before)
        self.record("workstation", "--only", "pairing")
        self.assertEqual(stat.S_IMODE(self.file.stat().st_mode), 0o600)
        lines = self.file.read_text("utf-8").splitlines()
        self.assertTrue(lines[0].startswith("# ") and lines[1].startswith("# Left out: "), lines[:2])
        self.assertIn("UUID", lines[1])

    def test_what_the_program_does_not_show(self):
        self.record("lying-driver", "--only", "pairing")
        self.assertIn("product_name = @directory\n", self.file.read_text("utf-8"))

    def test_to_standard_output(self):
        run = self.doctor("workstation", "--record", "-")
        self.assertEqual((run.exit_code, run.errors), (0, ""))
        self.file.write_text(run.output, "utf-8")
        self.assertEqual(self.outputs(self.file), self.outputs("workstation"))

    def test_a_file_that_cannot_be_written(self):
        run = self.doctor("workstation", "--record", "/nowhere/file", "--only", "pairing")
        self.assertEqual(run.exit_code, 4)
        self.assertIn("cannot write '/nowhere/file'", run.errors)


class Recorded(DoctorCase):
    """Machines of the field: whatever lies in recorded/ behaves as it did where it was recorded."""

    def test_each(self):
        for path in RECORDED:
            expected = Expected(text=path.read_text("utf-8"))
            with self.subTest(path.stem):
                simulation = self.simulation(path)
                if expected.exit_code == "none":
                    run = simulation.start("-single", "-v")
                    self.assertRaises(TimeoutError, run.wait, 2)
                    continue
                self.assertEqual(simulation.run("-single", "-v").exit_code, int(expected.exit_code))
                answered = {query for query in ("queryGPU", "queryNvCuda", "queryNvOptix", "queryAmdRt")
                            if simulation.run("-" + query).exit_code == 1}
                self.assertEqual(answered, expected.queries)
                seen = self.examined(path, "--only", "nvidia,amd,pairing")
                self.assertEqual(set(seen.problems()), expected.problems)

    def test_there_are_some(self):
        self.assertTrue(RECORDED)


if __name__ == "__main__":
    doctor.main()
