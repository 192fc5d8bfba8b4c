"""What drivers do to programs in the field, on simulated machines: they take seconds to start, never return, vanish
under the running program, and write to its standard output. Which test holds which failure: docs/reliability.md."""

import fcntl
import json
import os
import signal
import time

import simulated
import status_command
from companion import CompanionCase, figures
from qz import NAME, wait_until
from segment_bytes import ATTACHED, is_set

INTERVAL = 4.0
MISMATCH = "Driver/library version mismatch"

# One runtime of CUDA would do; without any, the driver's own library is asked, whose cuInit is what takes its time.
MACHINE = """
[os-release]
id = debian
[libraries]
cudart = none
[nvidia]
count = 2
name = NVIDIA {i}
bus = 0x01
compute = 8.9
utilisation = 11, 12, 13
temperature = 41, 42, 43
memory_total = 8GiB
memory_used = 1024MiB, 1025MiB, 1026MiB
[card card0]
address = 0000:83:00.0
vendor = 0x1002
product_name = Radeon
mem_info_vram_total = 8GiB
mem_info_vram_used = 1GiB, 2GiB, 3GiB
gpu_busy_percent = 31, 32, 33
hwmon = hwmon0
hwmon0/temp1_input = 51000, 52000, 53000
[opencl]
mode = scripted
[platform]
name = Everything
[device]
count = 2
name = NVIDIA {i}
nv_bus = 0x01
[device]
name = Radeon
amd_topology_bus = 0x83
"""


class SlowStart(CompanionCase):
    """Without persistence mode a driver is started by its first user, which takes seconds."""

    FAULTS = ("libnvidia-ml.so.1 = delay 400", "nvmlInit_v2 = delay 2000", "cuInit = delay 1000",
              "clGetPlatformIDs = delay 300")
    LASTS = 3.7  # without the second clGetPlatformIDs

    def test_it_is_waited_for(self):
        prompt = self.described(MACHINE).run("-v", "-queryNvCuda")
        started = time.monotonic()
        slow = self.described(MACHINE, faults=self.FAULTS).run("-v", "-queryNvCuda")
        self.assertGreater(time.monotonic() - started, self.LASTS)
        self.assertEqual((slow.exit_code, slow.output), (prompt.exit_code, prompt.output))
        self.assertEqual(slow.exit_code, 1)

    def test_it_is_paid_once_a_process(self):
        folder, run = self.companion(MACHINE, faults=self.FAULTS)
        # Ended by a signal that comes while the driver starts: in its own time, and in order.
        _, ended = self.companion(MACHINE, faults=self.FAULTS)
        wait_until(lambda: ended.report.calls.get("nvmlInit_v2"), what="the driver's start")
        ended.send(signal.SIGTERM)
        started = time.monotonic()
        first = self.published(folder, timeout=20)
        second = self.published(folder, first)
        self.assertGreater(time.monotonic() - started, INTERVAL)
        self.assertEqual([figures(block)[0][3] for block in (first, second)], [11, 12])
        self.assertEqual((run.stop()[0], ended.wait()), (0, 0))
        once = {"nvmlInit_v2": 1, "nvmlShutdown": 1, "nvmlDeviceGetCount_v2": 1, "cuInit": 1}
        for calls in (run.report.calls, ended.report.calls):
            self.assertEqual({name: calls.get(name) for name in once}, once)
        # Each device's place and capability: three attributes.
        self.assertEqual(run.report.calls["cuDeviceGetAttribute"], 2 * 3)
        self.assertEqual((run.report.live, ended.report.live), ({}, {}))


class NeverReturns(CompanionCase):
    """A call in the second cycle that never returns: of the driver, and of the kernel."""

    def state(self, folder):
        """What a user sees of it."""
        result = status_command.run("--json", directory=str(folder))
        return result.returncode, json.loads(result.stdout)

    def assert_readable(self, folder, block):
        """The lock is free, and the block is the one from before, whole."""
        with open(folder / NAME, "rb") as segment:
            fcntl.flock(segment, fcntl.LOCK_EX | fcntl.LOCK_NB)
            self.assertEqual(segment.read(), block)

    def test_readers_see_the_age_and_the_second_signal_ends_it(self):
        hanging = {"nvmlDeviceGetTemperature#1": signal.SIGTERM, "card0/gpu_busy_percent": signal.SIGINT}
        runs = {}
        for target in hanging:
            folder, run = self.companion(MACHINE, faults=[f"{target} = hang from 2"])
            runs[target] = folder, run, self.published(folder, timeout=20)
        for target, (folder, run, block) in runs.items():
            def reached(target=target, run=run):
                counted = run.report
                return counted.calls.get(target) == 2 or any(
                    path.endswith("/gpu_busy_percent") and count == 2 for path, count in counted.opens.items())
            wait_until(reached, what=f"the second call of {target}")
            written = os.stat(folder / NAME).st_mtime
            self.assert_readable(folder, block)
            time.sleep(max(0.0, written + INTERVAL + 1 - time.time()))
            code, report = self.state(folder)
            self.assertEqual((code, report["state"], report["writerAttached"]), (0, "ok", True))
            self.assertGreater(report["ageSeconds"], INTERVAL + 0.9)
            self.assertEqual([gpu["usagePercent"] for gpu in report["gpus"]], [11, 11, 31])
        for target, (folder, run, block) in runs.items():
            run.send(hanging[target])
        time.sleep(1)
        for target, (folder, run, block) in runs.items():
            with self.subTest(target):
                self.assertIsNone(run.exit_code)
                self.assert_readable(folder, block)
                self.assertEqual(run.stop()[0], 128 + signal.SIGTERM)
                # As after a kill: the data stay, marked as no longer written.
                self.assert_readable(folder, block)
                self.assertFalse(is_set(folder / NAME, ATTACHED))
                self.assertEqual(self.state(folder)[1]["state"], "stale")


class DriverOfAnotherVersion(CompanionCase):
    """The driver was updated under the system: the library and the kernel's module do not fit each other."""

    FAILS = ("nvmlDeviceGetUtilizationRates", "nvmlDeviceGetTemperature", "nvmlDeviceGetMemoryInfo")

    def test_from_the_start(self):
        simulation = self.described(MACHINE, faults=["nvmlInit_v2 = fail 18"])
        run = simulation.run("-v", "-single")
        lines = self.lines(run)
        at = lines.index(f"Failed to initialize NVML: {MISMATCH}")
        self.assertEqual(lines[at + 1:at + 3], ["Failed to shutdown NVML: Uninitialized", "0 CUDA GPU(s) found"])
        self.assertEqual([line for line in lines if "GPU Count" in line],
                         ["CUDA GPU Count : 0", "AMD GPU Count: 1", "METAL GPU Count: 0", "Total GPU Count: 1"])
        self.assertNotIn("nvmlDeviceGetCount_v2", run.report.calls)
        # AMD's GPU as on a machine without NVIDIA's library, except for that library's own lines.
        alone = self.described(MACHINE, faults=["libnvidia-ml.so.1 = absent"]).run("-v", "-single")
        rest = self.lines(alone)
        rest = rest[rest.index("0 CUDA GPU(s) found - NVML not available") + 1:]
        self.assertEqual(lines[at + 3:], rest + ["Failed to shutdown NVML: Uninitialized"])
        self.assertIn("    #0 : Gpu Usage:      31 %", lines)
        answers = {query: simulation.run(query).exit_code for query in ("-queryGPU", "-queryNvCuda", "-queryNvOptix")}
        self.assertEqual(answers, {"-queryGPU": 1, "-queryNvCuda": 0, "-queryNvOptix": 0})

    def test_while_running(self):
        # Two devices, each asked once a cycle: from the second cycle on everything fails.
        faults = [f"{name} = fail 18 from 3" for name in self.FAILS] + ["nvmlShutdown = fail 18"]
        folder, run = self.companion(MACHINE, faults=faults)
        first = self.published(folder)
        second = self.published(folder, first)
        third = self.published(folder, second)
        # A card does not change its size: the total stays.
        self.assertEqual(figures(first), 2 * [(41, 8192, 1024, 11)] + [(51, 8192, 1024, 31)])
        self.assertEqual(figures(second), 2 * [(None, 8192, None, None)] + [(52, 8192, 2048, 32)])
        self.assertEqual(figures(third), 2 * [(None, 8192, None, None)] + [(53, 8192, 3072, 33)])
        gpus = json.loads(status_command.run("--json", directory=str(folder)).stdout)["gpus"]
        self.assertEqual([(gpu["listed"], gpu["figuresValid"]) for gpu in gpus], [(True, False), (True, False), (True, True)])
        self.assertEqual(status_command.run(directory=str(folder)).stdout.decode().count(" no answer "), 2)
        self.assertEqual(run.stop()[0], 0)
        self.assertEqual(self.lines(run)[-1], f"Failed to shutdown NVML: {MISMATCH}")
        self.assertEqual(list(folder.iterdir()), [])


class PrintingDriver(CompanionCase):
    """A driver that writes to standard output, while it is loaded and in a call. It may look like an answer."""

    TEXT = "Total GPU Count: 0\\nGpuBenchmarkOpenCL: performance 99.000 GPS\\nno end of line"
    PRINTED = TEXT.replace("\\n", "\n")
    WHERE = ("libnvidia-ml.so.1", "libcuda.so.1", "libOpenCL.so.1", "nvmlInit_v2", "nvmlDeviceGetTemperature", "cuInit",
             "clGetPlatformIDs", "clGetDeviceInfo", "nvmlShutdown")

    def test_the_exit_code_is_the_answer(self):
        quiet = self.described(MACHINE)
        loud = self.described(MACHINE, faults=[f'{where} = print "{self.TEXT}"' for where in self.WHERE])
        for arguments, code in ((["-queryGPU"], 1), (["-queryNvCuda"], 1), (["-queryNvOptix"], 1),
                                (["-queryAmdRt"], 0), (["-single", "-v"], 0)):
            with self.subTest(arguments):
                expected, run = quiet.run(*arguments), loud.run(*arguments)
                self.assertEqual((expected.exit_code, run.exit_code), (code, code))
                self.assertGreaterEqual(run.output.count(self.PRINTED), len(self.WHERE))
                # None of the program's own output is lost.
                self.assertEqual(run.output.replace(self.PRINTED, ""), expected.output)

    def test_the_score_is_the_answer(self):
        machine = simulated.description("scripted")
        loud = self.described(machine, faults=[f'{where} = print "{self.TEXT}"' for where in (
            "libOpenCL.so.1", "clBuildProgram", "clFinish")])
        self.assertEqual([self.described(machine).run("-returnGPS", "-benchShort").exit_code,
                          loud.run("-returnGPS", "-benchShort").exit_code], 2 * [17])


if __name__ == "__main__":
    simulated.main()
