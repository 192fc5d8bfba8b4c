"""The benchmark under Oclgrind, an OpenCL device that checks what runs on it: calls of the interface, races between
work-items, memory outside buffers, memory that nobody has written. And what it reports when something is wrong, since
a checker that is silent may not be looking."""

import shutil
import sys
import tempfile
from pathlib import Path

import qz
import simulated

DRIVER = Path("/usr/lib/oclgrind/liboclgrind-rt-icd.so")
CHECKS = {"OCLGRIND_CHECK_API": "1", "OCLGRIND_DATA_RACES": "1", "OCLGRIND_UNIFORM_WRITES": "1",
          "OCLGRIND_UNINITIALIZED": "1", "OCLGRIND_MAX_ERRORS": "2"}
# The bus, as AMD's extension and as the common one give it. No device has to know them.
UNKNOWN_ATTRIBUTE = ("\nOclgrind - OpenCL runtime error detected\n\tFunction: clGetDeviceInfo\n"
                     "\tError:    CL_INVALID_VALUE\n\tFor argument 'param_name'\n\n")


class Checked(simulated.SimulatedCase, qz.SandboxCase):
    def setUp(self):
        folder = tempfile.mkdtemp(prefix="oclgrind-")
        self.addCleanup(shutil.rmtree, folder)
        self.folder = Path(folder)

    def benchmark(self, faults=(), build_options="-Dsqrt=fabs"):
        """A benchmark of two work-groups: its lines, and what Oclgrind reports of its calls and of its kernel. Instead
        of square roots, which take an interpreter long, it computes absolute values."""
        log = self.folder / "log"
        text = simulated.description("workstation").replace("share = 0.0003", "share = 1\nstretch = 20")
        settings = {**CHECKS, "OCLGRIND_LOG": str(log), "OCLGRIND_BUILD_OPTIONS": build_options}
        simulation = self.described(text, faults, program=simulated.BUILD / "tests/harness/smallBenchmark",
                                    environment=settings, opencl_driver=DRIVER)
        run = simulation.run("-v", "-single", "-benchShort", timeout=250)
        self.assertEqual((run.exit_code, run.report.live, run.report.misuse), (0, {}, {}), run.output)
        return run.output, run.errors, log.read_text("utf-8")

    def test_nothing_is_wrong(self):
        output, calls, kernel = self.benchmark(build_options="")
        self.assertRegex(output, r"\n    GpuBenchmarkOpenCL: \d+ rounds, avg ")
        self.assertEqual((calls, kernel), ("", ""))

    def test_a_missing_argument_is_reported(self):
        output, calls, _ = self.benchmark(["clSetKernelArg = fail -5"])
        self.assertIn("warmup failed: CL_INVALID_KERNEL_ARGS", output)
        self.assertIn("\tError:    CL_INVALID_KERNEL_ARGS\n\tNot all kernel arguments set\n", calls)

    def test_input_that_nobody_wrote_is_reported(self):
        _, calls, kernel = self.benchmark(["clEnqueueWriteBuffer = fail -5"])
        self.assertEqual(calls, "")
        self.assertIn("uninitialized value\n\tKernel: benchmarkKernel\n", kernel)

    def test_groups_that_write_the_same_place_are_reported(self):
        _, calls, kernel = self.benchmark(build_options="-Dsqrt=fabs -Dget_group_id(dimension)=0")
        self.assertEqual(calls, "")
        self.assertIn("Write-write data race at global memory address", kernel)

    def test_groups_beyond_the_buffers_are_reported(self):
        _, calls, kernel = self.benchmark(build_options="-Dsqrt=fabs -Dget_group_id(dimension)=2")
        self.assertEqual(calls, "")
        self.assertIn("Invalid read of size 4 at global memory address", kernel)

    def test_pairing_a_gpu_asks_for_what_it_may(self):
        card, drivers = self.folder / "drm/card0/device", self.folder / "drivers"
        for folder in (card, drivers):
            folder.mkdir(parents=True)
        for name, text in (("vendor", "0x1002"), ("product_name", "A Card"), ("mem_info_vram_total", str(8 << 30))):
            (card / name).write_text(text + "\n")
        (drivers / "driver.icd").write_text(f"{DRIVER}\n")
        sandbox = self.sandbox(drm=card.parents[1], more=["--ro-bind", str(drivers), str(drivers)])
        run = sandbox.start("-v", "-single", OCL_ICD_VENDORS=str(drivers), **CHECKS)
        self.assertEqual(run.wait(), 0)
        self.assertIn("OCL device 'Oclgrind Simulator': no PCI bus info available, name-match only\n", run.output)
        self.assertEqual(run.errors, 2 * UNKNOWN_ATTRIBUTE)


if __name__ == "__main__":
    if not DRIVER.exists():
        print("SKIPPED: Oclgrind is not installed")
        sys.exit(77)
    simulated.main()
