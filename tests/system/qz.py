"""Runs the program in a sandbox: a machine without GPUs, with a /dev/shm of the test's own. Reads the segment by its
byte offsets and knows nothing of the program's headers."""

import fcntl
import json
import os
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path

PROGRAM = os.environ["QZGPUINFO"]
BUILD = Path(os.environ["QZGPUINFO_BUILD"])
SOURCE = Path(os.environ["QZGPUINFO_SOURCE"])
NAME = "qzGpuInfo_v2"
SIZE = 7472
SUMMARY = 7316

VERSION = re.search(r"project\(qzGpuInfo VERSION (\S+)", (SOURCE / "CMakeLists.txt").read_text("utf-8")).group(1)
LEGAL_NOTICE = re.search(r"^QZGPUINFO_LEGAL_NOTICE:STRING=(.*)$", (BUILD / "CMakeCache.txt").read_text("utf-8"),
                         re.MULTILINE).group(1)

RULE = ". " + 64 * "-" + "\n"
SHORT_BANNER = f". qzGpuInfo  {VERSION}\n"
LONG_BANNER = RULE + SHORT_BANNER + f". {LEGAL_NOTICE}\n" + RULE
VERBOSE = ". Verbose enabled\n"
INIT = "#################### INIT ####################\n"
NO_NVML = "libnvidia-ml.so not found - no Nvidia GPU or driver not installed\n"
NO_AMD = "No AMD GPU found in /sys/class/drm/\n"
NO_GPU = NO_NVML + NO_AMD
NO_GPU_VERBOSE = NO_NVML + "0 CUDA GPU(s) found - NVML not available\n" + NO_AMD
CREATED = "Created shared memory\n"
USING_EXISTING = "Using existing shared memory\n"
SINGLE = "Single run...\n"
CONTINUOUS = "Continuous run...\n"
NO_GPU_REPORT = ("#################### update current usage ####################\n"
                 "\n-------------------- GPU Information --------------------\n"
                 "CUDA GPU Count : 0\n"
                 "AMD GPU Count: 0\n"
                 "METAL GPU Count: 0\n"
                 "---- Summary ----\n"
                 " \n"
                 "Total GPU Count: 0\n"
                 "-------------------- END --------------------\n\n"
                 "\n\n")
UPDATED = "Updated shared memory block\n"


def nvml_libraries():
    """The driver's libraries of this machine, which the sandbox hides."""
    listed = subprocess.run(["/sbin/ldconfig", "-p"], capture_output=True, text=True, check=False).stdout
    return {os.path.realpath(path) for path in re.findall(r"=> (\S*/libnvidia-ml\.so\S*)", listed)}


def wait_until(condition, timeout=10.0, what="the condition"):
    """The first true answer of `condition`; an error when none came in time."""
    deadline = time.monotonic() + timeout
    while True:
        answer = condition()
        if answer:
            return answer
        if time.monotonic() > deadline:
            raise AssertionError(f"{what} did not come true within {timeout} s")
        time.sleep(0.01)


class Run:
    """The program while it runs. `lines` grows as they are written; each is (seconds since the start, text)."""

    def __init__(self, command, environment, stdout):
        told, tell = os.pipe()
        self.started = time.monotonic()
        # pylint: disable-next=consider-using-with
        self._process = subprocess.Popen([command[0], "--info-fd", str(tell), *command[1:]], env=environment,
                                         stdin=subprocess.DEVNULL, stdout=stdout, stderr=subprocess.PIPE,
                                         pass_fds=[tell])
        os.close(tell)
        with os.fdopen(told, "rb") as pipe:
            self.pid = json.load(pipe)["child-pid"]
        self.lines = []
        self.errors = b""
        self.finished = None
        self._threads = [threading.Thread(target=self._read_errors), threading.Thread(target=self._await_end)]
        if self._process.stdout is not None:
            self._threads.append(threading.Thread(target=self._read_lines))
        for thread in self._threads:
            thread.start()

    def _read_lines(self):
        for line in self._process.stdout:
            self.lines.append((time.monotonic() - self.started, line.decode("utf-8", "replace")))

    def _read_errors(self):
        self.errors = self._process.stderr.read()

    def _await_end(self):
        self._process.wait()
        self.finished = time.monotonic() - self.started

    @property
    def output(self):
        return "".join(text for _, text in list(self.lines))

    @property
    def is_running(self):
        return self._process.returncode is None

    def wait_for(self, text, timeout=10.0, count=1):
        """Waits for a line, and gives the seconds from the start to it."""
        def times():
            found = [when for when, line in list(self.lines) if line == text]
            return found[count - 1:count]
        return wait_until(times, timeout, f"{text!r} in {self.output!r}")[0]

    def send(self, number):
        os.kill(self.pid, number)

    def end(self, timeout=10.0):
        """Waits for the end: exit code (128 + the number of the signal that ended it) and all of the output."""
        for thread in self._threads:
            thread.join(max(0.0, timeout))
            if thread.is_alive():
                raise AssertionError(f"still running after {timeout} s, with {self.output!r}")
        return self._process.returncode, self.output

    def stop(self, number=signal.SIGTERM, timeout=10.0):
        self.send(number)
        return self.end(timeout)

    def kill(self):
        if self.is_running:
            try:
                os.kill(self.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        for thread in self._threads:
            thread.join(10)
        for stream in (self._process.stdout, self._process.stderr):
            if stream is not None:
                stream.close()


class Sandbox:
    """A machine without GPUs. `shm` says what stands at /dev/shm: "own" (the host sees it as `folder`), "read-only",
    "full", or "missing". `null` False: there is no /dev/null. `drm`: a folder of DRM cards."""

    def __init__(self, shm="own", null=True, drm=None):
        self.folder = Path(tempfile.mkdtemp(prefix="qzTest-", dir="/dev/shm"))
        self.segment = self.folder / NAME
        self.outside = Path(tempfile.mkdtemp(prefix="qzTest-"))
        self._runs = []
        bind = ["--bind", str(self.folder), "/dev/shm"]
        places = {"own": bind, "read-only": ["--ro-bind", *bind[1:]], "missing": [],
                  "full": ["--size", "4096", "--tmpfs", "/dev/shm"]}[shm]
        devices = ["--dev", "/dev"]
        if shm == "missing" or not null:
            devices = ["--tmpfs", "/dev", "--dev-bind", "/dev/full", "/dev/full"]
            if null:
                devices += ["--dev-bind", "/dev/null", "/dev/null"]
        self._command = ["bwrap", "--die-with-parent", "--ro-bind", "/", "/", *devices, *places, "--tmpfs", "/sys",
                         "--bind", str(self.outside), str(self.outside)]
        if drm is not None:
            self._command += ["--ro-bind", str(drm), "/sys/class/drm"]
        for library in nvml_libraries():
            self._command += ["--ro-bind", "/dev/null", library]
        self._environment = {name: value for name, value in os.environ.items()
                             if not name.startswith(("LD_", "LC_", "LANG", "QT_"))}

    def start(self, *arguments, shell=None, command=None, stdout=subprocess.PIPE, **environment):
        """Starts the program with its arguments, or a `shell` line in which "$0" is the program and "$@" the
        arguments, or a whole `command`."""
        if command is None:
            command = [PROGRAM, *arguments]
            if shell is not None:
                command = ["/bin/sh", "-c", shell, *command]
        run = Run([*self._command, "--", *command], {**self._environment, **environment}, stdout)
        self._runs.append(run)
        return run

    def run(self, *arguments, timeout=20.0, **options):
        """The program from its start to its own end: exit code and output."""
        return self.start(*arguments, **options).end(timeout)

    def plant(self, content, mode=0o600):
        self.segment.write_bytes(content)
        self.segment.chmod(mode)

    def read(self):
        """The segment's bytes, copied out under its lock as a reader has to."""
        with open(self.segment, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            return file.read()

    def is_ready(self):
        return self.segment.exists() and self.read()[4:8] == b"\1\0\0\0"

    def close(self):
        for run in self._runs:
            run.kill()
        shutil.rmtree(self.folder, ignore_errors=True)
        shutil.rmtree(self.outside, ignore_errors=True)


def empty_block(size=SIZE):
    """What a machine without GPUs publishes, byte by byte, in a segment of zeros."""
    record = bytearray(152)
    struct.pack_into("<i", record, 72, -1)
    block = bytearray(struct.pack("<IIIII", 68865, 1, 0, 0, 0) + 49 * record + bytes(4))
    summary = bytearray(record)
    summary[1:8] = b"Summary"
    summary[68] = 4
    struct.pack_into("<i", summary, 72, 99)
    for offset in (96, 108):
        struct.pack_into("<i", summary, offset, 65535)
    block[SUMMARY:SUMMARY + 152] = summary
    return bytes(block).ljust(size, b"\0")


class SandboxCase(unittest.TestCase):
    def sandbox(self, **settings):
        """A sandbox that goes with the test."""
        made = Sandbox(**settings)
        self.addCleanup(made.close)
        return made


def main():
    """Runs the file's tests; ends with 77 where the host can't lay out a sandbox."""
    tried = subprocess.run(["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--tmpfs", "/dev/shm", "true"],
                           capture_output=True, text=True, check=False) if shutil.which("bwrap") else None
    if tried is None or tried.returncode != 0:
        print("SKIPPED: no sandbox: " + (tried.stderr.strip() if tried else "bubblewrap is not installed"))
        sys.exit(77)
    # Children inherit what nohup, or a shell that runs the tests in the background, has ignored.
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
        if signal.getsignal(number) == signal.SIG_IGN:
            signal.signal(number, signal.SIG_DFL)
    unittest.main()
