"""Runs the program in a sandbox: a machine without GPUs, with a /dev/shm of the test's own."""

import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

PROGRAM = os.environ["QZGPUINFO"]
BUILD = Path(os.environ["QZGPUINFO_BUILD"])
SOURCE = Path(os.environ["QZGPUINFO_SOURCE"])
sys.path.insert(0, str(SOURCE / "simulator"))

from segment_bytes import NAME, SIZE, SUMMARY, empty_block, read_locked  # noqa: E402, F401  (for the tests)

from qzsim import sandbox  # noqa: E402  (found through the path above)
from qzsim.host import vendor_libraries  # noqa: E402

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


def wait_until(condition, timeout=10.0, what="the condition"):
    """The first true result of `condition`; an error if there is none in time."""
    deadline = time.monotonic() + timeout
    while True:
        answer = condition()
        if answer:
            return answer
        if time.monotonic() > deadline:
            raise AssertionError(f"{what} did not come true within {timeout} s")
        time.sleep(0.01)


class Sandbox(sandbox.Sandbox):
    """A machine without GPUs. `shm` says what is at /dev/shm: "own" (the host sees it as `folder`), or as for the
    launcher's sandbox. `drm`: a folder of DRM cards."""

    def __init__(self, shm="own", drm=None, more=(), **settings):
        self.folder = Path(tempfile.mkdtemp(prefix="qzTest-", dir="/dev/shm"))
        self.segment = self.folder / NAME
        self.outside = Path(tempfile.mkdtemp(prefix="qzTest-"))
        cards = ["--ro-bind", str(drm), "/sys/class/drm"] if drm else []
        super().__init__(root=["--ro-bind", "/", "/"], shm=self.folder if shm == "own" else shm,
                         hidden=[path for path in vendor_libraries() if "nvidia-ml" in path], share_pids=True,
                         more=["--bind", str(self.outside), str(self.outside), *cards, *more], **settings)
        self._environment = {name: value for name, value in os.environ.items()
                             if not name.startswith(("LD_", "LC_", "LANG", "QT_"))}

    def start(self, *arguments, shell=None, command=None, stdout=subprocess.PIPE, **environment):
        """Starts the program with its arguments, or a `shell` line in which "$0" is the program and "$@" the
        arguments, or a whole `command`."""
        if command is None:
            command = [PROGRAM, *arguments]
            if shell is not None:
                command = ["/bin/sh", "-c", shell, *command]
        return self.launch(command, PROGRAM, environment={**self._environment, **environment},
                           stdin=subprocess.DEVNULL, stdout=stdout)

    def run(self, *arguments, timeout=20.0, **options):
        """The program from its start to its own end: exit code and output."""
        return self.start(*arguments, **options).end(timeout)

    def plant(self, content, mode=0o600):
        self.segment.write_bytes(content)
        self.segment.chmod(mode)

    def read(self):
        """The segment's bytes, copied out under its lock as a reader has to."""
        return read_locked(self.segment)

    def is_ready(self):
        return self.segment.exists() and self.read()[4:8] == b"\1\0\0\0"

    def close(self):
        super().close()
        shutil.rmtree(self.folder, ignore_errors=True)
        shutil.rmtree(self.outside, ignore_errors=True)


class SandboxCase(unittest.TestCase):
    def sandbox(self, **settings):
        """A sandbox that is removed with the test."""
        made = Sandbox(**settings)
        self.addCleanup(made.close)
        return made


def main():
    """Runs the file's tests. Ends with 77, and says why, where the host can't lay out a sandbox or every test was
    skipped."""
    tried = subprocess.run(["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--tmpfs", "/dev/shm", "true"],
                           capture_output=True, text=True, check=False) if shutil.which("bwrap") else None
    if tried is None or tried.returncode != 0:
        print("SKIPPED: no sandbox: " + (tried.stderr.strip() if tried else "bubblewrap is not installed"))
        sys.exit(77)
    # Children inherit what nohup, or a shell that runs the tests in the background, has ignored.
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
        if signal.getsignal(number) == signal.SIG_IGN:
            signal.signal(number, signal.SIG_DFL)
    result = unittest.main(exit=False, verbosity=2).result
    if result.testsRun > 0 and len(result.skipped) == result.testsRun:
        print("SKIPPED: " + "; ".join(sorted({reason for _, reason in result.skipped})))
        sys.exit(77)
    sys.exit(not result.wasSuccessful())
