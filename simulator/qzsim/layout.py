"""The folder that qzsim-layout creates from a description, to be mounted around a program."""

import os
import shutil
import subprocess
from pathlib import Path
from typing import List, Optional, Sequence

from .host import pocl_vendor_files, real_opencl_loader

MACHINES = Path(__file__).resolve().parent.parent / "machines"


class DescriptionError(Exception):
    """A description that cannot be used; the text is one line that names the file and the line."""


def list_machines() -> List[Path]:
    """The descriptions that come with the simulator, by name."""
    return sorted(MACHINES.glob("*.machine"))


def find_description(machine: str) -> Path:
    """The description of that name, or the file of that path."""
    named = MACHINES / (machine + ".machine")
    if "/" not in machine and named.is_file():
        return named
    if Path(machine).is_file():
        return Path(machine).resolve()
    known = ", ".join(path.stem for path in list_machines())
    raise DescriptionError(f"{machine}: neither a file nor one of the machines {known}")


def summary(build: Path, description: Path) -> str:
    """The description's line of the list; `build` is the CMake build folder that holds the simulator."""
    return _ask(build, description)


def _ask(build: Path, description: Path, *arguments: str) -> str:
    tool = build / "simulator" / "qzsim-layout"
    try:
        answer = subprocess.run([str(tool), str(description), *arguments], capture_output=True, check=False)
    except OSError as error:
        raise DescriptionError(f"{tool}: {error.strerror}; build the simulator first") from error
    if answer.returncode != 0:
        raise DescriptionError(answer.stderr.decode("utf-8", "replace").strip())
    return answer.stdout.decode("utf-8", "replace").strip()


class Layout:
    """A machine's files below `root`. The program sees changes that a test makes there."""

    def __init__(self, build: Path, description: Path, root: Path, faults: Sequence[str] = (),
                 opencl_driver: Optional[Path] = None) -> None:
        self.root = root
        self.sys = root / "sys"
        self.libraries = root / "lib"
        self.opencl_drivers = root / "opencl-drivers"
        _ask(build, description, str(root), str(real_opencl_loader() or ""), *faults)
        self.preloaded = sorted((root / "preload").iterdir())
        self.icds = root / "icds"
        self.dev = root / "dev"
        self.proc = root / "proc"
        self.os_release = self._if_there("os-release")
        self.real_opencl = self._if_there("libRealOpenCL.so")
        self.processes = (root / "processes").read_text(encoding="utf-8").splitlines()
        self.runs_kernels = self.opencl_drivers.exists()
        # One driver alone: the loader would load every driver of the host otherwise.
        if self.runs_kernels and opencl_driver is not None:
            (self.opencl_drivers / "driver.icd").write_text(f"{opencl_driver}\n", encoding="utf-8")
        elif self.runs_kernels:
            for path in pocl_vendor_files():
                shutil.copy(path, self.opencl_drivers)

    def _if_there(self, name: str) -> Optional[Path]:
        return self.root / name if (self.root / name).exists() else None

    def card(self, name: str) -> Path:
        """The device folder of a card, for tests that change it."""
        return (self.sys / "class/drm" / name / "device").resolve()


def kernel_cache(fallback: Path) -> Path:
    """Where PoCL keeps compiled kernels between runs; below `fallback` where the user's own cache cannot be used."""
    base = os.environ.get("XDG_CACHE_HOME") or os.path.join(os.path.expanduser("~"), ".cache")
    cache = Path(base) / "qzsim-pocl"
    try:
        cache.mkdir(parents=True, exist_ok=True)
    except OSError:
        cache = fallback / "pocl"
        cache.mkdir()
    return cache
