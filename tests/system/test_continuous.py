"""Continuous runs on a machine without GPUs: what is printed and published when, the watchdog, the signals, and a
standard output that misbehaves. The runs take seconds each, so all of them are started at once."""

import fcntl
import itertools
import os
import signal
import struct
import subprocess
import threading
import time
import unittest

import qz
from qz import (CONTINUOUS, CREATED, INIT, LONG_BANNER, NO_GPU, NO_GPU_REPORT, NO_GPU_VERBOSE, SHORT_BANNER, UPDATED,
                USING_EXISTING, VERBOSE, wait_until)

START = SHORT_BANNER + INIT + CREATED + NO_GPU + CONTINUOUS
VERBOSE_START = SHORT_BANNER + VERBOSE + INIT + CREATED + NO_GPU_VERBOSE + CONTINUOUS
REPORT_END = "-------------------- END --------------------\n"
CYCLE = 4.0
WATCHDOG = 5.0
EARLY = 0.98  # the clocks of two processes are read at different instants
SLACK = 3.0  # seconds that a busy machine may take; test_single holds what the timers are set to


def gone(name):
    return f"Process '{name}' does  not exist, closing...\n"


class Neighbour:
    """An idle process of a given name."""

    def __init__(self, name):
        self.name = f"{name}-{os.getpid()}"
        # pylint: disable-next=consider-using-with
        self._process = subprocess.Popen([self.name, "120"], executable="/bin/sleep")

    def end(self):
        self._process.kill()
        self._process.wait()


class Continuous(unittest.TestCase):
    """Each run is started in setUpClass and checked by the test of the same name."""

    @classmethod
    def setUpClass(cls):
        cls.plain = cls.begin()
        cls.verbose = cls.begin("-v")
        cls.watched = Neighbour("qzWatched")
        cls.other = Neighbour("qzOther")
        cls.addClassCleanup(cls.watched.end)
        cls.addClassCleanup(cls.other.end)
        cls.watching = cls.begin(cls.watched.name)
        cls.watching_empty = cls.begin("")
        cls.watching_first = cls.begin(cls.other.name, "qzNobody", "-debug")
        cls.watching_gone = cls.begin("-v", "qzNobody", cls.other.name)
        cls.stuck = cls.begin("-v")
        cls.stuck_twice = cls.begin("-v")
        cls.locker = threading.Thread(target=cls.hold_locks)
        cls.observer = threading.Thread(target=cls.await_first_cycle)
        for thread in (cls.locker, cls.observer):
            thread.start()
            cls.addClassCleanup(thread.join)
        cls.full = cls.begin("-v", shell='exec "$0" "$@" > /dev/full')
        cls.piped = cls.begin("-v", shell='{ "$0" "$@"; echo $? > "$QZ_TEST_CODE"; } | head -n 1', code=True)
        streams = ("<&-", ">&-", "2>&-")
        cls.closed = {(closed, null): cls.begin("-v", shell=f'exec "$0" "$@" {" ".join(closed)}', null=null)
                      for count in range(1, 4) for closed in itertools.combinations(streams, count)
                      for null in ((True, False) if count == 3 else (True,))}

    @classmethod
    def begin(cls, *arguments, null=True, code=False, **options):
        """A run in a new sandbox: both."""
        sandbox = qz.Sandbox(null=null)
        cls.addClassCleanup(sandbox.close)
        if code:
            options["QZ_TEST_CODE"] = str(sandbox.outside / "code")
        return sandbox, sandbox.start(*arguments, **options)

    @classmethod
    def hold_locks(cls):
        """Takes the lock of two segments before their first cycle."""
        cls.held = []
        for sandbox, run in (cls.stuck, cls.stuck_twice):
            run.wait_for(CONTINUOUS)
            cls.held.append(os.open(sandbox.segment, os.O_RDWR))
            fcntl.flock(cls.held[-1], fcntl.LOCK_EX)

    @classmethod
    def await_first_cycle(cls):
        sandbox, run = cls.plain
        wait_until(sandbox.is_ready)
        cls.first_cycle = time.monotonic() - run.started

    # Tests run in the order of their names: those that check early come first.

    def test_1_before_the_first_cycle(self):
        sandbox, run = self.plain
        # Line by line, while the program runs and though standard output is a pipe.
        when = run.wait_for(CONTINUOUS)
        self.assertLess(when, 3)
        self.assertEqual(run.output, LONG_BANNER + INIT + CREATED + NO_GPU + CONTINUOUS)
        self.assertEqual(sandbox.read(), bytes(qz.SIZE))
        self.assertEqual(sandbox.segment.stat().st_mode & 0o7777, 0o600)
        self.assertLess(time.monotonic() - run.started, 3.5)

    def test_2_signals_while_a_lock_is_waited_for(self):
        (sandbox, once), (other_sandbox, twice) = self.stuck, self.stuck_twice
        self.locker.join()
        for run in (once, twice):
            run.wait_for(REPORT_END)
        when = time.monotonic()
        once.send(signal.SIGTERM)
        twice.send(signal.SIGINT)
        time.sleep(0.3)
        self.assertTrue(once.is_running and twice.is_running)
        # The second signal ends it at once, the first when the cycle is over.
        self.assertEqual(twice.stop(signal.SIGTERM), (128 + signal.SIGTERM, VERBOSE_START + NO_GPU_REPORT))
        self.assertLess(time.monotonic() - when, 0.8)
        self.assertEqual(other_sandbox.segment.read_bytes(), bytes(qz.SIZE))
        code, output = once.end()
        self.assertEqual(code, 0)
        self.assertLess(time.monotonic() - when, 1 + SLACK)
        head = VERBOSE_START + NO_GPU_REPORT + "Unable to lock shared memory!; "
        self.assertTrue(output.startswith(head), output)
        self.assertRegex(output[len(head):], r"\A[^\n]*qzGpuInfo_v2[^\n]*\n\Z")
        self.assertFalse(sandbox.segment.exists())

    def test_3_the_first_cycle(self):
        sandbox, run = self.plain
        self.observer.join()
        data = sandbox.read()
        self.assertGreater(self.first_cycle, CYCLE * EARLY)
        self.assertLess(self.first_cycle, CYCLE + SLACK)
        version, ready, *counts = struct.unpack_from("<5I", data)
        self.assertEqual((version, ready, counts), (68865, 1, [0, 0, 0]))
        self.assertEqual(data[qz.SUMMARY], 0)
        self.assertEqual(data[qz.SUMMARY + 1:qz.SUMMARY + 65], b"Summary".ljust(64, b"\0"))
        self.assertEqual(data[7469:], b"\0\0\0")
        self.assertEqual(data, qz.empty_block())
        self.assertEqual(run.output, LONG_BANNER + INIT + CREATED + NO_GPU + CONTINUOUS)

    def test_4_a_second_instance(self):
        sandbox, first = self.plain
        wait_until(sandbox.is_ready)
        second = sandbox.start("-v")
        second.wait_for(CONTINUOUS)
        self.assertEqual(second.output, VERBOSE_START.replace(CREATED, USING_EXISTING))
        self.assertEqual(sandbox.read(), qz.empty_block())
        self.assertEqual(first.stop(signal.SIGINT), (0, LONG_BANNER + INIT + CREATED + NO_GPU + CONTINUOUS))
        self.assertEqual(sandbox.read(), qz.empty_block())
        self.assertEqual(second.stop(signal.SIGTERM)[0], 0)
        self.assertEqual(os.listdir(sandbox.folder), [])

    def test_5_watching(self):
        sandbox, run = self.watching
        wait_until(lambda: time.monotonic() - run.started > WATCHDOG + SLACK / 2, 10)
        self.assertTrue(run.is_running)
        self.assertEqual(run.output, START)
        self.watched.end()
        when = time.monotonic()
        self.assertEqual(run.end(), (0, START + gone(self.watched.name)))
        self.assertLess(time.monotonic() - when, WATCHDOG + SLACK)
        self.assertEqual(os.listdir(sandbox.folder), [])

    def test_6_watching_nobody(self):
        for (_, run), name, start in ((self.watching_empty, "", START),
                                      (self.watching_gone, "qzNobody", VERBOSE_START)):
            with self.subTest(name):
                code, output = run.end()
                self.assertEqual(code, 0)
                self.assertGreater(run.finished, WATCHDOG * EARLY)
                self.assertLess(run.finished, WATCHDOG + SLACK)
                self.assertTrue(output.startswith(start), output)
                self.assertTrue(output.endswith(gone(name)), output)
        # At least one of them got a processor in time.
        self.assertLess(min(run.finished for _, run in (self.watching_empty, self.watching_gone)), WATCHDOG + 0.6)

    def test_6_watching_the_first_of_two(self):
        _, run = self.watching_first
        wait_until(lambda: time.monotonic() - run.started > WATCHDOG + SLACK, 10)
        self.assertTrue(run.is_running)
        code, output = run.stop()
        self.assertEqual(code, 0)
        self.assertTrue(output.startswith(VERBOSE_START), output)
        self.assertNotIn("Process '", output)

    def test_7_closed_streams(self):
        for (closed, null), (sandbox, run) in self.closed.items():
            with self.subTest(closed, null=null):
                wait_until(sandbox.is_ready)
                self.assertEqual(sandbox.read(), qz.empty_block())
                for number, stream in enumerate(("<&-", ">&-", "2>&-")):
                    if stream in closed:
                        self.assertEqual(os.readlink(f"/proc/{run.pid()}/fd/{number}"), "/dev/null" if null else "/")
                code, output = run.stop()
                self.assertEqual(code, 0)
                self.assertEqual(output[:len(VERBOSE_START)], "" if ">&-" in closed else VERBOSE_START)
                self.assertEqual(os.listdir(sandbox.folder), [])

    def test_7_full_output(self):
        sandbox, run = self.full
        wait_until(sandbox.is_ready)
        self.assertEqual(sandbox.read(), qz.empty_block())
        self.assertEqual(run.stop(), (0, ""))

    def test_7_reader_that_goes(self):
        sandbox, run = self.piped
        run.wait_for(SHORT_BANNER)
        wait_until(sandbox.is_ready)
        self.assertEqual(sandbox.read(), qz.empty_block())
        run.stop()
        self.assertEqual((sandbox.outside / "code").read_text(), "0\n")
        self.assertFalse(sandbox.segment.exists())

    def test_8_every_cycle(self):
        _, run = self.verbose
        times = [run.wait_for(UPDATED, 15, count) for count in (1, 2)]
        self.assertEqual(run.stop(), (0, VERBOSE_START + 2 * (NO_GPU_REPORT + UPDATED)))
        self.assertGreater(times[0], CYCLE * EARLY)
        self.assertLess(times[0], CYCLE + SLACK)
        self.assertAlmostEqual(times[1] - times[0], CYCLE, delta=0.9)


if __name__ == "__main__":
    qz.main()
