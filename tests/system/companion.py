"""The program as a companion on a simulated machine: what it publishes, cycle by cycle, read as a reader does."""

import subprocess
import sys
import tempfile
from pathlib import Path

from qz import SOURCE, wait_until
from segment_bytes import NAME, read_locked
from simulated import SimulatedCase

sys.dont_write_bytecode = True
sys.path.insert(0, str(SOURCE / "docs"))

import read_segment  # noqa: E402  (found through the path above)


class CompanionCase(SimulatedCase):
    """A test case that starts companions, each with a separate folder as /dev/shm."""

    def companion(self, machine, *arguments, shm=None, streams=subprocess.PIPE, **settings):
        """A companion on a described machine: its folder, or that of another companion if given, and the
        run."""
        if shm is None:
            shm = self.shm_folder()
        return shm, self.described(machine, shm=shm, **settings).start(*arguments, stdout=streams, stderr=streams)

    def shm_folder(self):
        """A folder for a machine's /dev/shm, removed with the test."""
        folder = tempfile.TemporaryDirectory(prefix="qzTest-", dir="/dev/shm")
        self.addCleanup(folder.cleanup)
        return Path(folder.name)

    def published(self, folder, earlier=b"", timeout=9):
        """The next whole block that is not `earlier`."""
        def next_block():
            data = read_locked(folder / NAME)
            return data if data and data[4] == 1 and data != earlier else None
        return wait_until(next_block, timeout, "a published block")


def figures(block):
    """Temperature, total memory, used memory and load of each GPU; None where the marker is off."""
    return [(gpu["temperature"], gpu["total"], gpu["used"], gpu["usage"]) for gpu in read_segment.gpus(block)]
