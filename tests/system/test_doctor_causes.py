"""The first lines of qzGpuDoctor's report name the cause, as somebody who looks for it would read them."""

import re
import subprocess
import unittest

import doctor
from doctor import DoctorCase
from simulated import description

BOTH = description("both-vendors")
NO_NVIDIA_LIBRARIES = "[libraries]\nnvml = none\ncudart = none\nopencl = none\n"
DEBIAN = "[os-release]\nid = debian\n"
GPU = "[pci 0000:01:00.0]\nvendor = {}\ndevice = 0x2504\nclass = 0x030000\ndriver = {}\n"

# What is wrong: the machine, faults, further settings; then the check that has to report it, words of the first line,
# and words of the advice.
CAUSES = {
    "nouveau": (DEBIAN + NO_NVIDIA_LIBRARIES + GPU.format("0x10de", "nouveau") + "[kernel]\nmodules = nouveau\n", [], {},
                "pci.drivers", "1 GPU installed, 0 listed: 0000:01:00.0 is not, since the kernel driver nouveau has it",
                "sudo apt install nvidia-driver"),
    "no kernel driver": (DEBIAN + NO_NVIDIA_LIBRARIES + GPU.format("0x1002", "none") + "[kernel]\nmodules = \n", [], {},
                         "amd.module", "no kernel driver is bound to it", "sudo modprobe amdgpu"),
    "no library": (BOTH.replace("[os-release]", NO_NVIDIA_LIBRARIES + "[os-release]"), [], {},
                   "nvidia.nvml", "NVML, the driver's management library, could not be opened", "NVIDIA"),
    "an update without a reboot": (BOTH, ["nvmlInit_v2 = fail 18"], {}, "nvidia.start",
                                   "NVML_ERROR_LIB_RM_VERSION_MISMATCH (18)", "reboot"),
    "a driver that exits": (BOTH, ["nvmlInit_v2 = exit 3"], {}, "nvidia.start", "(nvmlInit_v2)", "dmesg"),
    "a lost GPU": (description("farm-node"), ["nvmlDeviceGetHandleByIndex_v2#1 = fail 15"], {}, "nvidia.devices",
                   "NVML gives no access to one of its GPUs: NVML_ERROR_GPU_IS_LOST (15)", "fallen off the bus"),
    "a GPU lost while running": (BOTH, ["nvmlDeviceGetTemperature = fail 15"], {}, "nvidia.queries",
                                 "does not answer nvmlDeviceGetTemperature: NVML_ERROR_GPU_IS_LOST (15)", "power and"),
    "a runtime newer than the driver":
        (BOTH.replace("[os-release]", "[libraries]\ncudart = 13\ncuda = no\n[os-release]"), ["cudaGetDeviceCount = fail 35"],
         {}, "nvidia.cuda", "no CUDA library answers", "newer than the driver"),
    "a GPU hidden from CUDA": (BOTH, ["cudaGetDeviceCount = fail 100", "cuInit = fail 100"],
                               {"environment": {"CUDA_VISIBLE_DEVICES": ""}}, "nvidia.cuda", "no CUDA library answers",
                               "CUDA_VISIBLE_DEVICES= hides GPUs"),
    "an OpenCL driver that crashes": (BOTH, ["clGetPlatformIDs = crash"], {}, "opencl.icd",
                                      "crashes (SIGSEGV) when its platforms are listed (clGetPlatformIDs)", "to leave it out"),
    "no OpenCL driver": (description("opencl-no-platform"), [], {}, "opencl.platforms", "the loader knows no OpenCL driver",
                         "install NVIDIA's OpenCL driver"),
    "no room to publish": (BOTH, [], {"shm": "read-only"}, "system.shm", "may not write to /dev/shm", "chmod 1777"),
}


class Causes(DoctorCase):
    def test_each(self):
        for name, (text, faults, settings, check, first, advice) in CAUSES.items():
            with self.subTest(name):
                seen = self.examined(text, described=True, faults=faults, **settings)
                self.assertEqual(seen.problems().get(check), "failure")
                self.assertIn(first, seen.report["headline"])
                self.assertIn(advice, " ".join(finding["advice"] or "" for finding in seen.of(check)))
                self.assertEqual(seen.exit_code, 2)

    def test_nothing_is_said_of_what_was_not_reached(self):
        """AMD's cards come after NVIDIA's GPUs."""
        seen = self.examined(BOTH, described=True, faults=["nvmlInit_v2 = crash"])
        self.assertEqual([finding["verdict"] for finding in seen.of("amd.cards")], ["skipped"])
        self.assertNotIn("amd.cards", seen.problems())

    def test_what_a_virtual_machine_has_is_not_missing(self):
        seen = self.examined(BOTH + "[pci 0000:01:00.0]\ndriver = vfio-pci\n", described=True,
                             faults=["nvmlDeviceGetCount_v2 = answer 0"])
        self.assertEqual((seen.report["installed"], seen.report["listed"]), (1, 1))
        self.assertEqual((seen.exit_code, seen.problems()), (0, {}))
        self.assertIn("vfio-pci", seen.facts("pci.drivers") + seen.facts("pci.devices"))


class Program(unittest.TestCase):
    def test_it_needs_no_vendors_library(self):
        linked = subprocess.run(["ldd", doctor.DOCTOR], stdout=subprocess.PIPE, text=True, timeout=20, check=True).stdout
        self.assertIn("libQt5Core.so.5", linked)
        self.assertIsNone(re.search(r"lib(nvidia|cuda|OpenCL|amd|hsa|Qt5(?!Core))", linked), linked)


if __name__ == "__main__":
    doctor.main()
