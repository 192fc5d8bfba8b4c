"""The sandbox that bubblewrap lays around a program, and the program that runs in it."""

import os
import shutil
import signal
import subprocess
import tempfile
import threading
import time
from pathlib import Path
from typing import Dict, List, Optional, Sequence, Tuple, Union

_DEVICES = ("null", "zero", "full", "random", "urandom", "tty")


class SandboxError(Exception):
    """A program cannot be run as asked for on this host; the text says why."""


class Run:
    """A program that runs, or has ended, in a sandbox. Its output to pipes is collected as it arrives."""

    def __init__(self, command: Sequence[str], program: str, environment: Optional[Dict[str, str]] = None,
                 stdin: object = None, stdout: object = subprocess.PIPE, stderr: object = subprocess.PIPE) -> None:
        """`command` begins with bwrap; `program` is the file by which the program's own process is recognised."""
        self.started = time.monotonic()
        self.finished: Optional[float] = None  # seconds from the start to the end
        self.lines: List[Tuple[float, str]] = []  # (seconds from the start, line of standard output)
        self.errors = ""
        self._program = program
        self._pid: Optional[int] = None
        self._news = threading.Condition()
        self._output_ended = False
        self._status = tempfile.TemporaryFile()
        number = self._status.fileno()
        # In its own session: Ctrl-C at the terminal reaches only the launcher, which passes it on to the program;
        # bubblewrap would receive it too, and kill the program before it has shut down.
        self.process = subprocess.Popen([command[0], "--json-status-fd", str(number), *command[1:]],
                                        pass_fds=[number], start_new_session=True, env=environment,
                                        stdin=stdin, stdout=stdout, stderr=stderr)  # type: ignore[call-overload]
        tasks = [self._await_end]
        if self.process.stdout is not None:
            tasks.append(self._read_lines)
        if self.process.stderr is not None:
            tasks.append(self._read_errors)
        self._threads = [threading.Thread(target=task, daemon=True) for task in tasks]
        for thread in self._threads:
            thread.start()

    def _await_end(self) -> None:
        self.process.wait()
        self.finished = time.monotonic() - self.started

    def _read_lines(self) -> None:
        assert self.process.stdout is not None
        with self.process.stdout as stream:
            for line in stream:
                with self._news:
                    self.lines.append((time.monotonic() - self.started, line.decode("utf-8", "backslashreplace")))
                    self._news.notify_all()
        with self._news:
            self._output_ended = True
            self._news.notify_all()

    def _read_errors(self) -> None:
        assert self.process.stderr is not None
        with self.process.stderr as stream:
            self.errors = stream.read().decode("utf-8", "backslashreplace")

    @property
    def output(self) -> str:
        """Standard output so far. Bytes that are not UTF-8 are shown as \\xHH."""
        return "".join(line for _, line in list(self.lines))

    @property
    def exit_code(self) -> Optional[int]:
        """The program's exit code, 128 + N if signal N ended it, None while it runs."""
        code = self.process.returncode
        return code if code is None or code >= 0 else 128 - code

    @property
    def is_running(self) -> bool:
        return self.exit_code is None

    def wait_for(self, line: str, timeout: float = 10, count: int = 1) -> float:
        """Waits until the line was written `count` times and returns the seconds from the start to the last of them.
        Raises TimeoutError, at once when no more is written."""
        def times() -> List[float]:
            return [when for when, text in self.lines if text == line]
        with self._news:
            self._news.wait_for(lambda: len(times()) >= count or self._output_ended, timeout)
            if len(times()) < count:
                raise TimeoutError(f"{line!r} was not written {count} times within {timeout} s, only {self.output!r}")
            return times()[count - 1]

    def wait(self, timeout: Optional[float] = 60) -> Optional[int]:
        """Waits for the end and for the end of what is written to pipes; returns the exit code. Raises TimeoutError,
        and SandboxError if bubblewrap ended without starting the program."""
        deadline = None if timeout is None else time.monotonic() + timeout
        for thread in self._threads:
            thread.join(None if deadline is None else max(0.0, deadline - time.monotonic()))
            if thread.is_alive():
                raise TimeoutError(f"still running after {timeout} s, with {self.output!r}")
        # bubblewrap reports the exit code of what it started, and itself fails with 1.
        if self.exit_code == 1 and b'"exit-code"' not in os.pread(self._status.fileno(), 4096, 0):
            reason = f": {self.errors.strip()}" if self.errors else ", for the reason above"
            raise SandboxError(f"bubblewrap could not lay out the machine{reason}")
        return self.exit_code

    def end(self, timeout: float = 60) -> Tuple[Optional[int], str]:
        """Waits for the end; returns the exit code and all of standard output."""
        return self.wait(timeout), self.output

    def pid(self, timeout: float = 5) -> int:
        """The program's process as the host numbers it. Raises ProcessLookupError if it does not run by then."""
        deadline = time.monotonic() + timeout
        while self._pid is None:
            self._pid = next(filter(self._is_program, _descendants(self.process.pid)), None)
            if self._pid is None and (not self.is_running or time.monotonic() > deadline):
                raise ProcessLookupError(f"{self._program} is not running")
            time.sleep(0.001 if self._pid is None else 0)
        return self._pid

    def _is_program(self, pid: int) -> bool:
        """Whether its executable has the program's name, or its first argument is the program: a script."""
        try:
            executable = os.readlink(f"/proc/{pid}/exe")
            arguments = Path(f"/proc/{pid}/cmdline").read_bytes().split(b"\0")
        except OSError:
            return False
        name = os.path.basename(os.path.realpath(self._program))
        return os.path.basename(executable) == name or arguments[1:2] == [os.fsencode(self._program)]

    def send(self, number: int) -> None:
        """Sends a signal to the program alone. Raises ProcessLookupError if it does not run."""
        os.kill(self.pid(), number)

    def stop(self, number: int = signal.SIGTERM, timeout: float = 60) -> Tuple[Optional[int], str]:
        """Sends a signal and waits for the end, as end()."""
        self.send(number)
        return self.end(timeout)

    def kill(self) -> None:
        """Ends the program and all that was started with it."""
        if self.is_running:
            os.killpg(self.process.pid, signal.SIGKILL)
        for thread in self._threads:
            thread.join(10)
        self._status.close()


class Sandbox:
    """What programs see of this host; they run there one after the other or side by side.

    Use it as a context manager: leaving it ends what still runs.

    root        bubblewrap's arguments for the files; the whole host unless given
    sys         a folder to be /sys; an empty one unless given
    shm         a host folder to be /dev/shm, created if missing; "none" for no /dev/shm, "read-only" for one that cannot
                be written, a number of bytes for a file system of that size; None for a fresh one
    null        False: no /dev/null
    hidden      files of the host that appear empty
    share_pids  programs see the host's processes
    no_proc     /proc is empty
    more        further arguments for bubblewrap
    """

    def __init__(self, root: Sequence[str] = ("--bind", "/", "/"), sys: Optional[Path] = None,
                 shm: Union[Path, str, int, None] = None, null: bool = True, hidden: Sequence[str] = (),
                 share_pids: bool = False, no_proc: bool = False, more: Sequence[str] = ()) -> None:
        if shutil.which("bwrap") is None:
            raise SandboxError("bubblewrap is not installed (package bubblewrap)")
        self.runs: List[Run] = []
        self.command = ["bwrap", "--die-with-parent", *root, *_devices(shm, null)]
        if sys is None:
            self.command += ["--tmpfs", "/sys"]
        else:
            self.command += ["--bind", str(sys), "/sys", "--ro-bind-try", "/sys/devices/system", "/sys/devices/system"]
        for path in hidden:
            self.command += ["--ro-bind", "/dev/null", path]
        self.command += _shared_memory(shm)
        if no_proc:
            self.command += ["--tmpfs", "/proc"]
        if not share_pids:
            self.command += ["--unshare-pid"] + ([] if no_proc else ["--proc", "/proc"])
        self.command += more

    def __enter__(self) -> "Sandbox":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        for run in self.runs:
            run.kill()

    def launch(self, command: Sequence[str], program: Optional[str] = None, **options: object) -> Run:
        """Starts a command in which `program`, its first word unless given, is the program's file. `options` are those
        of Run."""
        run = Run([*self.command, "--", *command], program or command[0], **options)  # type: ignore[arg-type]
        self.runs.append(run)
        return run

    def run_to_end(self, *command: str, timeout: float = 60) -> Run:
        """Runs a command to its end and returns the ended run."""
        run = self.launch(command)
        run.wait(timeout)
        return run


def _devices(shm: object, null: bool) -> List[str]:
    if shm != "none" and null:
        return ["--dev", "/dev"]
    # bubblewrap's own /dev always has a folder shm, and a null.
    command = ["--tmpfs", "/dev"]
    for name in _DEVICES[0 if null else 1:]:
        command += ["--dev-bind", f"/dev/{name}", f"/dev/{name}"]
    return command


def _shared_memory(shm: Union[Path, str, int, None]) -> List[str]:
    place = ["--perms", "1777", "--tmpfs", "/dev/shm"]
    if shm is None:
        return place
    if shm == "none":
        return []
    if shm == "read-only":
        return [*place, "--remount-ro", "/dev/shm"]
    if isinstance(shm, int):
        return ["--size", str(shm), *place]
    try:
        Path(shm).mkdir(parents=True, exist_ok=True)
    except OSError as error:
        raise SandboxError(f"{shm}: {error.strerror}") from error
    return ["--bind", str(Path(shm).resolve()), "/dev/shm"]


def _descendants(root: int) -> List[int]:
    """The processes below `root`, nearest first."""
    children: Dict[int, List[int]] = {}
    for entry in filter(str.isdigit, os.listdir("/proc")):
        try:
            parent = int(Path(f"/proc/{entry}/stat").read_bytes().rsplit(b")", 1)[1].split()[1])
        except (OSError, IndexError, ValueError):
            continue
        children.setdefault(parent, []).append(int(entry))
    found: List[int] = []
    level = [root]
    while level:
        level = [child for parent in level for child in sorted(children.get(parent, []))]
        found += level
    return found
