"""The program as a companion on a simulated machine: what it publishes, cycle by cycle, read as a reader does."""

import struct
import subprocess
import tempfile
from pathlib import Path

from qz import NAME, wait_until
from numbered_block import read_locked
from simulated import SimulatedCase

CUDA, AMD = 20, 2452
RECORD = 152


class CompanionCase(SimulatedCase):
    """A test case that starts companions, each with a folder of its own as /dev/shm."""

    def companion(self, machine, *arguments, shm=None, streams=subprocess.PIPE, **settings):
        """A companion on the machine of a description: its folder, that of another one where it is given, and the
        run."""
        if shm is None:
            shm = self.shm_folder()
        return shm, self.described(machine, shm=shm, **settings).start(*arguments, stdout=streams,
                                                                          stderr=streams)

    def shm_folder(self):
        """A folder to be a machine's /dev/shm, removed with the test."""
        folder = tempfile.TemporaryDirectory(prefix="qzTest-", dir="/dev/shm")
        self.addCleanup(folder.cleanup)
        return Path(folder.name)

    def published(self, folder, earlier=b"", timeout=9):
        """The next whole block that is not `earlier`."""
        def next_block():
            data = read_locked(folder) if (folder / NAME).exists() else None
            return data if data and data[4] == 1 and data != earlier else None
        return wait_until(next_block, timeout, "a published block")


def figures(block, offset):
    """Temperature, total memory, used memory and load of the record at an offset; None where the marker is off."""
    _, has_temperature, temperature, has_total, total, has_memory, used, _, has_usage, usage = struct.unpack_from(
        "<84sB3xiB3xiB3xiiB3xi", block, offset)
    return tuple(value if has else None for has, value in
                 ((has_temperature, temperature), (has_total, total), (has_memory, used), (has_usage, usage)))
