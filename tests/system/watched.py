"""A process with a unique name, for the program to watch."""

import os
import shutil
import subprocess
import tempfile


class Watched:
    _count = 0

    def __init__(self, *switch):
        """`switch`: a command that starts another as some user."""
        Watched._count += 1
        self._folder = tempfile.mkdtemp()
        os.chmod(self._folder, 0o755)
        # At most 15 bytes, whatever the pid: where the executable can't be read, only the kernel's name is compared, and
        # the kernel cuts it there.
        self.name = f"w{os.getpid()}-{Watched._count}"
        program = shutil.copy(shutil.which("sleep"), os.path.join(self._folder, self.name))
        self._process = subprocess.Popen([*switch, program, "1000"])

    def end(self):
        self._process.kill()
        self._process.wait()
        shutil.rmtree(self._folder, ignore_errors=True)
