"""The advice for each distribution where OpenCL is missing: what the program prints between its start and the counts."""

import simulated
from simulated import SimulatedCase

NVIDIA = """
[nvidia]
name = NVIDIA One
bus = 0x1c
compute = 8.9
utilisation = 10
temperature = 40
memory_total = 8GiB
memory_used = 1GiB
"""
AMD = """
[card card0]
address = 0000:0c:00.0
vendor = 0x1002
product_name = Radeon One
mem_info_vram_total = 8GiB
mem_info_vram_used = 1GiB
gpu_busy_percent = 20
"""
NO_LIBRARY = "[libraries]\nnvml = {nvml}\nopencl = none\n"
NO_PLATFORM = "[libraries]\nnvml = {nvml}\nopencl = libOpenCL.so.1\n[opencl]\nmode = scripted\n"

CUDA_PAGE = "https://developer.nvidia.com/cuda-downloads"
NVIDIA_LINES = {
    "debian": ["  -> Ubuntu/Debian: sudo apt install nvidia-opencl-icd",
               "  -> Or: sudo apt install nvidia-opencl-icd-$(nvidia-smi --query-gpu=driver_version "
               "--format=csv,noheader | cut -d. -f1)"],
    "redhat": ["  -> RHEL/Rocky: sudo dnf install nvidia-driver-cuda-libs",
               "  -> Or install the CUDA toolkit from " + CUDA_PAGE],
    "other": ["  -> Install: nvidia-opencl-icd  or  cuda-opencl", "  -> See: " + CUDA_PAGE],
}
AMD_LINE = {
    "debian": "       Ubuntu/Debian: sudo apt install mesa-opencl-icd",
    "redhat": "       RHEL/Rocky:    Not available for rocky 9 any more",
    "other": "       Install package: mesa-opencl-icd  (or mesa-libOpenCL)",
}
AMD_OPTIONS = [
    "       Supported GPUs: Radeon RX 7700 and newer (RDNA3+), Radeon PRO W6800+, AMD Instinct MI100+",
    "       NOT supported: Older GPUs (RX 6000 series / RDNA2 and below)",
    "       Full list: "
    "https://rocm.docs.amd.com/projects/install-on-linux/en/latest/reference/system-requirements.html",
    "  -> Option 2 - Community ROCm builds (recommended for unsupported GPUs, works with Blender etc.):",
    "       https://github.com/lamikr/rocm_sdk_builder",
    "  -> Option 3 - MESA OpenCL (basic fallback, limited compute support):",
]

# os-release as it is on a machine, and the family of the advice.
DISTRIBUTIONS = {
    'NAME="Ubuntu"\\nID=ubuntu\\nID_LIKE=debian\\n': "debian",
    "ID=debian\\n": "debian",
    'ID=\\"Ubuntu\\"\\n': "debian",
    "ID=rhel\\n": "redhat",
    'ID=\\"rocky\\"\\n': "redhat",
    "ID=centos\\n": "redhat",
    "ID=fedora\\n": "redhat",
    "ID=ol\\n": "redhat",
    "ID=arch\\nID=debian\\n": "other",
    "ID_LIKE=debian\\nNAME=x\\n": "other",
    " ID=debian\\n": "other",
    "id=debian\\n": "other",
    "ID=debian2\\n": "other",
    "": "other",
    None: "other",
}


def os_release(text):
    return "[os-release]\nmissing = yes\n" if text is None else f'[os-release]\ntext = "{text}"\n'


class Advice(SimulatedCase):
    maxDiff = None

    def printed(self, description):
        """Standard output between the INIT line and the last line of detection."""
        run = self.described(description).run("-single")
        self.assertEqual((run.exit_code, run.errors, run.report.live), (0, "", {}))
        lines = self.lines(run)
        self.assertEqual(lines[1], "#################### INIT ####################")
        self.assertEqual(lines[-1], "Single run...")
        return lines[2:-1]

    def test_nvidia_without_the_library(self):
        for text, family in DISTRIBUTIONS.items():
            with self.subTest(text):
                self.assertEqual(
                    self.printed(os_release(text) + NO_LIBRARY.format(nvml="libnvidia-ml.so.1") + NVIDIA),
                    ["OpenCL library not found", "",
                     "CUDA GPU OpenCL: libOpenCL.so could not be loaded - benchmark not available.",
                     "  -> No OpenCL runtime is installed or registered.",
                     "  -> The Nvidia OpenCL ICD is usually included with the Nvidia driver,",
                     "     but on Ubuntu 24+ it may be split into a separate package.",
                     "  -> Check: ls /etc/OpenCL/vendors/nvidia.icd",
                     *NVIDIA_LINES[family],
                     "1 CUDA GPU(s) found (no OpenCL, no benchmark)",
                     "No AMD GPU found in /sys/class/drm/"])

    def test_nvidia_without_a_platform(self):
        for text, family in DISTRIBUTIONS.items():
            with self.subTest(text):
                self.assertEqual(
                    self.printed(os_release(text) + NO_PLATFORM.format(nvml="libnvidia-ml.so") + NVIDIA),
                    ["CUDA GPU OpenCL: libOpenCL.so loaded, but no OpenCL platforms found - benchmark not available.",
                     "  -> The ICD loader found no registered OpenCL drivers.",
                     "  -> Check: ls /etc/OpenCL/vendors/   (nvidia.icd should be present)",
                     "  -> Note: MESA OpenCL does not support Nvidia GPUs.",
                     *NVIDIA_LINES[family],
                     "1 CUDA GPU(s) found (no OpenCL platform, no benchmark)",
                     "No AMD GPU found in /sys/class/drm/"])

    def test_amd_without_the_library(self):
        for text, family in DISTRIBUTIONS.items():
            with self.subTest(text):
                self.assertEqual(
                    self.printed(os_release(text) + NO_LIBRARY.format(nvml="none") + AMD),
                    ["libnvidia-ml.so not found - no Nvidia GPU or driver not installed",
                     "OpenCL library not found", "",
                     "AMD GPU OpenCL: libOpenCL.so could not be loaded - benchmark not available.",
                     "  -> No OpenCL runtime is installed or registered.",
                     "  -> Option 1 - ROCm drivers (official AMD OpenCL, recommended for compute):",
                     *AMD_OPTIONS, AMD_LINE[family],
                     "1 AMD GPU(s) found (no OpenCL, no benchmark)"])

    def test_amd_without_a_platform(self):
        for text, family in DISTRIBUTIONS.items():
            with self.subTest(text):
                self.assertEqual(
                    self.printed(os_release(text) + NO_PLATFORM.format(nvml="none") + AMD),
                    ["libnvidia-ml.so not found - no Nvidia GPU or driver not installed",
                     "AMD GPU OpenCL: libOpenCL.so loaded, but no OpenCL platforms found - benchmark not available.",
                     "  -> The ICD loader found no registered OpenCL drivers.",
                     "  -> Check: ls /etc/OpenCL/vendors/   (should contain .icd files)",
                     " ",
                     "If no openCL file is found, you have to install openCL:",
                     "  -> Option 1 - ROCm (official AMD OpenCL):",
                     *AMD_OPTIONS, AMD_LINE[family],
                     "1 AMD GPU(s) found (no OpenCL platform, no benchmark)"])

    def test_amd_with_platforms_that_have_no_gpu(self):
        self.assertEqual(
            self.printed(os_release("ID=debian\\n") + NO_PLATFORM.format(nvml="none") + "[platform]\nname = Empty\n" + AMD)
            [1:],
            ["AMD GPU OpenCL: Platforms found, but no GPU devices in any platform.",
             "  -> Check if the AMD GPU OpenCL driver is correctly installed.",
             "1 AMD GPU(s) found (no OpenCL GPU devices, no benchmark)"])

    def test_amd_without_a_matching_device(self):
        devices = "[platform]\nname = Other\n[device]\nname = Radeon Two\nkhr_bus = 0xd\n[device]\nname = Cedar Low\n"
        self.assertEqual(
            self.printed(os_release("ID=ol\\n") + NO_PLATFORM.format(nvml="none") + devices +
                         AMD.replace("Radeon One", "Vega"))[1:],
            ["AMD GPU 'Vega' (PCI bus 0xc): no matching OpenCL device found.",
             "  -> Benchmark will not be available for this GPU.",
             "  -> Available OpenCL devices:",
             "     'Radeon Two' on PCI bus 0xd",
             "     'Cedar Low' (no PCI bus info)",
             "  -> Possible fixes:",
             "     Ubuntu:  sudo apt install mesa-opencl-icd",
             "     Rocky 9: sudo dnf install mesa-libOpenCL",
             "     Check /etc/OpenCL/vendors/ for missing .icd files",
             "     Run 'clinfo' to see what OpenCL sees",
             "1 AMD GPU(s) found"])

    def test_nvidia_without_a_matching_device(self):
        device = "[platform]\nname = Other\n[device]\nname = NVIDIA One\nnv_bus = 0x1d\nkhr_bus = 0x1c\n"
        self.assertEqual(
            self.printed(os_release("ID=arch\\n") + NO_PLATFORM.format(nvml="libnvidia-ml.so.1") + device + NVIDIA),
            ["CUDA GPU 'NVIDIA One' (PCI bus 0x1c): no matching OpenCL device found.",
             "  -> Benchmark will not be available for this GPU.",
             "  -> The Nvidia OpenCL ICD may not be registered.",
             "  -> Check: ls /etc/OpenCL/vendors/nvidia.icd",
             "  -> Check: clinfo --list",
             "  -> To fix: sudo apt install nvidia-opencl-icd",
             "  -> Note: MESA OpenCL does not support Nvidia GPUs.",
             "1 CUDA GPU(s) found",
             "No AMD GPU found in /sys/class/drm/"])


if __name__ == "__main__":
    simulated.main()
