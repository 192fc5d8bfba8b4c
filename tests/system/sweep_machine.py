"""The machine of the fault sweep: its parts, its description, and what its libraries return when some of
their calls fail."""

from collections import Counter
from dataclasses import dataclass
from typing import Dict, FrozenSet, Optional, Sequence, Tuple

GIB = 1 << 30
ALWAYS = 1 << 30
# The status that the program assumes for an OpenCL function that its library lacks.
CL_INVALID_OPERATION = -59

NVML = ("nvmlInit_v2", "nvmlShutdown", "nvmlDeviceGetCount_v2", "nvmlDeviceGetHandleByIndex_v2",
        "nvmlDeviceGetPciInfo_v3", "nvmlDeviceGetName", "nvmlDeviceGetUtilizationRates", "nvmlDeviceGetTemperature",
        "nvmlDeviceGetMemoryInfo", "nvmlErrorString")
OPENCL_REQUIRED = ("clGetPlatformIDs", "clGetDeviceIDs", "clGetDeviceInfo", "clCreateContext",
                   "clCreateCommandQueue", "clCreateProgramWithSource", "clBuildProgram", "clCreateKernel",
                   "clCreateBuffer", "clEnqueueNDRangeKernel", "clFinish")
OPENCL_OPTIONAL = ("clGetPlatformInfo", "clGetProgramBuildInfo", "clEnqueueWriteBuffer", "clEnqueueReadBuffer",
                   "clSetKernelArg", "clReleaseKernel", "clReleaseProgram", "clReleaseCommandQueue",
                   "clReleaseContext", "clReleaseMemObject")
OPENCL = OPENCL_REQUIRED + OPENCL_OPTIONAL
CUDA_DRIVER = ("cuInit", "cuDeviceGetCount", "cuDeviceGet", "cuDeviceGetAttribute")
# By version, the function that returns a device's properties.
PROPERTIES = {13: "cudaGetDeviceProperties", 12: "cudaGetDeviceProperties_v2", 11: "cudaGetDeviceProperties"}

NVML_LIBRARY, OPENCL_LIBRARY, DRIVER_LIBRARY = "libnvidia-ml.so.1", "libOpenCL.so.1", "libcuda.so.1"
RUNTIME_LIBRARY = {13: "libcudart.so.13", 12: "libcudart.so.12", 11: "libcudart.so.11.0"}


@dataclass(frozen=True)
class Card:
    name: str
    bus: int
    usage: int
    temperature: int
    total: int
    used: int
    compute: Tuple[int, int] = (0, 0)


@dataclass(frozen=True)
class ClDevice:
    """An OpenCL device and the buses that it reports."""

    name: str
    platform: int
    nv_bus: Optional[int] = None
    amd_bus: Optional[int] = None
    khr_bus: Optional[int] = None
    extensions: str = ""


NVIDIA = (Card("NVIDIA GeForce Sweep One", 0x01, 11, 51, 8 * GIB, 1 * GIB, (8, 9)),
          Card("NVIDIA Quadro Sweep Two", 0x41, 22, 62, 16 * GIB, 3 * GIB, (7, 0)))
AMD = Card("Radeon Sweep Three", 0x83, 33, 73, 12 * GIB, 5 * GIB)
PLATFORMS = ("Sweep Platform A", "Sweep Platform B")
# The first can be found by either attribute, the second by one, the third by its name as well.
DEVICES = (ClDevice(NVIDIA[0].name, 0, nv_bus=0x01, khr_bus=0x01),
           ClDevice(NVIDIA[1].name, 0, nv_bus=0x41),
           ClDevice(AMD.name, 1, amd_bus=0x83, extensions="cl_khr_fp64 cl_khr_ray_tracing"))
BUILD_LOG = "sweep.cl:1: no such thing"
WARM_UP_MS, ROUND_MS = 400, 1000


def description(cudart: Sequence[int], has_driver: bool) -> str:
    """The machine with those CUDA runtimes, and the driver's own library or not."""
    text = f"""
[machine]
fast_random = yes
[os-release]
id = debian
[libraries]
nvml = libnvidia-ml.so.1
cudart = {", ".join(map(str, cudart)) or "none"}
cuda = {"yes" if has_driver else "no"}
opencl = libOpenCL.so.1
[opencl]
mode = scripted
round_ms = {WARM_UP_MS}, {ROUND_MS}
sleep = no
results = 1.5, 2.5, 3.5, 4.5
build_log = {BUILD_LOG}
[card card0]
address = 0000:{AMD.bus:02x}:00.0
vendor = 0x1002
product_name = {AMD.name}
mem_info_vram_total = {AMD.total}
mem_info_vram_used = {AMD.used}
gpu_busy_percent = {AMD.usage}
hwmon = hwmon0
hwmon0/temp1_input = {AMD.temperature * 1000}
"""
    for card in NVIDIA:
        text += f"""
[nvidia]
name = {card.name}
bus = {card.bus}
compute = {card.compute[0]}.{card.compute[1]}
utilisation = {card.usage}
temperature = {card.temperature}
memory_total = {card.total}
memory_used = {card.used}
"""
    for platform, name in enumerate(PLATFORMS):
        text += f"[platform]\nname = {name}\n"
        for device in (device for device in DEVICES if device.platform == platform):
            text += f"[device]\nname = {device.name}\nextensions = {device.extensions}\n"
            for key, bus in (("nv_bus", device.nv_bus), ("amd_topology_bus", device.amd_bus),
                             ("khr_bus", device.khr_bus)):
                text += f"{key} = {bus}\n" if bus is not None else ""
    return text


@dataclass(frozen=True)
class Fault:
    """A function that returns `code` from its `first` call to its `last`, counted from 1."""

    function: str
    code: int
    first: int = 1
    last: int = ALWAYS

    def line(self) -> str:
        until = "" if self.last == ALWAYS else f" until {self.last}"
        return f"{self.function} = fail {self.code} from {self.first}{until}"


class Libraries:
    """Answers calls like the machine's libraries, and counts them and the live objects."""

    def __init__(self, cudart: Sequence[int], has_driver: bool, faults: Sequence[Fault],
                 omitted: FrozenSet[Tuple[str, str]] = frozenset()) -> None:
        self.cudart = tuple(cudart)
        self.has_driver = has_driver
        self.calls: Dict[str, int] = Counter()
        self.live: Dict[str, int] = Counter()
        self.closes: Dict[str, int] = Counter()
        self._faults = faults
        self._omitted = omitted

    def has(self, library: str, function: str) -> bool:
        return (library, function) not in self._omitted

    def call(self, function: str) -> int:
        """The status of one more call: 0, or the fault's code."""
        if not self.has(OPENCL_LIBRARY, function):
            return CL_INVALID_OPERATION
        self.calls[function] += 1
        count = self.calls[function]
        for fault in self._faults:
            if fault.function == function and fault.first <= count <= fault.last:
                return fault.code
        return 0

    def create(self, function: str, kind: str) -> int:
        status = self.call(function)
        if status == 0:
            self.live[kind] += 1
        return status

    def release(self, function: str, kind: str) -> None:
        """An object whose release fails stays alive: nothing more can be done."""
        if self.call(function) == 0:
            self.live[kind] -= 1
