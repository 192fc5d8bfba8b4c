"""Runs a program on a simulated machine."""

import os
import shlex
import shutil
import signal
import subprocess
import tempfile
import time
from pathlib import Path
from typing import Dict, List, Optional, Sequence, Union

from .counters import Report
from .description import describe, find_description
from .host import pocl_is_missing, vendor_libraries
from .layout import Layout, kernel_cache


class SimulationError(Exception):
    """The machine cannot be laid around the program on this host; the text says why."""


class Simulation:
    """One machine, laid out once, on which programs can be run one after the other or side by side.

    Use it as a context manager: leaving it ends what still runs and removes the folder.

    machine     a name of the list or the path of a description
    build       the CMake build folder that holds the stand-ins (and, without `program`, qzGpuInfo)
    faults      further faults, each a line of the [faults] section
    shm         a host folder to be the program's /dev/shm; "none" for a machine without one, "read-only" for
                one that cannot be written; a number of bytes for a file system of that size; None for a fresh one
    share_pids  the program sees the host's processes
    no_proc     the program has no /proc
    cycle_start what the "cycle" figures count from
    environment further variables for the program
    wrap        a command put before the program inside, such as ["strace", "-f"]
    """

    def __init__(self, machine: str, build: Path, program: Optional[Path] = None, faults: Sequence[str] = (),
                 shm: Union[Path, str, int, None] = None, share_pids: bool = False, no_proc: bool = False,
                 wrap: Sequence[str] = (), cycle_start: int = 0, environment: Optional[Dict[str, str]] = None) -> None:
        if shutil.which("bwrap") is None:
            raise SimulationError("bubblewrap is not installed (package bubblewrap)")
        self.build = Path(build).resolve()
        self.program = Path(program).resolve() if program else self.build / "qzGpuInfo"
        self.machine = describe(self.build, find_description(machine), faults)
        if self.machine.pocl and pocl_is_missing():
            raise SimulationError(f"the machine's kernels run on PoCL, but {pocl_is_missing()}")
        self.faults = list(faults)
        self.shm = shm
        self.share_pids = share_pids
        self.no_proc = no_proc
        self.wrap = list(wrap)
        self.cycle_start = cycle_start
        self.environment = dict(environment or {})
        self._root = Path(tempfile.mkdtemp(prefix="qzsim-"))
        self.cache = kernel_cache(self._root)
        self._running: List["Run"] = []
        self._runs = 0
        try:
            self.layout = Layout(self._root / "machine", self.machine, self.build / "simulator" / "lib")
        except BaseException:
            shutil.rmtree(self._root, ignore_errors=True)
            raise

    def __enter__(self) -> "Simulation":
        return self

    def __exit__(self, *_: object) -> None:
        for run in self._running:
            run.kill()
        shutil.rmtree(self._root, ignore_errors=True)

    def start(self, *arguments: str, **streams: object) -> "Run":
        """Starts the program; `streams` go to subprocess.Popen (stdout, stderr, stdin)."""
        self._runs += 1
        counters = self._root / f"counters-{self._runs}"
        kernels = self._root / f"kernels-{self._runs}"
        status = self._root / f"status-{self._runs}"
        environment = self._environment(counters, kernels)
        with status.open("wb") as told:
            command = [*self._bwrap(), "--json-status-fd", str(told.fileno()), "--",
                       *self._inside(environment), *arguments]
            # A session of its own: a Ctrl-C at the terminal goes to the launcher, which passes it on to the program
            # alone; bubblewrap, hit by it too, would take the program down before it ends in its own way.
            process = subprocess.Popen(command, start_new_session=True, pass_fds=[told.fileno()],
                                       **streams)  # type: ignore[call-overload]
        run = Run(process, counters, kernels, status, self.program.name)
        self._running.append(run)
        return run

    def run(self, *arguments: str, timeout: float = 60, **streams: object) -> "Run":
        """Runs the program to its end, its output caught, and gives the ended run."""
        streams.setdefault("stdout", subprocess.PIPE)
        streams.setdefault("stderr", subprocess.PIPE)
        run = self.start(*arguments, **streams)
        run.wait(timeout)
        return run

    def forget(self, run: "Run") -> None:
        """Removes what an ended run left behind, for those who make thousands of them on one machine."""
        run.kill()
        self._running.remove(run)
        run.remove_files()

    def _environment(self, counters: Path, kernels: Path) -> Dict[str, str]:
        preloaded = [self.build / "simulator/lib/libqzsim-sysfs.so"]
        if self.machine.fast_random:
            preloaded.append(self.build / "simulator/lib/libqzsim-fastrandom.so")
        environment = {
            "QZSIM_MACHINE": str(self.machine.path),
            "QZSIM_FAULTS": "\n".join(self.faults),
            "QZSIM_COUNTERS": str(counters),
            "QZSIM_KERNELS": str(kernels),
            "QZSIM_CYCLE_START": str(self.cycle_start),
            "LD_LIBRARY_PATH": str(self.layout.libraries),
            "LD_PRELOAD": ":".join(str(path) for path in preloaded),
            # Another library comes before the sanitizer's, and that is meant.
            "ASAN_OPTIONS": ":".join(filter(None, [os.environ.get("ASAN_OPTIONS"), "verify_asan_link_order=0"])),
            "POCL_CACHE_DIR": str(self.cache),
        }
        if self.layout.real_opencl is not None:
            environment["QZSIM_REAL_OPENCL"] = str(self.layout.real_opencl)
            environment["OCL_ICD_VENDORS"] = str(self.layout.opencl_drivers)
        environment.update(self.environment)
        return environment

    def _inside(self, environment: Dict[str, str]) -> List[str]:
        """What bubblewrap starts: the machine's processes, then the program in its place."""
        settings = [f"{name}={value}" for name, value in environment.items()]
        command = ["env", *settings, *self.wrap, str(self.program)]
        if not self.machine.processes:
            return command
        script = "".join(f"(exec -a {shlex.quote(name)} sleep 1000000) & " for name in self.machine.processes)
        return ["bash", "-c", script + 'exec "$@"', "bash", *command]

    def _bwrap(self) -> List[str]:
        command = ["bwrap", "--die-with-parent", "--bind", "/", "/"] + self._dev()
        command += ["--bind", str(self.layout.sys), "/sys",
                    "--ro-bind-try", "/sys/devices/system", "/sys/devices/system"]
        for path in vendor_libraries():
            command += ["--ro-bind", "/dev/null", path]
        command += self._os_release() + self._shm() + self._processes()
        return command

    def _processes(self) -> List[str]:
        own = [] if self.share_pids else ["--unshare-pid"]
        if self.no_proc:
            return [*own, "--tmpfs", "/proc"]
        return ["--ro-bind", "/proc", "/proc"] if self.share_pids else [*own, "--proc", "/proc"]

    def _dev(self) -> List[str]:
        if self.shm != "none":
            return ["--dev", "/dev"]
        # bubblewrap's own /dev always has a folder shm.
        command = ["--tmpfs", "/dev"]
        for name in ("null", "zero", "full", "random", "urandom", "tty"):
            command += ["--dev-bind", f"/dev/{name}", f"/dev/{name}"]
        return command

    def _shm(self) -> List[str]:
        if self.shm == "none":
            return []
        if self.shm is None:
            return ["--tmpfs", "/dev/shm"]
        if isinstance(self.shm, int):
            return ["--size", str(self.shm), "--tmpfs", "/dev/shm"]
        if self.shm == "read-only":
            return ["--tmpfs", "/dev/shm", "--remount-ro", "/dev/shm"]
        return ["--bind", str(Path(self.shm).resolve()), "/dev/shm"]

    def _os_release(self) -> List[str]:
        host = Path("/etc/os-release")
        if self.layout.os_release is not None and host.exists():
            # bubblewrap mounts on no symbolic link, which this mostly is.
            return ["--ro-bind", str(self.layout.os_release), str(host.resolve())]
        # A file cannot be taken away from a folder that is bound whole: /etc is laid out anew, without it.
        command = ["--tmpfs", "/etc"]
        for path in sorted(Path("/etc").iterdir()):
            if path.name == "os-release":
                continue
            if path.is_symlink():
                command += ["--symlink", os.readlink(path), str(path)]
            else:
                command += ["--ro-bind-try", str(path), str(path)]
        if self.layout.os_release is not None:
            command += ["--ro-bind", str(self.layout.os_release), "/etc/os-release"]
        return command


class Run:
    """A program that runs, or has ended, on a simulated machine."""

    def __init__(self, process: "subprocess.Popen[bytes]", counters: Path, kernels: Path, status: Path,
                 name: str) -> None:
        self.process = process
        self.output = b""
        self.errors = b""
        self._counters = counters
        self._kernels = kernels
        self._status = status
        self._name = name

    @property
    def exit_code(self) -> Optional[int]:
        """The program's exit code, 128 + N when signal N ended it, None while it runs."""
        code = self.process.poll()
        return code if code is None or code >= 0 else 128 - code

    @property
    def report(self) -> Report:
        return Report(self._counters)

    @property
    def kernels(self) -> List[str]:
        """The texts of the OpenCL programs, in the order in which they were made."""
        try:
            return self._kernels.read_bytes().decode("latin-1").split("\0")[:-1]
        except OSError:
            return []

    def wait(self, timeout: Optional[float] = 60) -> Optional[int]:
        """Waits for the end, keeps what was written to pipes and returns the exit code. Raises SimulationError if
        bubblewrap ended without starting the program."""
        try:
            output, errors = self.process.communicate(timeout=timeout)
        except subprocess.TimeoutExpired:
            self.kill()
            output, errors = self.process.communicate()
            self.output, self.errors = output or b"", errors or b""
            raise
        self.output, self.errors = output or b"", errors or b""
        # bubblewrap reports the exit code of what it started, and itself fails with 1.
        if self.process.returncode == 1 and b'"exit-code"' not in self._status.read_bytes():
            raise SimulationError("bubblewrap could not lay out the machine, for the reason above")
        return self.exit_code

    def pid(self, timeout: float = 5) -> Optional[int]:
        """The program's process as the host numbers it; None when it is not there (any more) by then."""
        end = time.monotonic() + timeout
        while self.process.poll() is None and time.monotonic() < end:
            for pid in _descendants(self.process.pid):
                try:
                    if os.path.basename(os.readlink(f"/proc/{pid}/exe")) == self._name:
                        return pid
                except OSError:
                    continue
            time.sleep(0.01)
        return None

    def send(self, number: int) -> bool:
        """Sends the program, and it alone, a signal; False when it is not there."""
        pid = self.pid()
        if pid is None:
            return False
        try:
            os.kill(pid, number)
        except ProcessLookupError:
            return False
        return True

    def remove_files(self) -> None:
        """Removes the counters and the kernels' texts; there is no report any more then."""
        for path in (self._counters, self._kernels, self._status):
            path.unlink(missing_ok=True)

    def kill(self) -> None:
        """Ends the program and all that was started with it."""
        if self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()
        for stream in (self.process.stdout, self.process.stderr, self.process.stdin):
            if stream is not None and not stream.closed:
                stream.close()


def _descendants(root: int) -> List[int]:
    """The processes below `root`, nearest first."""
    children: Dict[int, List[int]] = {}
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open(f"/proc/{entry}/stat", "rb") as stat:
                parent = int(stat.read().rsplit(b")", 1)[1].split()[1])
        except (OSError, IndexError, ValueError):
            continue
        children.setdefault(parent, []).append(int(entry))
    found: List[int] = []
    level = [root]
    while level:
        level = [child for parent in level for child in sorted(children.get(parent, []))]
        found += level
    return found
