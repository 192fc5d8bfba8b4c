"""Two writers and four readers on one segment while the writers are killed at random instants: no reader that takes
the lock sees a block of two cycles, every restart publishes again, and the last to leave removes the segment.

The writers are the program's own driver, publishing without a pause (tests/harness/steadyWriter). QZ_KILLS sets how
many are killed."""

import multiprocessing
import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import numbered_block
from segment_bytes import NAME, read_locked

KILLS = int(os.environ.get("QZ_KILLS", "300"))
READERS = 4
WRITERS = 2
# The range of its numbers identifies a writer. A float holds all of them.
RANGE = 160_000
IDENTITIES = 100
WRITER = os.path.join(os.environ["QZGPUINFO_BUILD"], "tests/harness/steadyWriter")


def look(directory):
    """The number in the segment, None if there is none."""
    data = read_locked(os.path.join(directory, NAME))
    return None if data is None else numbered_block.number_of(data, numbered_block.all_figures)


def read_on(directory, stop, results):
    """A reader's statistics: how many blocks it read, how many were not ready, and the first that was torn."""
    ready = unready = 0
    torn = None
    while not stop.is_set() and torn is None:
        try:
            if look(directory) is None:
                unready += 1
            else:
                ready += 1
        except (numbered_block.Torn, BlockingIOError) as error:
            torn = f"{type(error).__name__}: {error}"
    results.put((ready, unready, torn))


class Writer:
    _made = 0

    def __init__(self, directory, *arguments):
        self.identity = Writer._made % IDENTITIES
        Writer._made += 1
        self._directory = directory
        self._log = tempfile.TemporaryFile()
        self.process = subprocess.Popen([WRITER, directory, str(self.identity * RANGE + 1), *arguments],
                                        stdout=self._log, stderr=subprocess.STDOUT)

    def output(self):
        self._log.seek(0)
        return self._log.read().decode("utf-8", "replace")

    def wait_until_it_publishes(self, seconds=10.0):
        end = time.monotonic() + seconds
        while time.monotonic() < end and self.process.poll() is None:
            number = look(self._directory)
            if number is not None and (number - 1) // RANGE == self.identity:
                return
            time.sleep(0.0005)
        raise AssertionError(f"a writer did not publish; exit code {self.process.poll()}; it said:\n{self.output()}")

    def close(self):
        self._log.close()

    def end(self, number, expected):
        self.process.send_signal(number)
        code = self.process.wait(20)
        said = self.output()
        self.close()
        if code != expected:
            raise AssertionError(f"a writer ended with {code}, not {expected}; it said:\n{said}")
        return said


class Kills(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.mkdtemp(prefix="kills-", dir="/dev/shm")
        self.addCleanup(shutil.rmtree, self.directory, ignore_errors=True)

    def test_killed_at_random_instants(self):
        stop, results = multiprocessing.Event(), multiprocessing.Queue()
        readers = [multiprocessing.Process(target=read_on, args=(self.directory, stop, results), daemon=True)
                   for _ in range(READERS)]
        writers = [Writer(self.directory) for _ in range(WRITERS)]
        for reader in readers:
            reader.start()
        try:
            for writer in writers:
                writer.wait_until_it_publishes()
            for kill in range(KILLS):
                self._kill_one(writers, kill % WRITERS)
        finally:
            stop.set()
            seen = [results.get(timeout=20) for _ in readers]
            for reader in readers:
                reader.join(20)
            for writer in writers[:-1]:
                writer.end(signal.SIGTERM, 0)
        self.assertEqual(os.listdir(self.directory), [NAME], "the segment stays while a writer is left")
        writers[-1].end(signal.SIGTERM, 0)
        self.assertEqual(os.listdir(self.directory), [], "something was left behind")
        self._report(seen)

    def _kill_one(self, writers, index):
        time.sleep(random.uniform(0, 0.03))
        writers[index].end(signal.SIGKILL, -signal.SIGKILL)
        self.assertEqual(os.listdir(self.directory), [NAME], "a killed writer leaves the segment and nothing else")
        writers[index] = Writer(self.directory)
        writers[index].wait_until_it_publishes()

    def _report(self, seen):
        torn = [reader[2] for reader in seen if reader[2] is not None]
        ready, unready = (sum(reader[column] for reader in seen) for column in (0, 1))
        print(f"{KILLS} kills; {READERS} readers saw {ready} whole blocks, {unready} not ready, {len(torn)} torn")
        self.assertEqual(torn, [])
        self.assertTrue(all(reader[0] > 0 for reader in seen), "a reader never saw a block")

    def test_killed_half_way_through_each_write(self):
        unready = 0
        for write in range(1, 13):
            with self.subTest(write=write):
                writer = Writer(self.directory, str(write))
                self.assertEqual(writer.process.wait(20), -signal.SIGKILL, writer.output())
                writer.close()
                unready += look(self.directory) is None
                follower = Writer(self.directory)
                follower.wait_until_it_publishes()
                follower.end(signal.SIGKILL, -signal.SIGKILL)
        self.assertGreater(unready, 0, "no kill met a write that was under way")
        last = Writer(self.directory)
        last.wait_until_it_publishes()
        self.assertIn("Using existing shared memory", last.end(signal.SIGTERM, 0))
        self.assertEqual(os.listdir(self.directory), [])


if __name__ == "__main__":
    if not os.path.isdir("/dev/shm"):
        print("SKIPPED: this machine has no /dev/shm")
        sys.exit(77)
    unittest.main()
