"""What qzGpuDoctor finds on simulated machines: which check reports what is wrong, and nothing where nothing is."""

import json
import time
import unittest

import doctor
from doctor import DoctorCase, Examined
from simulated import MACHINES, Expected

# Words of what is said on broken machines of the list, which name their problems themselves.
SAID = {
    "cloud-equal-buses": {"pairing.buses": "4 GPUs are on buses of equal number",
                          "pairing.listed": "its PCI bus is that of 0001:00:00.0"},
    "cycle-numbers": {"opencl.loader": "there is no OpenCL loader", "pairing.gpus": "of kind 'Other'"},
    "driver-dies": {"nvidia.shutdown": "NVML_ERROR_LIB_RM_VERSION_MISMATCH (18)"},
    "lying-driver": {"nvidia.devices": "gives no access to it: NVML_ERROR_INVALID_ARGUMENT (2)",
                     "opencl.room": "counts 40 platforms", "pairing.listed": "its PCI bus is that of platform-gpu"},
    "no-opencl": {"opencl.loader": "there is no OpenCL loader", "pairing.gpus": "of kind 'Other'",
                  "answers.returnGPS": "no OpenCL device"},
    "nvidia-opencl-unregistered": {"pairing.gpus": "no OpenCL device is on its bus"},
    "opencl-no-platform": {"opencl.platforms": "knows no OpenCL driver", "pairing.gpus": "of kind 'Other'"},
    "twenty-gpus": {"opencl.room": "counts 20 GPUs; the program looks at 12",
                    "pairing.listed": "the list has room for 16 GPUs of a vendor"},
}

# What goes wrong on a workstation, by the fault that is injected.
FAULTS = {
    "nvmlInit_v2 = fail 18": {"nvidia.start": "NVML_ERROR_LIB_RM_VERSION_MISMATCH (18)",
                              "nvidia.versions": "different versions"},
    "nvmlInit_v2 = fail 9": {"nvidia.start": "NVML_ERROR_DRIVER_NOT_LOADED (9)"},
    "nvmlDeviceGetCount_v2 = fail 999": {"nvidia.start": "does not count its GPUs: NVML_ERROR_UNKNOWN (999)"},
    "nvmlDeviceGetHandleByIndex_v2 = fail 15": {"nvidia.devices": "NVML_ERROR_GPU_IS_LOST (15)"},
    "nvmlDeviceGetUtilizationRates = fail 15":
        {"nvidia.queries": "does not answer nvmlDeviceGetUtilizationRates: NVML_ERROR_GPU_IS_LOST (15)"},
    "nvmlShutdown = fail 999": {"nvidia.shutdown": "NVML does not shut down"},
    "libnvidia-ml.so.1 = omit nvmlErrorString": {"nvidia.nvml": "lacks functions that the program needs: nvmlErrorString"},
    "libnvidia-ml.so.1 = crash": {"nvidia.nvml": "NVML crashes (SIGSEGV) when libnvidia-ml.so.1 is opened",
                                  "pairing.run": "crashes (SIGSEGV)",
                                  "answers.queryGPU": "a shell shows exit code 139"},
    "libnvidia-ml.so.1 = crash-at-unload": {"pairing.run": "crashes (SIGSEGV) when libnvidia-ml.so.1 is closed",
                                            "answers.queryNvCuda": "exit code 139"},
    "libOpenCL.so.1 = crash-at-exit": {"pairing.run": "crashes (SIGSEGV) when the process ends"},
    "nvmlDeviceGetName = crash": {"pairing.run": "crashes (SIGSEGV) in nvmlDeviceGetName"},
    "nvmlDeviceGetTemperature = exit 5": {"pairing.run": "ends the process (exit status 5) in nvmlDeviceGetTemperature",
                                          "answers.queryGPU": "ends with exit code 5"},
    "libcudart.so.12 = exit 3": {"nvidia.cuda": "ends the process (exit status 3) when libcudart.so.12 is opened"},
    "libOpenCL.so.1 = absent": {"opencl.loader": "there is no OpenCL loader (libOpenCL.so.1)"},
    "libOpenCL.so.1 = omit clFinish": {"opencl.loader": "lacks functions that the program needs: clFinish"},
    "clGetPlatformIDs = crash": {"pairing.run": "crashes (SIGSEGV) when its platforms are listed"},
    "clGetDeviceInfo = exit 1": {"pairing.run": "ends the process (exit status 1)"},
}

# Faults that are no problem, and the note they are worth.
NOTED = {
    "nvmlInit_v2 = delay 1100": ("nvidia.start", r"NVML starts in \d{4,} ms"),
    "nvmlDeviceGetUtilizationRates = fail 3": ("nvidia.queries", r"NVML_ERROR_NOT_SUPPORTED \(3\)"),
    "libcudart.so.12 = absent": ("nvidia.cuda", "CUDA is answered by libcuda.so.1"),
}


class Machines(DoctorCase):
    def test_each_machine_of_the_list(self):
        for machine in MACHINES:
            with self.subTest(machine):
                seen = self.examined(machine)
                self.assertEqual(set(seen.problems()), Expected(machine).problems)
                for check, words in SAID.get(machine, {}).items():
                    self.assertIn(words, seen.facts(check))
                worst = max(["ok", *seen.problems().values()], key=("ok", "warning", "failure").index)
                self.assertEqual(seen.exit_code, ("ok", "warning", "failure").index(worst))

    def test_every_problem_has_its_advice(self):
        for machine in SAID:
            for finding in self.examined(machine).findings:
                with self.subTest(machine, finding=finding["fact"]):
                    self.assertEqual(finding["verdict"] in doctor.PROBLEMS and not finding["advice"], False)

    def test_faults(self):
        for fault, expected in FAULTS.items():
            with self.subTest(fault):
                seen = self.examined("workstation", faults=[fault])
                self.assertEqual(seen.exit_code, 1 if fault == "nvmlShutdown = fail 999" else 2)
                for check, words in expected.items():
                    self.assertIn(check, seen.problems())
                    self.assertIn(words, seen.facts(check))

    def test_what_is_no_problem(self):
        for fault, (check, words) in NOTED.items():
            with self.subTest(fault):
                seen = self.examined("workstation", faults=[fault])
                self.assertEqual((seen.exit_code, seen.problems()), (0, {}))
                self.assertRegex(seen.facts(check), words)

    def test_hidden_from_cuda(self):
        run = self.examined("workstation", faults=["cudaGetDeviceCount = fail 100", "cuInit = fail 100"],
                            environment={"CUDA_VISIBLE_DEVICES": "7"})
        self.assertEqual(run.problems()["nvidia.cuda"], "failure")
        self.assertIn("CUDA_VISIBLE_DEVICES=7", run.of("nvidia.cuda")[0]["advice"])
        self.assertEqual(run.problems()["system.environment"], "warning")
        self.assertIn("no CUDA library answers", run.facts("pairing.listed"))
        self.assertEqual((run.report["installed"], run.report["listed"]), (1, 0))


class Drivers(DoctorCase):
    """No driver stops the doctor."""

    def test_one_that_hangs_costs_the_time_limit(self):
        started = time.monotonic()
        self.examined("both-vendors")
        healthy = time.monotonic() - started
        for fault, where in (("nvmlInit_v2 = hang", "when it is initialised (nvmlInit_v2)"),
                             ("libOpenCL.so.1 = hang", "when libOpenCL.so.1 is opened"),
                             ("clGetDeviceIDs = hang", "when its devices are listed (clGetDeviceIDs)"),
                             ("card0/gpu_busy_percent = hang", "gpu_busy_percent is read")):
            with self.subTest(fault):
                started = time.monotonic()
                seen = self.examined("both-vendors", "--timeout", "2", faults=[fault.replace("card0", "card1")])
                self.assertLess(time.monotonic() - started, 2 + 1 + 5 * healthy)
                self.assertEqual(seen.exit_code, 2)
                self.assertIn("does not return within 2 s", seen.facts("pairing.run"))
                self.assertIn(where, seen.facts("pairing.run"))
                self.assertIn("does not end within 2 s", seen.facts("answers.queryGPU"))

    def test_what_drivers_start_does_not_outlive_it(self):
        simulation = self.simulation("workstation", ["nvmlInit_v2 = fork 60000", "clGetPlatformIDs = spawn 60000"],
                                     program=doctor.DOCTOR)
        started = time.monotonic()
        run = simulation.run("--json", "--skip", "answers")
        # The sandbox ends only after the last process in it.
        self.assertLess(time.monotonic() - started, 20)
        self.assertEqual(Examined(run.exit_code, run.output).problems(), {})

    def test_one_that_prints_is_kept_from_the_report(self):
        run = self.doctor("workstation", "--json", faults=['nvmlInit_v2 = print "hello from a driver"',
                                                           'libOpenCL.so.1 = print "hello from OpenCL"'])
        self.assertNotIn("hello from a driver", run.output)
        json.loads(run.output)

    def test_its_last_words_are_quoted(self):
        seen = self.examined("workstation", faults=['nvmlInit_v2 = print "cannot go on"', "nvmlInit_v2 = exit 9"])
        self.assertIn('exit status 9) when it is initialised (nvmlInit_v2); it printed "cannot go on"',
                      seen.facts("pairing.run"))


class Speed(DoctorCase):
    EIGHT_EACH = """
[os-release]
id = debian
[nvidia]
count = 8
name = NVIDIA {i}
bus = 0x01
compute = 8.9
[card card0]
count = 8
address = 0000:80:00.0
vendor = 0x1002
product_name = Radeon {i}
mem_info_vram_total = 8GiB
mem_info_vram_used = 1GiB
gpu_busy_percent = 3
hwmon = hwmon0
hwmon0/temp1_input = 51000
[opencl]
mode = scripted
[platform]
name = NVIDIA CUDA
[device]
count = 8
name = NVIDIA {i}
nv_bus = 0x01
[platform]
name = AMD
[device]
count = 8
name = Radeon {i}
amd_topology_bus = 0x80
"""

    def test_processor_time(self):
        """Of the whole examination, its children included: what it takes where nothing else runs."""
        for text, most in ((self.EIGHT_EACH, 1.0), ("[os-release]\nid = debian\n", 0.3)):
            run = self.described(text, program=doctor.DOCTOR, wrap=["bash", "-c", 'TIMEFORMAT="%U %S"; time "$@"', "-"]).run("--json")
            seen = Examined(run.exit_code, run.output)
            self.assertEqual(seen.problems(), {})
            # Sanitizers take several times as long.
            factor = 10 if b"__asan_init" in doctor.DOCTOR.read_bytes() else 1
            self.assertLess(sum(map(float, run.errors.split())), most * factor)


if __name__ == "__main__":
    doctor.main()
