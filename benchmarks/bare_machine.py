"""A machine with no GPU and no vendor library, made of bubblewrap: only the measured programs are there, with
the libraries that they link, an empty /sys/class/drm, a /proc and a /dev/shm of its own.

What a run costs differs with the libraries around it, so the same surroundings are laid on every machine."""

import re
import shutil
import subprocess
import sys
from pathlib import Path

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


def command(programs, options=()):
    """The beginning of a command line that runs one of `programs` (absolute paths) on that machine."""
    line = [locate("bwrap"), "--unshare-ipc", "--unshare-net", "--die-with-parent", "--clearenv"]
    line += ["--setenv", "PATH", "/usr/bin:/bin", "--setenv", "LC_ALL", "C.UTF-8"]
    line += ["--proc", "/proc", "--dev", "/dev", "--tmpfs", "/dev/shm", "--tmpfs", "/tmp"]
    line += ["--dir", "/sys/class/drm"]
    for path in dict.fromkeys(path for program in programs for path in files_of(program)):
        line += ["--ro-bind", path, path]
    for path in ("/etc/ld.so.cache", "/etc/os-release"):
        line += ["--ro-bind-try", str(Path(path).resolve()), path]
    return [*line, *options]


def check(program, *arguments):
    """Makes sure that the program runs there and finds no GPU: one that dies at once would seem fast."""
    run = subprocess.run(
        [*command([program]), program, *arguments], capture_output=True, text=True, timeout=60, check=False
    )
    if run.returncode != 0 or ". qzGpuInfo " not in run.stdout:
        sys.exit(f"{program} does not run on the bare machine ({run.returncode}):\n{run.stdout}{run.stderr}")
