"""From a simulated machine's GPUs to a real Prometheus: the companion publishes, `qzGpuStatus --prometheus --output`
writes a file for node_exporter's textfile collector, and what Prometheus scraped is asked for over its HTTP API."""

import os
import signal
import subprocess
import tempfile
import time
from pathlib import Path

import exposition
import simulated
import status_command
from prometheus_server import Monitoring, missing_programs
from qz import NAME, wait_until
from segment_bytes import Segment, block
from simulated import SimulatedCase
from test_status_forms import IDLE, NAVI, RTX, odd_block

MIB = 2**20
OK, NO_DATA, STALE = 0, 1, 3
NAMES = ['NVIDIA "RTX" 4090\\n \\', "two\ufffdlines\ufffd{gpu=\"9\"}", "G\ufffdForce \ufffd\ufffd größer 日本", "Radeon Pro W7900"]
MACHINE = r"""
[os-release]
id = debian
[nvidia]
name = "NVIDIA \"RTX\" 4090\\n \\"
bus = 0x01
compute = 8.9
utilisation = 45
temperature = 60, 61
memory_total = 24576MiB
memory_used = 1024MiB
[nvidia]
name = "two\nlines\t{gpu=\"9\"}"
bus = 0x02
compute = 7.0
utilisation = 0
temperature = 0
memory_total = 16384MiB
memory_used = 16384MiB
[nvidia]
name = "G\xe9Force \xff\xfe größer 日本"
bus = 0x03
compute = 7.5
[card card1]
address = 0000:83:00.0
vendor = 0x1002
product_name = Radeon Pro W7900
mem_info_vram_total = 46068MiB
mem_info_vram_used = 4096MiB
gpu_busy_percent = 100
hwmon = hwmon5
hwmon5/temp1_input = 55000
[opencl]
mode = scripted
[platform]
name = Everything
[device]
name = first
nv_bus = 0x01
[device]
name = gfx1100
amd_topology_bus = 0x83
extensions = cl_khr_fp64 cl_khr_ray_tracing
[faults]
nvmlDeviceGetMemoryInfo#2 = fail 3
nvmlDeviceGetTemperature#2 = fail 15
nvmlDeviceGetUtilizationRates#2 = fail 15
"""
# What Prometheus then has of each GPU, in the global order; None: no series.
SERIES = {
    "info": (1, 1, 1, 1),
    "figures_valid": (1, 1, 0, 1),
    "opencl_matched": (1, 0, 0, 1),
    "optix_capable": (1, 0, 1, 0),
    "amd_ray_tracing": (0, 0, 0, 1),
    "usage_ratio": (0.45, 0, None, 1),
    "temperature_celsius": (60, 0, None, 55),
    "memory_total_bytes": (24576 * MIB, 16384 * MIB, None, 46068 * MIB),
    "memory_used_bytes": (1024 * MIB, 16384 * MIB, None, 4096 * MIB),
    "memory_free_bytes": (23552 * MIB, 0, None, 41972 * MIB),
    "benchmark_score": (None, None, None, None),
}
GPU_LABELS = [("0", "Cuda", "0"), ("1", "Cuda", "1"), ("2", "Cuda", "2"), ("3", "AMD", "0")]
EVERY_GPU_SERIES = '{__name__=~"qzgpuinfo_gpu.*"}'


class Companion:
    """The program on a simulated machine, and where it publishes."""

    def __init__(self, case, machine):
        folder = tempfile.TemporaryDirectory(prefix="qzTest-", dir="/dev/shm")
        case.addCleanup(folder.cleanup)
        self.directory = folder.name
        make = case.described if "\n" in machine else case.simulation
        self._simulation = make(machine, shm=Path(self.directory))
        self.start()

    def start(self):
        self.run = self._simulation.start()

    def put_out(self, path, *arguments):
        """What a timer does; the command's exit code."""
        result = status_command.run("--prometheus", "--output", str(path), *arguments, directory=self.directory,
                                    timeout=60)
        assert (result.stdout, result.stderr) == (b"", b""), result
        return result.returncode

    def kill(self):
        self.run.stop(signal.SIGKILL)


class MonitoringCase(SimulatedCase):
    def setUp(self):
        missing = missing_programs()
        if missing:
            self.skipTest("not on this machine: " + ", ".join(missing))
        folder = tempfile.TemporaryDirectory(prefix="qzTest-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)


class Scraped(MonitoringCase):
    def setUp(self):
        super().setUp()
        self.companion = Companion(self, MACHINE)
        self.monitoring = Monitoring(self.folder)
        self.addCleanup(self.monitoring.close)
        self.file = self.monitoring.textfiles / "qzgpuinfo.prom"
        wait_until(self.monitoring.is_ready, 30, "Prometheus' readiness")

    def wait_for(self, expression, expected, put_out=True, timeout=30):
        """Writes the file again and again, as a timer would, until Prometheus has the value."""
        def has_it():
            if put_out:
                self.companion.put_out(self.file)
            return self.monitoring.value(expression) == expected
        wait_until(has_it, timeout, f"{expression} = {expected}")

    def test_the_simulated_figures_come_back(self):
        self.assertEqual(self.companion.put_out(self.file, "--wait", "30"), OK)
        self.wait_for("qzgpuinfo_up", 1, put_out=False)
        self.assertEqual(self.monitoring.query("qzgpuinfo_gpu_info"), [
            ({"__name__": "qzgpuinfo_gpu_info", "gpu": gpu, "kind": kind, "device": device, "name": name}, 1)
            for (gpu, kind, device), name in zip(GPU_LABELS, NAMES)])
        for name, values in SERIES.items():
            with self.subTest(name):
                self.assertEqual(
                    [(tuple(labels[label] for label in ("gpu", "kind", "device")), value)
                     for labels, value in self.monitoring.query("qzgpuinfo_gpu_" + name)],
                    [(labels, value) for labels, value in zip(GPU_LABELS, values) if value is not None])
        for name, value in (("qzgpuinfo_gpus", 4), ("qzgpuinfo_writer_attached", 1), ("node_textfile_scrape_error", 0)):
            self.assertEqual(self.monitoring.value(name), value, name)
        # A label that has to be escaped in a query, too, finds the GPU that it names.
        found = self.monitoring.query(r'qzgpuinfo_gpu_info{name="NVIDIA \"RTX\" 4090\\n \\"}')
        self.assertEqual([labels["gpu"] for labels, _ in found], ["0"])

    def test_a_killed_companions_gpus_vanish(self):
        temperature = 'qzgpuinfo_gpu_temperature_celsius{gpu="0"}'
        self.assertEqual(self.companion.put_out(self.file, "--wait", "30"), OK)
        self.wait_for(temperature, 61)
        self.companion.kill()
        self.assertEqual(self.companion.put_out(self.file), STALE)
        self.wait_for("qzgpuinfo_up", 0, put_out=False)
        self.assertEqual(self.monitoring.query(EVERY_GPU_SERIES), [])
        self.assertEqual(self.monitoring.value("qzgpuinfo_writer_attached"), 0)
        published = os.stat(os.path.join(self.companion.directory, NAME)).st_mtime
        self.assertAlmostEqual(self.monitoring.value("qzgpuinfo_data_timestamp_seconds"), published, delta=0.01)
        self.assertAlmostEqual(self.monitoring.value("time() - qzgpuinfo_data_timestamp_seconds"),
                               time.time() - published, delta=5)
        # What was measured while it ran stays in the history, and the next companion goes on with it.
        self.assertEqual(self.monitoring.value(f"max_over_time({temperature}[5m])"), 61)
        self.companion.start()
        self.wait_for(temperature, 60)

    def test_a_file_that_is_no_longer_written_tells_its_age(self):
        self.assertEqual(self.companion.put_out(self.file, "--wait", "30"), OK)
        self.wait_for("time() - qzgpuinfo_data_timestamp_seconds > bool 3", 1, put_out=False)


class Checked(MonitoringCase):
    """`promtool check metrics` reads and judges the file as Prometheus' makers want it."""

    MACHINES = ("no-gpu", "both-vendors", "odd-names", "lying-driver", "no-opencl", "twenty-gpus", MACHINE)

    def check(self, path, up):
        text = path.read_bytes()
        self.assertIn(f"\nqzgpuinfo_up {up}\n".encode(), text)
        exposition.parse(text)
        self.judge(text)

    def judge(self, text):
        result = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True, timeout=30, check=False)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, b"", b""))

    def test_odd_names_and_no_segment(self):
        for data in (None, odd_block(), block([RTX, IDLE], [NAVI])):
            with self.subTest(data is not None), Segment(data) as segment:
                self.judge(status_command.run("--prometheus", directory=segment.directory).stdout)

    def test_every_machine_fresh_and_stale(self):
        companions = [Companion(self, machine) for machine in self.MACHINES]
        path = self.folder / "gpus.prom"
        for machine, companion in zip(self.MACHINES, companions):
            with self.subTest(machine):
                self.assertEqual(companion.put_out(path, "--wait", "30"), OK)
                self.check(path, up=1)
                companion.kill()
                self.assertEqual(companion.put_out(path), STALE)
                self.check(path, up=0)

    def test_no_companion(self):
        path = self.folder / "gpus.prom"
        result = status_command.run("--prometheus", "--output", str(path), directory=str(self.folder))
        self.assertEqual(result.returncode, NO_DATA)
        self.check(path, up=0)


if __name__ == "__main__":
    simulated.main()
