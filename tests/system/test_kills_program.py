"""The program itself, twice on one simulated machine whose every figure carries the cycle's number, killed again and
again under readers that take the lock. At its own pace, that of test_kills.py being thousands of cycles faster.
QZ_PROGRAM_KILLS sets how often."""

import os
import shutil
import signal
import struct
import subprocess
import tempfile
import threading
import time
from pathlib import Path

import numbered_block
import simulated
from segment_bytes import NAME, read_locked

ROUNDS = int(os.environ.get("QZ_PROGRAM_KILLS", "2"))
INTERVAL = 4.0
# The range of its numbers identifies a writer.
RANGE = 10_000
_NUMBERS = struct.Struct("<i12xi8xi")


def numbers(data, offset):
    """Temperature, used memory and usage: the figures that carry the number on both sides."""
    return _NUMBERS.unpack_from(data, offset + 88)


class Readers:
    """Four that read all the time."""

    def __init__(self, directory):
        self.published = {}  # when a writer's latest number was first seen
        self.whole = 0
        self._latest = None
        self.torn = []
        self._directory = directory
        self._stop = threading.Event()
        self._threads = [threading.Thread(target=self._read) for _ in range(4)]
        for thread in self._threads:
            thread.start()

    def _read(self):
        while not self._stop.wait(0.002):
            data = read_locked(self._directory / NAME)
            try:
                number = None if data is None else numbered_block.number_of(data, numbers)
            except numbered_block.Torn as error:
                self.torn.append(str(error))
                return
            if number is not None:
                self.whole += 1
                if number != self._latest:
                    self._latest = number
                    self.published[number // RANGE] = time.monotonic()

    def end(self):
        self._stop.set()
        for thread in self._threads:
            thread.join(10)


class Program(simulated.SimulatedCase):
    def setUp(self):
        self.directory = Path(tempfile.mkdtemp(prefix="kills-", dir="/dev/shm"))
        self.addCleanup(shutil.rmtree, self.directory, ignore_errors=True)
        self.begun = 0

    def begin(self):
        """A writer with a range of numbers: the range and the run."""
        self.begun += 1
        simulation = self.simulation("cycle-numbers", shm=self.directory, cycle_start=self.begun * RANGE)
        return self.begun, simulation.start()

    def wait_for(self, readers, writer, seconds=INTERVAL + 3):
        end = time.monotonic() + seconds
        while writer not in readers.published:
            self.assertEqual(readers.torn, [])
            self.assertLess(time.monotonic(), end, f"writer {writer} did not publish")
            time.sleep(0.002)

    def wait_between_cycles_of(self, readers, writer):
        """So that the process started now does not publish at the same moments, and is seen."""
        while not INTERVAL / 4 < (time.monotonic() - readers.published[writer]) % INTERVAL < INTERVAL * 3 / 4:
            time.sleep(0.01)

    def test_killed(self):
        readers = Readers(self.directory)
        self.addCleanup(readers.end)
        writers = [self.begin()]
        time.sleep(INTERVAL / 2)
        writers.append(self.begin())
        for number, _ in writers:
            self.wait_for(readers, number)
        for turn in range(ROUNDS):
            _, run = writers[turn % 2]
            self.wait_between_cycles_of(readers, writers[1 - turn % 2][0])
            run.stop(signal.SIGKILL)
            self.assertEqual(os.listdir(self.directory), [NAME])
            writers[turn % 2] = self.begin()
            self.wait_for(readers, writers[turn % 2][0])
        readers.end()
        for _, run in writers:
            self.assertEqual(run.stop()[0], 0)
        self.assertEqual(os.listdir(self.directory), [], "something was left behind")
        print(f"{ROUNDS} kills; 4 readers saw {readers.whole} whole blocks, {len(readers.torn)} torn")
        self.assertEqual(readers.torn, [])


if __name__ == "__main__":
    simulated.main()
