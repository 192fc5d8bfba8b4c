"""A machine with no GPU and no vendor library, made of bubblewrap: only the measured programs are there, with
the libraries that they link, an empty /sys/class/drm, and its own /proc and /dev/shm.

The cost of a run depends on the installed libraries, so every machine provides the same ones."""

import re
import shutil
import subprocess
import sys
from pathlib import Path

from measure import ROOT

sys.path.insert(0, str(ROOT / "simulator"))

from qzsim import Sandbox  # noqa: E402  (found through the path above)

LINKED = re.compile(r"(/\S+) \(0x")


def locate(tool):
    path = shutil.which(tool)
    if path is None:
        sys.exit(f"{tool} is not installed")
    return path


def files_of(program):
    """The program's file and those of the libraries it links."""
    linked = subprocess.run(["ldd", program], capture_output=True, text=True, check=False)
    if "not found" in linked.stdout:
        sys.exit(f"{program} lacks a library:\n{linked.stdout}")
    return [program, *LINKED.findall(linked.stdout)]


def bare_machine(programs, options=()):
    """A sandbox for `programs` (absolute paths)."""
    root = ["--unshare-ipc", "--unshare-net", "--clearenv", "--setenv", "PATH", "/usr/bin:/bin",
            "--setenv", "LC_ALL", "C.UTF-8", "--tmpfs", "/tmp"]
    for path in dict.fromkeys(path for program in programs for path in files_of(program)):
        root += ["--ro-bind", path, path]
    for path in ("/etc/ld.so.cache", "/etc/os-release"):
        root += ["--ro-bind-try", str(Path(path).resolve()), path]
    return Sandbox(root, more=["--dir", "/sys/class/drm", *options])


def check(program, *arguments):
    """Makes sure that the program runs there and finds no GPU: one that crashed at once would seem fast."""
    with bare_machine([program]) as machine:
        run = machine.run_to_end(program, *arguments)
        if run.exit_code != 0 or ". qzGpuInfo " not in run.output:
            sys.exit(f"{program} does not run on the bare machine ({run.exit_code}):\n{run.output}{run.errors}")
