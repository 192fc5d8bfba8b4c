"""Simulated machines for the measurements, described by how many GPUs they have."""

import sys
import tempfile
from pathlib import Path

from measure import ROOT

sys.path.insert(0, str(ROOT / "simulator"))

from qzsim import SandboxError, Simulation  # noqa: E402  (found through the path above)

# No section has a changing figure, so that the values of /sys are plain files that the program reads without the
# simulator's help.
HEAD = """
[machine]
summary = for a measurement

[os-release]
id = debian

[libraries]
nvml = libnvidia-ml.so.1
cudart = 12
opencl = libOpenCL.so.1

[opencl]
mode = scripted

[platform]
name = Measured OpenCL
"""
NVIDIA = """
[nvidia]
count = {count}
name = NVIDIA RTX A5000
bus = 0x10
compute = 8.6
utilisation = 91
temperature = 71
memory_total = 24564MiB
memory_used = 18211MiB

[device]
count = {count}
name = NVIDIA RTX A5000
nv_bus = 0x10
"""
AMD = """
[card card0]
count = {count}
address = 0000:80:00.0
vendor = 0x1002
product_name = Radeon RX 7900 XTX
mem_info_vram_total = 24560MiB
mem_info_vram_used = 4096MiB
gpu_busy_percent = 37
hwmon = hwmon3
hwmon3/temp1_input = 45999

[device]
count = {count}
name = gfx1100
amd_topology_bus = 0x80
"""
# Read in every cycle of each AMD card: load, memory in use, temperature.
SYSFS_VALUES_A_CARD = 3
# The stand-ins read the description in every run; removed at the end.
_descriptions = tempfile.TemporaryDirectory(prefix="qzBench-")


def simulation(machine, build, **settings):
    """The machine of that name or path; ends the measurement where the host can't simulate it."""
    try:
        return Simulation(str(machine), build, **settings)
    except SandboxError as error:
        sys.exit(f"no simulated machine: {error}")


def with_gpus(nvidia, amd, build, **settings):
    """A machine with that many GPUs of each vendor, and the libraries of both whatever it has."""
    text = HEAD
    text += NVIDIA.format(count=nvidia) if nvidia else ""
    text += AMD.format(count=amd) if amd else ""
    description = Path(_descriptions.name, f"{nvidia}-{amd}.machine")
    description.write_text(text, encoding="utf-8")
    return simulation(description, build, **settings)
