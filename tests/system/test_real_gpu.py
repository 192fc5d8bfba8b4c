"""benchmarks/real-gpu on a simulated machine, beside an nvidia-smi that agrees with the machine or does not."""

import json
import os
import sys
import tempfile
import unittest
from pathlib import Path

import simulated

MACHINE = """
[machine]
summary = two NVIDIA GPUs with steady figures and a scripted benchmark
fast_random = yes
[os-release]
id = debian
[nvidia]
name = NVIDIA GeForce RTX 4090
bus = 0x01
compute = 8.9
utilisation = 12
temperature = 41
memory_total = 24564MiB
memory_used = 1430MiB
[nvidia]
name = Tesla V100-SXM2-16GB
bus = 0xc1
compute = 7.0
utilisation = 99
temperature = 66
memory_total = 16384MiB
memory_used = 9000MiB
[opencl]
mode = scripted
round_ms = 50, 2000
sleep = no
results = 1.5, 2.5, 3.5, 4.5
[platform]
name = NVIDIA CUDA
[device]
name = NVIDIA GeForce RTX 4090
nv_bus = 0x01
[device]
name = Tesla V100-SXM2-16GB
nv_bus = 0xc1
"""
# nvidia-smi's output for that machine. It counts 300 MiB of the used memory separately, as the driver's own.
TRUTH = [
    {"name": "NVIDIA GeForce RTX 4090", "pci.bus": "0x01", "memory.total": "24564", "memory.used": "1130",
     "memory.reserved": "300", "memory.free": "23134", "temperature.gpu": "41", "utilization.gpu": "12",
     "compute_cap": "8.9", "driver_version": "550.1"},
    {"name": "Tesla V100-SXM2-16GB", "pci.bus": "0xC1", "memory.total": "16384", "memory.used": "8700",
     "memory.reserved": "300", "memory.free": "7384", "temperature.gpu": "66", "utilization.gpu": "99",
     "compute_cap": "7.0", "driver_version": "550.1"},
]
NVIDIA_SMI = """#!{python}
import json, sys
asked = [argument for argument in sys.argv[1:] if argument.startswith("--query-gpu=")]
if len(asked) != 1 or "--format=csv,noheader,nounits" not in sys.argv:
    sys.exit("unknown arguments: " + " ".join(sys.argv[1:]))
for gpu in json.loads({truth!r}):
    print(", ".join(gpu[field] for field in asked[0].partition("=")[2].split(",")))
"""


def truth_with(index, **figures):
    """nvidia-smi's answers with some of one GPU's replaced; "_" in a figure's name replaces its dot."""
    truth = [dict(one) for one in TRUTH]
    truth[index].update({name.replace("_", ".", 1): value for name, value in figures.items()})
    return truth


class RealGpu(simulated.SimulatedCase):
    def build(self, folder):
        """A build folder whose program has its benchmark on buffers of two kilobytes."""
        for name, target in (("qzGpuInfo", "tests/harness/smallBenchmark"), ("qzGpuStatus", "qzGpuStatus"),
                             ("benchmarks", "benchmarks")):
            Path(folder, name).symlink_to(simulated.BUILD / target)
        return folder

    def start(self, truth=None, smi=None, small=True, **settings):
        """Starts the comparison beside an nvidia-smi that says `truth`, or is the script `smi`."""
        folder = tempfile.TemporaryDirectory(prefix="qzTest-")
        self.addCleanup(folder.cleanup)
        script = Path(folder.name, "nvidia-smi")
        script.write_text(smi or NVIDIA_SMI.format(python=sys.executable, truth=json.dumps(truth)), encoding="utf-8")
        script.chmod(0o755)
        settings["environment"] = {"PATH": f"{folder.name}:{os.environ['PATH']}", "PYTHONDONTWRITEBYTECODE": "1"}
        simulation = self.described(MACHINE, program=simulated.SOURCE / "benchmarks/real-gpu", **settings)
        build = self.build(folder.name) if small else simulated.BUILD
        return simulation.start(str(build))

    def finish(self, run):
        """The exit code, the failed lines, and the whole output."""
        run.wait(timeout=100)
        output = run.output + run.errors
        return run.exit_code, [line for line in output.splitlines() if line.startswith("FAILED")], output

    def test_agreement(self):
        code, failed, output = self.finish(self.start(TRUTH, small=False))
        self.assertEqual((code, failed), (0, []), output)
        for line in ("ok      single run, NVIDIA GPUs: 2 (2 expected)",
                     "ok      single run #0, name: NVIDIA GeForce RTX 4090 (NVIDIA GeForce RTX 4090 expected)",
                     "ok      single run #1, PCI bus of its OpenCL device: 193 (193 expected)",
                     "ok      single run #1, memory used, MiB: 9000.0 (9000.0 expected, give or take 64)",
                     "ok      `-queryGPU`, exit code: 1 (1 expected)",
                     "ok      `-queryNvCuda`, exit code: 1 (1 expected)",
                     "ok      `-queryNvOptix`, exit code: 1 (1 expected)",
                     "ok      `-queryAmdRt`, exit code: 0 (0 expected)",
                     "ok      benchmark 1, GPUs with a score: 2 (2 expected)",
                     "ok      benchmark 2, GPUs with a score: 2 (2 expected)",
                     "ok      companion, NVIDIA GPUs published: 2 (2 expected)",
                     "ok      companion #1, temperature, C: 66 (66.0 expected, give or take 5)",
                     "ok      companion, exit code: 0 (0 expected)"):
            self.assertIn(line, output.splitlines(), output)
        self.assertEqual(len([line for line in output.splitlines() if " rounds of 2000.00 ms: " in line]), 4, output)

    def test_each_difference_is_named(self):
        both = ("single run", "companion")
        cases = {
            "name": (truth_with(0, name="NVIDIA GeForce RTX 4080"), [f"{who} #0, name" for who in both]),
            "memory in all": (truth_with(1, memory_total="16386", memory_free="7386"),
                              [f"{who} #1, memory in all, MiB" for who in both]),
            "memory in use": (truth_with(1, memory_free="7319"),
                              [f"{who} #1, memory {kind}, MiB" for who in both for kind in ("free", "used")]),
            "temperature": (truth_with(0, temperature_gpu="47"), [f"{who} #0, temperature, C" for who in both]),
            "no temperature": (truth_with(0, temperature_gpu="[N/A]"), [f"{who} #0, temperature, C" for who in both]),
            "no load": (truth_with(1, utilization_gpu="[N/A]"), [f"{who} #1, load is known" for who in both]),
            "bus": (truth_with(1, pci_bus="0xC2"), ["single run #1, PCI bus of its OpenCL device"]),
            "too few": (TRUTH[:1], ["single run, NVIDIA GPUs", "companion, NVIDIA GPUs published"]),
            "too old for OptiX": ([{**one, "compute_cap": "7.4"} for one in TRUTH], ["`-queryNvOptix`, exit code"]),
        }
        runs = {name: self.start(truth) for name, (truth, _) in cases.items()}
        for name, run in runs.items():
            with self.subTest(name):
                code, failed, output = self.finish(run)
                self.assertEqual(code, 1, output)
                self.assertEqual([line.split(": ")[0] for line in failed],
                                 [f"FAILED  {what}" for what in cases[name][1]], output)

    def test_within_the_tolerance(self):
        near = truth_with(0, temperature_gpu="46", memory_free="23198")
        code, failed, output = self.finish(self.start(near))
        self.assertEqual((code, failed), (0, []), output)

    def test_a_program_that_fails(self):
        runs = {
            "no score": (self.start(TRUTH, faults=["clBuildProgram = fail -11"]),
                         ["FAILED  benchmark 1, GPUs with a score: 0 (2 expected)",
                          "FAILED  benchmark 2, GPUs with a score: 0 (2 expected)"]),
            "no temperature": (self.start(TRUTH, faults=["nvmlDeviceGetTemperature = fail 3"]),
                               [f"FAILED  {who} #{index}, temperature, C: None ({degrees} expected, give or take 5)"
                                for who in ("single run", "companion") for index, degrees in ((0, 41.0), (1, 66.0))]),
        }
        for name, (run, expected) in runs.items():
            with self.subTest(name):
                code, failed, output = self.finish(run)
                self.assertEqual((code, failed), (1, expected), output)

    def test_nothing_to_compare_with(self):
        cases = {
            "#!/bin/sh\necho 'No devices were found'; exit 6": (77, "SKIPPED: nvidia-smi finds no GPU\n"),
            "#!/bin/sh\necho 'NVIDIA-SMI has failed'; exit 9":
                (1, "nvidia-smi does not answer (9):\nNVIDIA-SMI has failed\n\n"),
            "#!/bin/sh\necho 'one, two'": (1, "nvidia-smi does not answer (0):\none, two\n\n"),
            "#!/bin/sh\nexit 0": (1, "nvidia-smi does not answer (0):\n\n"),
        }
        for smi, expected in cases.items():
            with self.subTest(smi):
                code, _, output = self.finish(self.start(smi=smi))
                self.assertEqual((code, output), expected)


if __name__ == "__main__":
    simulated.main()
