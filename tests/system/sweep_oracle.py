"""What the program must print and return on the sweep's machine, whatever call fails: its rules as an oracle
that gives every line. Written from the rules, and on purpose not after the program."""

from dataclasses import dataclass
from typing import Optional

from sweep_benchmark import BenchmarkOracle
from sweep_cuda import CudaOracle
from sweep_machine import (AMD, DEVICES, NVIDIA, NVML, NVML_LIBRARY, OPENCL_LIBRARY, OPENCL_REQUIRED, PLATFORMS)
from vendor_codes import nvml_text

OTHER, CUDA, AMD_KIND = 0, 1, 2
KIND_NAMES = ("Other", "Cuda", "AMD")

MESA_HINTS = (
    "       Supported GPUs: Radeon RX 7700 and newer (RDNA3+), Radeon PRO W6800+, AMD Instinct MI100+",
    "       NOT supported: Older GPUs (RX 6000 series / RDNA2 and below)",
    "       Full list: https://rocm.docs.amd.com/projects/install-on-linux/en/latest/reference/"
    "system-requirements.html",
    "  -> Option 2 - Community ROCm builds (recommended for unsupported GPUs, works with Blender etc.):",
    "       https://github.com/lamikr/rocm_sdk_builder",
    "  -> Option 3 - MESA OpenCL (basic fallback, limited compute support):",
    "       Ubuntu/Debian: sudo apt install mesa-opencl-icd")
NVIDIA_HINTS = (
    "  -> Ubuntu/Debian: sudo apt install nvidia-opencl-icd",
    "  -> Or: sudo apt install nvidia-opencl-icd-$(nvidia-smi --query-gpu=driver_version --format=csv,noheader | "
    "cut -d. -f1)")


@dataclass
class Record:
    """One GPU's record; a figure that is None is absent."""

    name: str = ""
    kind: int = OTHER
    index: int = -1
    valid: bool = False
    optix: bool = False
    ray_tracing: bool = False
    device: Optional[int] = None
    usage: Optional[int] = None
    temperature: Optional[int] = None
    total: Optional[int] = None
    used: Optional[int] = None
    free: Optional[int] = None
    speed: Optional[float] = None


class Oracle:
    """The program, run with some options on some libraries: `lines`, `exit_code`, and through the libraries the
    calls, the objects left alive and the libraries closed."""

    def __init__(self, libraries, options, cycles=1):
        self.lines = []
        self._libraries = libraries
        self._level = 5 if "-v" in options else 3
        self._continuous = not any(option in options for option in
                                   ("-single", "-returnGPS", "-queryNvCuda", "-queryNvOptix", "-queryAmdRt",
                                    "-queryGPU"))
        self._benchmarks = "-benchShort" in options
        self._nvidia, self._handles, self._amd = [], [], []
        self._summary = Record("Summary")
        self._nvml_loaded = False
        self._say(". qzGpuInfo  VERSION", *([". Verbose enabled"] if self._level == 5 else []))
        self._log(3, "#################### INIT ####################")
        if self._continuous:
            self._log(3, "Created shared memory")
        self._detect_nvidia()
        self._detect_amd()
        self._log(3, "Continuous run..." if self._continuous else "Single run...")
        for _ in range(cycles):
            self._update()
        self._finish()
        self.exit_code = self._answer(options)

    def _say(self, *lines):
        for line in lines:
            self.lines += line.split("\n")

    def _log(self, level, *lines):
        if level <= self._level:
            self._say(*lines)

    # NVIDIA's GPUs.

    def _detect_nvidia(self):
        libraries = self._libraries
        self._nvml_loaded = all(libraries.has(NVML_LIBRARY, function) for function in NVML)
        libraries.closes[NVML_LIBRARY] += 1
        if not self._nvml_loaded:
            self._say("GpuNvml_Loader: required functions not found")
            self._log(5, "0 CUDA GPU(s) found - NVML not available")
            return
        status = libraries.create("nvmlInit_v2", "nvml")
        if status != 0:
            self._log(2, "Failed to initialize NVML: " + self._nvml_error(status))
            self._shut_nvml_down()
            self._log(5, "0 CUDA GPU(s) found")
            return
        status = libraries.call("nvmlDeviceGetCount_v2")
        if status != 0:
            self._log(2, "Failed to query device count: " + self._nvml_error(status))
            self._log(5, "0 CUDA GPU(s) found")
            return
        cuda = CudaOracle(libraries)
        for number, card in enumerate(NVIDIA):
            if libraries.call("nvmlDeviceGetHandleByIndex_v2") == 0:
                self._add_nvidia(number, card, cuda)
        count = len(self._nvidia)
        if not self._load_opencl():
            self._log(2, "CUDA GPU OpenCL: libOpenCL.so could not be loaded - benchmark not available.",
                      "  -> No OpenCL runtime is installed or registered.",
                      "  -> The Nvidia OpenCL ICD is usually included with the Nvidia driver,",
                      "     but on Ubuntu 24+ it may be split into a separate package.",
                      "  -> Check: ls /etc/OpenCL/vendors/nvidia.icd", *NVIDIA_HINTS)
            self._log(3, f"{count} CUDA GPU(s) found (no OpenCL, no benchmark)")
        elif libraries.call("clGetPlatformIDs") != 0:
            self._log(2, "CUDA GPU OpenCL: libOpenCL.so loaded, but no OpenCL platforms found - benchmark not "
                         "available.",
                      "  -> The ICD loader found no registered OpenCL drivers.",
                      "  -> Check: ls /etc/OpenCL/vendors/   (nvidia.icd should be present)",
                      "  -> Note: MESA OpenCL does not support Nvidia GPUs.", *NVIDIA_HINTS)
            self._log(3, f"{count} CUDA GPU(s) found (no OpenCL platform, no benchmark)")
        else:
            self._log(5, f"CUDA GPU OpenCL: {len(PLATFORMS)} platform(s) found")
            for number in range(len(PLATFORMS)):
                self._name_platform(number)
            for record, handle in zip(self._nvidia, self._handles):
                self._pair_nvidia(record, NVIDIA[handle].bus)
            self._log(3, f"{count} CUDA GPU(s) found")

    def _add_nvidia(self, number, card, cuda):
        record = Record()
        self._nvidia.append(record)
        self._handles.append(number)
        if self._libraries.call("nvmlDeviceGetName") == 0:
            record.name = card.name
        if self._libraries.call("nvmlDeviceGetPciInfo_v3") == 0:
            record.index = cuda.index_on(card.bus)
        record.optix = cuda.has_optix(record.index)

    def _pair_nvidia(self, record, bus):
        record.kind = CUDA
        if self._libraries.call("nvmlDeviceGetPciInfo_v3") != 0:
            self._log(2, f"CUDA GPU '{record.name}': failed to get PCI info from NVML.")
            return
        for platform in range(len(PLATFORMS)):
            for number in self._devices_of(platform):
                self._libraries.call("clGetDeviceInfo")
                way, found = "NV", self._ask(DEVICES[number].nv_bus)
                if found is None:
                    way, found = "KHR", self._ask(DEVICES[number].khr_bus)
                if found is not None and found & 0xFF == bus & 0xFF:
                    record.device = number
                    self._log(5, f"  {record.name}: matched via {way} PCI bus 0x{bus:x}")
                    return
        self._log(2, f"CUDA GPU '{record.name}' (PCI bus 0x{bus:x}): no matching OpenCL device found.",
                  "  -> Benchmark will not be available for this GPU.",
                  "  -> The Nvidia OpenCL ICD may not be registered.",
                  "  -> Check: ls /etc/OpenCL/vendors/nvidia.icd", "  -> Check: clinfo --list",
                  "  -> To fix: sudo apt install nvidia-opencl-icd",
                  "  -> Note: MESA OpenCL does not support Nvidia GPUs.")

    def _nvml_error(self, status):
        """The driver's text; none if it returns none."""
        return nvml_text(status) if self._libraries.call("nvmlErrorString") == 0 else ""

    def _shut_nvml_down(self):
        if not self._nvml_loaded:
            return
        status = self._libraries.call("nvmlShutdown")
        if status == 0 and self._libraries.live["nvml"] == 0:
            status = 1
        if status == 0:
            self._libraries.live["nvml"] -= 1
        else:
            self._log(2, "Failed to shutdown NVML: " + self._nvml_error(status))

    # AMD's GPU, whose own files do not fail here.

    def _detect_amd(self):
        record = Record(AMD.name, AMD_KIND, 0, total=AMD.total >> 20)
        self._amd.append(record)
        if not self._load_opencl():
            self._log(2, "AMD GPU OpenCL: libOpenCL.so could not be loaded - benchmark not available.",
                      "  -> No OpenCL runtime is installed or registered.",
                      "  -> Option 1 - ROCm drivers (official AMD OpenCL, recommended for compute):", *MESA_HINTS)
            self._log(3, "1 AMD GPU(s) found (no OpenCL, no benchmark)")
            return
        if self._libraries.call("clGetPlatformIDs") != 0:
            self._log(2, "AMD GPU OpenCL: libOpenCL.so loaded, but no OpenCL platforms found - benchmark not "
                         "available.",
                      "  -> The ICD loader found no registered OpenCL drivers.",
                      "  -> Check: ls /etc/OpenCL/vendors/   (should contain .icd files)", " ",
                      "If no openCL file is found, you have to install openCL:",
                      "  -> Option 1 - ROCm (official AMD OpenCL):", *MESA_HINTS)
            self._log(3, "1 AMD GPU(s) found (no OpenCL platform, no benchmark)")
            return
        self._log(5, f"AMD GPU OpenCL: {len(PLATFORMS)} platform(s) found")
        candidates = []
        for platform in range(len(PLATFORMS)):
            self._name_platform(platform)
            candidates += [self._candidate(number) for number in self._devices_of(platform)]
        if not candidates:
            self._log(2, "AMD GPU OpenCL: Platforms found, but no GPU devices in any platform.",
                      "  -> Check if the AMD GPU OpenCL driver is correctly installed.")
            self._log(3, "1 AMD GPU(s) found (no OpenCL GPU devices, no benchmark)")
            return
        self._pair_amd(record, candidates)
        if record.device is not None:
            read = self._libraries.call("clGetDeviceInfo") == 0
            record.ray_tracing = read and "cl_khr_ray_tracing" in DEVICES[record.device].extensions
        self._log(3, "1 AMD GPU(s) found")

    def _candidate(self, number):
        """The device's number, its name, and its bus or None."""
        name = DEVICES[number].name if self._libraries.call("clGetDeviceInfo") == 0 else ""
        bus = self._ask(DEVICES[number].amd_bus)
        if bus is not None:
            # A signed byte, which is shown as such.
            bus = bus - 0x100 if bus > 0x7F else bus
            self._log(5, f"    OCL device '{name}': PCI bus 0x{bus & 0xFFFFFFFF:x} (via AMD topology)")
            return number, name, bus
        bus = self._ask(DEVICES[number].khr_bus)
        if bus is not None:
            self._log(5, f"    OCL device '{name}': PCI bus 0x{bus:x} (via khr_pci_bus_info)")
        else:
            self._log(5, f"    OCL device '{name}': no PCI bus info available, name-match only")
        return number, name, bus

    def _pair_amd(self, record, candidates):
        own = AMD.name.lower()
        for number, _, bus in candidates:
            if bus is not None and bus & 0xFF == AMD.bus:
                record.device = number
                self._log(5, f"  {AMD.name}: matched via PCI bus 0x{AMD.bus:x}")
                return
        for number, name, bus in candidates:
            if bus is None and (own[:6] in name.lower() or name.lower()[-6:] in own):
                record.device = number
                self._log(5, f"  {AMD.name}: matched via name fallback to OCL '{name}'")
                return
        self._log(2, f"AMD GPU '{AMD.name}' (PCI bus 0x{AMD.bus:x}): no matching OpenCL device found.",
                  "  -> Benchmark will not be available for this GPU.", "  -> Available OpenCL devices:",
                  *(f"     '{name}' (no PCI bus info)" if bus is None else
                    f"     '{name}' on PCI bus 0x{bus & 0xFFFFFFFF:x}" for _, name, bus in candidates),
                  "  -> Possible fixes:", "     Ubuntu:  sudo apt install mesa-opencl-icd",
                  "     Rocky 9: sudo dnf install mesa-libOpenCL",
                  "     Check /etc/OpenCL/vendors/ for missing .icd files",
                  "     Run 'clinfo' to see what OpenCL sees")

    # Both vendors' use of OpenCL.

    def _load_opencl(self):
        complete = all(self._libraries.has(OPENCL_LIBRARY, function) for function in OPENCL_REQUIRED)
        if not complete:
            self._libraries.closes[OPENCL_LIBRARY] += 1
            self._log(2, "OpenCL: required functions not found\n")
        else:
            self._libraries.closes[OPENCL_LIBRARY] = 1
        return complete

    def _name_platform(self, number):
        name = PLATFORMS[number] if self._libraries.call("clGetPlatformInfo") == 0 else ""
        self._log(5, f"  OpenCL platform {number}: {name}")

    def _devices_of(self, platform):
        if self._libraries.call("clGetDeviceIDs") != 0:
            return []
        return [number for number, device in enumerate(DEVICES) if device.platform == platform]

    def _ask(self, value):
        """The value of a device's attribute; None if the device lacks it or the call fails."""
        return value if self._libraries.call("clGetDeviceInfo") == 0 else None

    # Cycles.

    def _update(self):
        self._log(4, "#################### update current usage ####################")
        for record, handle in zip(self._nvidia, self._handles):
            self._refresh_nvidia(record, NVIDIA[handle])
        for record in self._amd:
            self._begin_refresh(record)
            record.usage, record.temperature = AMD.usage, AMD.temperature
            record.used, record.free = AMD.used >> 20, (AMD.total - AMD.used) >> 20
            self._benchmark(record)
        self._log(4, "\n-------------------- GPU Information --------------------")
        self._log(4, f"CUDA GPU Count : {len(self._nvidia)}")
        self._listed = self._collect(self._nvidia, 0)
        self._log(4, f"AMD GPU Count: {len(self._amd)}")
        self._listed += self._collect(self._amd, len(self._listed))
        self._log(4, "METAL GPU Count: 0")
        self._summarise()
        self._print(self._summary, "---- Summary ----", "")
        self._log(4, f"Total GPU Count: {len(self._listed)}", "-------------------- END --------------------\n",
                  "\n")
        if self._continuous:
            self._log(4, "Updated shared memory block")

    def _begin_refresh(self, record):
        record.valid = True
        self._log(5, f"  {record.name}: retrieving GPU stats ...")

    def _refresh_nvidia(self, record, card):
        self._begin_refresh(record)
        record.usage = card.usage if self._libraries.call("nvmlDeviceGetUtilizationRates") == 0 else None
        record.temperature = card.temperature if self._libraries.call("nvmlDeviceGetTemperature") == 0 else None
        record.used = record.free = None
        if self._libraries.call("nvmlDeviceGetMemoryInfo") == 0:
            record.total, record.used, record.free = (card.total >> 20, card.used >> 20,
                                                      (card.total - card.used) >> 20)
        self._benchmark(record)

    def _benchmark(self, record):
        if not self._benchmarks:
            return
        if record.device is None:
            self._log(2, f"  {record.name} {KIND_NAMES[record.kind]}-{record.index}: unable to run "
                         "Benchmark(openCL), device_HardwareID is NULL")
            record.speed = None
            return
        self._log(5, f"  {record.name}: running 6s Benchmark(openCL) ...")
        record.speed = BenchmarkOracle(self._libraries, self._log).run()

    def _collect(self, records, first):
        """The list's entries: looked up by device number, so that one that no device has keeps its initial values."""
        listed = []
        for key in range(len(records)):
            found = next((record for record in records if record.index == key and record.valid), None)
            if found is None:
                continue
            listed += [Record() for _ in range(key - len(listed))] + [found]
            label = f"#{first + key:<2}"
            self._print(found, f"---- {label} {KIND_NAMES[found.kind]:>5}-{found.index:<2} {short(found.name)} ----",
                        label)
        return listed

    def _summarise(self):
        summary = self._summary

        def over(figure, combine, start):
            values = [getattr(record, figure) for record in self._listed if getattr(record, figure) is not None]
            # Once a figure was present, the summary keeps showing it.
            if values or getattr(summary, figure) is not None:
                setattr(summary, figure, combine([start, *values]))

        over("usage", sum, 0)
        over("temperature", max, 0)
        over("total", min, 65535)
        over("used", max, 0)
        over("free", min, 65535)
        over("speed", sum, 0.0)

    def _print(self, record, header, label):
        self._log(4, header)
        for text, value, unit in (("Gpu Usage:  ", record.usage, "%"), ("Temperature:", record.temperature, "C"),
                                  ("Mem Total:  ", record.total, "Mb"), ("Mem Used:   ", record.used, "Mb"),
                                  ("Mem Free:   ", record.free, "Mb")):
            if value is not None:
                self._log(4, f"    {label}: {text} {value:5} {unit}")
        if record.speed is not None:
            self._log(4, f"    {label}: Speed:       {record.speed:5.2f} GPS")
        self._log(4, " ")

    # The end.

    def _finish(self):
        self._shut_nvml_down()

    def _answer(self, options):
        if "-returnGPS" in options:
            speed = self._listed[0].speed if self._listed else None
            return int(speed + 0.5) if speed is not None else 0
        asked = {"-queryNvCuda": lambda gpu: gpu.kind == CUDA, "-queryNvOptix": lambda gpu: gpu.optix,
                 "-queryAmdRt": lambda gpu: gpu.ray_tracing, "-queryGPU": lambda gpu: True}
        return int(any(asked[option](gpu) for option in options if option in asked for gpu in self._listed))


def short(name):
    """The names of this machine, without vendor and brand."""
    for word in ("NVIDIA ", "GeForce ", "Quadro ", "Radeon ", " "):
        name = name.replace(word, "")
    return name
