"""An OpenCL driver that takes every program down, or never answers, as soon as the loader asks which platforms there
are; and the way to leave it out. With the real loader, and PoCL as the driver beside it."""

import os
import shutil
import signal
import tempfile
import time
from pathlib import Path

import qz
from neighbours import UserSandbox

BROKEN = Path(os.environ["QZGPUINFO_BUILD"]) / "tests/system/drivers/brokenIcd/libbrokenIcd.so.1"
INSTALLED = Path("/etc/OpenCL/vendors")
ASKED = "driver is asked\n"
# What PoCL leaves behind is not the program's; only a sanitizer build reports it.
QUIET = {"ASAN_OPTIONS": "detect_leaks=0"}
START = qz.SHORT_BANNER + qz.VERBOSE + qz.INIT + qz.NO_NVML + "0 CUDA GPU(s) found - NVML not available\n"
WITHOUT = ("AMD GPU OpenCL: 1 platform(s) found\n  OpenCL platform 0: Portable Computing Language\n"
           "AMD GPU OpenCL: Platforms found, but no GPU devices in any platform.\n")


class BrokenDriver(qz.SandboxCase):
    def setUp(self):
        pocl = [path for path in INSTALLED.glob("*.icd") if b"pocl" in path.read_bytes().lower()]
        if not pocl:
            self.skipTest("no PoCL here (package pocl-opencl-icd)")
        folder = tempfile.mkdtemp(prefix="icd-")
        self.addCleanup(shutil.rmtree, folder)
        self.all, self.chosen, card = Path(folder, "all"), Path(folder, "chosen"), Path(folder, "drm/card0/device")
        for path in (self.all, self.chosen, card):
            path.mkdir(parents=True)
        for vendors in (self.all, self.chosen):
            shutil.copy(pocl[0], vendors)
        self.one = self.chosen / pocl[0].name
        (self.all / "broken.icd").write_text(f"{BROKEN}\n")
        for name, text in (("vendor", "0x1002"), ("product_name", "A Card"), ("mem_info_vram_total", str(8 << 30))):
            (card / name).write_text(text + "\n")
        self.drm = card.parents[1]

    def machine(self):
        """A sandbox with one AMD card, where both drivers are installed."""
        # PoCL looks for the processor's topology.
        sandbox = UserSandbox(False, drm=self.drm, more=["--ro-bind-try", "/sys/devices/system", "/sys/devices/system",
                                                          "--ro-bind", str(self.all), str(INSTALLED)])
        self.addCleanup(sandbox.close)
        return sandbox

    def test_it_crashes(self):
        sandbox = self.machine()
        code, output = sandbox.run("-v", "-single")
        self.assertEqual((code, output), (128 + signal.SIGSEGV, START + ASKED))
        code, output = sandbox.run()
        self.assertEqual((code, output), (128 + signal.SIGSEGV, qz.LONG_BANNER + qz.INIT + qz.CREATED + qz.NO_NVML + ASKED))
        # As after a kill: the next start takes over what is left.
        self.assertEqual(sandbox.read(), bytes(qz.SIZE))
        run = sandbox.start(OCL_ICD_VENDORS=str(self.chosen), **QUIET)
        run.wait_for(qz.USING_EXISTING)
        run.wait_for(qz.CONTINUOUS)
        self.assertEqual(run.stop()[0], 0)
        self.assertEqual(os.listdir(sandbox.folder), [])

    def test_it_never_answers(self):
        sandbox = self.machine()
        run = sandbox.start("-v", "-single", QZ_TEST_DRIVER="block")
        run.wait_for(ASKED)
        # A single run has nothing to put in order: the first signal ends it.
        self.assertEqual(run.stop(), (128 + signal.SIGTERM, START + ASKED))

        run = sandbox.start(QZ_TEST_DRIVER="block")
        run.wait_for(ASKED)
        # No reader waits for the lock, and none takes the segment for data.
        self.assertFalse(sandbox.is_ready())
        run.send(signal.SIGTERM)
        time.sleep(1)
        self.assertTrue(run.is_running)
        self.assertFalse(sandbox.is_ready())
        self.assertEqual(run.stop()[0], 128 + signal.SIGTERM)

    def test_it_is_left_out(self):
        sandbox = self.machine()
        for chosen in (self.chosen, self.one):
            for query, answer in (("-single", 0), ("-queryGPU", 1)):
                with self.subTest(chosen=chosen.name, query=query):
                    code, output = sandbox.run("-v", query, OCL_ICD_VENDORS=str(chosen), **QUIET)
                    self.assertEqual(code, answer)
                    self.assertTrue(output.startswith(START + WITHOUT), output)


if __name__ == "__main__":
    qz.main()
