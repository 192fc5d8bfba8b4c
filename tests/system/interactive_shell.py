"""Types into a real interactive shell on a pseudo-terminal, on a machine whose processes have given names and whose
programs record the arguments they are started with."""

import os
import pty
import re
import select
import shutil
import signal
import sys
import tempfile
import time
from pathlib import Path

PROMPT = "ready> "
DONE = "recorded."
# The control sequences with which shells draw their line.
CONTROLS = r"\x1b(\[[0-9;?<=>]*[a-zA-Z]|[=>]|[(\]][^\x07\x1b]*(\x07|\x1b\\)?)"
RECORDER = f"""#!/bin/sh
for argument; do printf '%s\\0' "$argument"; done > "$RECORDED"
echo {DONE}
"""
# Starts a process for each name in NAMES, then becomes the shell.
NAMER = """
import os, signal, sys
for name in bytes.fromhex(os.environ.pop("NAMES")).split(b"\\0"):
    done, tell = os.pipe()
    if os.fork() == 0:
        with open("/proc/self/comm", "wb", buffering=0) as comm:
            comm.write(name + b"\\0")
        os.close(tell)
        signal.pause()
    os.close(tell)
    os.read(done, 1)
    os.close(done)
os.execvp(sys.argv[1], sys.argv[1:])
"""


class InteractiveShell:
    """`work` is the shell's current folder, `home` holds its settings, and `programs` is first in its PATH."""

    def __init__(self, programs, names):
        self.folder = Path(tempfile.mkdtemp(prefix="shell-"))
        self.work, self.home, self.programs = (self.folder / name for name in ("work", "home", "programs"))
        for folder in (self.work, self.home, self.programs):
            folder.mkdir()
        for name in programs:
            (self.programs / name).write_text(RECORDER, encoding="utf-8")
            (self.programs / name).chmod(0o755)
        self.names = names
        self.recorded = self.folder / "recorded"
        self.pid = self.terminal = None
        self.output, self.patience = "", 20.0

    def start(self, *command, **environment):
        environment = {"LC_ALL": "C.UTF-8", "TERM": "dumb", "HOME": str(self.home), "RECORDED": str(self.recorded),
                       "PATH": f"{self.programs}:/usr/bin:/bin", "NAMES": b"\0".join(self.names).hex(), **environment}
        sandbox = ["bwrap", "--dev-bind", "/", "/", "--unshare-pid", "--proc", "/proc", "--die-with-parent", "--chdir",
                   str(self.work), sys.executable, "-c", NAMER, *(str(part) for part in command)]
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            try:
                os.execve(shutil.which("bwrap"), sandbox, environment)
            finally:
                os._exit(127)
        self._read_until(self._is_ready)

    def _is_ready(self):
        return re.sub(CONTROLS, "", self.output).endswith(PROMPT)

    def _read_until(self, condition):
        deadline = time.monotonic() + self.patience
        while not condition():
            if not select.select([self.terminal], [], [], max(0.0, deadline - time.monotonic()))[0]:
                self.patience = 0.0
                raise AssertionError(f"the shell does not go on: {self.output!r}")
            try:
                self.output += os.read(self.terminal, 65536).decode("utf-8", "replace")
            except OSError as error:
                raise AssertionError(f"the shell has ended: {self.output!r}") from error

    def type(self, keys):
        """Types the keys and Enter; returns the arguments with which the command was started."""
        self.output = ""
        os.write(self.terminal, os.fsencode(keys) + b"\r")
        self._read_until(lambda: DONE in self.output and self._is_ready())
        arguments = self.recorded.read_bytes().split(b"\0")
        self.recorded.unlink()
        return arguments[:-1]

    def close(self):
        if self.pid:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
            os.close(self.terminal)
        shutil.rmtree(self.folder)
