"""Runs a program on a simulated machine."""

import os
import shlex
import shutil
import tempfile
from pathlib import Path
from typing import Dict, List, Optional, Sequence, Union

from .counters import Report
from .host import opencl_is_missing, vendor_libraries
from .layout import Layout, find_description, kernel_cache
from .sandbox import Run, Sandbox, SandboxError


class SimulatedRun(Run):
    """A program that runs, or has ended, on a simulated machine."""

    def __init__(self, command: Sequence[str], program: str, files: Path, **options: object) -> None:
        super().__init__(command, program, **options)  # type: ignore[arg-type]
        self.files = files

    @property
    def report(self) -> Report:
        """What the stand-ins have counted so far."""
        return Report(self.files / "counters")

    @property
    def kernels(self) -> List[str]:
        """The texts of the OpenCL programs, in the order in which they were made."""
        try:
            return (self.files / "kernels").read_bytes().decode("latin-1").split("\0")[:-1]
        except OSError:
            return []


class Simulation(Sandbox):
    """One machine, laid out once; programs run on it one after the other or side by side.

    Use it as a context manager: leaving it ends what still runs and removes the folder.

    machine     a name of the list or the path of a description
    build       the CMake build folder that holds the stand-ins; its programs come first in PATH
    program     what is run: a path, or a name that is looked up in PATH
    faults      further faults, each a line of the [faults] section
    shm, share_pids, no_proc  as for Sandbox
    cycle_start what the "cycle" figures count from
    environment further variables for the program
    wrap        a command put before the program inside, such as ["strace", "-f"]
    opencl_driver  the library that really runs the kernels, instead of PoCL
    """

    def __init__(self, machine: str, build: Path, program: Union[Path, str] = "qzGpuInfo", faults: Sequence[str] = (),
                 shm: Union[Path, str, int, None] = None, share_pids: bool = False, no_proc: bool = False,
                 wrap: Sequence[str] = (), cycle_start: int = 0, environment: Optional[Dict[str, str]] = None,
                 opencl_driver: Optional[Path] = None) -> None:
        self.build = Path(build).resolve()
        self.path = f"{self.build}:{os.environ.get('PATH', os.defpath)}"
        found = shutil.which(program, path=self.path)
        if found is None:
            raise SandboxError(f"{program}: there is no such program")
        self.program = os.path.abspath(found)
        for path in (self.build, Path(self.program)):
            if _is_replaced(path):
                raise SandboxError(f"{path}: a simulated machine has its own /dev, /proc and /sys, without this")
        self.description = find_description(machine)
        self.faults = list(faults)
        self.wrap = list(wrap)
        self.cycle_start = cycle_start
        self.environment = dict(environment or {})
        self._started = 0
        hides = _is_replaced(Path(tempfile.gettempdir()))
        self._root = Path(tempfile.mkdtemp(prefix="qzsim-", dir="/tmp" if hides else None))
        try:
            # The program can read this copy even if the description's own path is hidden from it.
            shutil.copyfile(self.description, self._root / "description")
            self.cache = kernel_cache(self._root)
            self.layout = Layout(self.build, self.description, self._root / "machine", faults, opencl_driver)
            missing = opencl_is_missing(opencl_driver) if self.layout.runs_kernels else None
            if missing is not None:
                raise SandboxError(f"the machine's kernels are really run, but {missing}")
            super().__init__(sys=self.layout.sys, shm=shm, hidden=vendor_libraries(), share_pids=share_pids,
                             no_proc=no_proc, more=[*_etc(self.layout), *_over(self.layout.dev, "/dev"),
                                                     *([] if no_proc else _over(self.layout.proc, "/proc"))])
        except BaseException:
            shutil.rmtree(self._root, ignore_errors=True)
            raise

    def close(self) -> None:
        super().close()
        shutil.rmtree(self._root, ignore_errors=True)

    def start(self, *arguments: str, **streams: object) -> SimulatedRun:
        """Starts the program; `streams` are stdin, stdout and stderr as subprocess.Popen has them, the last two pipes
        unless given."""
        self._started += 1
        files = self._root / f"run-{self._started}"
        files.mkdir()
        run = SimulatedRun([*self.command, "--", *self._inside(self._environment(files)), *arguments],
                           self.program, files, **streams)
        self.runs.append(run)
        return run

    def run(self, *arguments: str, timeout: float = 60, **streams: object) -> SimulatedRun:
        """Runs the program to its end and returns the ended run."""
        run = self.start(*arguments, **streams)
        run.wait(timeout)
        return run

    def forget(self, run: SimulatedRun) -> None:
        """Removes a run's files, for tests that make thousands of runs on one machine."""
        run.kill()
        self.runs.remove(run)
        shutil.rmtree(run.files)

    def _environment(self, files: Path) -> Dict[str, str]:
        environment = {
            "QZSIM_MACHINE": str(self._root / "description"),
            "QZSIM_FAULTS": "\n".join(self.faults),
            "QZSIM_COUNTERS": str(files / "counters"),
            "QZSIM_KERNELS": str(files / "kernels"),
            "QZSIM_CYCLE_START": str(self.cycle_start),
            "QZSIM_ICDS": "/etc/OpenCL/vendors",
            "PATH": self.path,
            "LD_LIBRARY_PATH": str(self.layout.libraries),
            "LD_PRELOAD": ":".join(str(path) for path in self.layout.preloaded),
            # Another library is loaded before the sanitizer's, on purpose.
            "ASAN_OPTIONS": ":".join(filter(None, [os.environ.get("ASAN_OPTIONS"), "verify_asan_link_order=0"])),
            "POCL_CACHE_DIR": str(self.cache),
        }
        if self.layout.real_opencl is not None:
            environment["QZSIM_REAL_OPENCL"] = str(self.layout.real_opencl)
            environment["QZSIM_OPENCL_DRIVERS"] = str(self.layout.opencl_drivers)
        environment.update(self.environment)
        return environment

    def _inside(self, environment: Dict[str, str]) -> List[str]:
        """What bubblewrap starts: the machine's processes, then the program in its place."""
        settings = [f"{name}={value}" for name, value in environment.items()]
        # The host's drivers do not belong to the machine.
        command = ["env", "-u", "OCL_ICD_VENDORS", *settings, *self.wrap, self.program]
        if not self.layout.processes:
            return command
        script = "".join(f"(exec -a {shlex.quote(name)} sleep 1000000) & " for name in self.layout.processes)
        return ["bash", "-c", script + 'exec "$@"', "bash", *command]


def _is_replaced(path: Path) -> bool:
    """Whether the sandbox puts something else in the place of the path's folder."""
    return path.resolve().parts[1:2] in (("dev",), ("proc",), ("sys",))


def _over(folder: Path, place: str) -> List[str]:
    """Arguments that put each entry of a folder over, or into, what is at `place`."""
    arguments = []
    for path in sorted(folder.iterdir()):
        arguments += ["--bind", str(path), f"{place}/{path.name}"]
    return arguments


def _etc(layout: Layout) -> List[str]:
    """Arguments that put the machine's os-release (or none) and its OpenCL registrations in the place of the host's."""
    os_release, vendors = Path("/etc/os-release"), Path("/etc/OpenCL/vendors")
    command = []
    if layout.os_release is None or not os_release.exists() or not vendors.is_dir():
        # No file can be removed from, or added to, a folder that is bound as a whole, so each entry is bound.
        command += ["--tmpfs", "/etc"]
        for path in sorted(Path("/etc").iterdir()):
            if path.name in ("os-release", "OpenCL"):
                continue
            if path.is_symlink():
                command += ["--symlink", os.readlink(path), str(path)]
            else:
                command += ["--ro-bind-try", str(path), str(path)]
    elif os_release.is_symlink():
        # bubblewrap mounts on no symbolic link, which this mostly is.
        os_release = os_release.resolve()
    if layout.os_release is not None:
        command += ["--ro-bind", str(layout.os_release), str(os_release)]
    return [*command, "--ro-bind", str(layout.icds), str(vendors)]
