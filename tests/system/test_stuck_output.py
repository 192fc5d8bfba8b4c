"""A companion whose standard output is not read. It has to publish, to notice the end of the watched process and to
end as ever. The runs take seconds each, so all of them are started at once."""

import fcntl
import itertools
import os
import pty
import re
import signal
import socket
import termios
import time
import unittest

import qz
from qz import CREATED, INIT, NO_GPU_REPORT, NO_GPU_VERBOSE, SHORT_BANNER, UPDATED, VERBOSE, wait_until
from watched import Watched

START = (SHORT_BANNER + VERBOSE + INIT + CREATED + NO_GPU_VERBOSE + qz.CONTINUOUS).splitlines(keepends=True)
FILLER = "~"
DROPPED = re.compile(r"qzGpuInfo: lines dropped because standard output was not read in time: ([0-9]+)\n")
TALKATIVE = str(qz.BUILD / "tests/system/drivers/talkative")
CYCLE, WATCHDOG, SLACK = 4.0, 5.0, 3.0


def messages_of_a_cycle():
    """Units that are printed, or dropped, as a whole: three messages contain a line break."""
    update, empty, title, *figures, end, after_end, empty_1, empty_2 = NO_GPU_REPORT.splitlines(keepends=True)
    return [update, empty + title, *figures, end + after_end, empty_1 + empty_2, UPDATED]


def fill(descriptor):
    os.set_blocking(descriptor, False)
    for size in (4096, 1):
        try:
            while True:
                os.write(descriptor, FILLER.encode() * size)
        except BlockingIOError:
            pass
    os.set_blocking(descriptor, True)


def full_pipe():
    reading, writing = os.pipe()
    fill(writing)
    return reading, writing


def almost_full_pipe():
    """Two pages: room for some 600 bytes, and for one line behind them."""
    reading, writing = os.pipe()
    fcntl.fcntl(writing, fcntl.F_SETPIPE_SZ, 8192)
    os.write(writing, FILLER.encode() * 3400)
    return reading, writing


def full_socket():
    reading, writing = socket.socketpair()
    fill(writing.fileno())
    return reading.detach(), writing.detach()


def stopped_terminal():
    reading, writing = pty.openpty()
    termios.tcflow(writing, termios.TCOOFF)
    return reading, writing


def read_all(descriptor):
    """What a pipe, a socket or a terminal holds now."""
    os.set_blocking(descriptor, False)
    text = b""
    try:
        while piece := os.read(descriptor, 65536):
            text += piece
    except OSError:
        pass
    return text.decode()


class Stuck:
    """A companion that watches a separate process, with an output that is not read."""

    def __init__(self, make, joined=False, **environment):
        self.reading, self.writing = make()
        self.sandbox = qz.Sandbox()
        self.watched = Watched()
        self.blocking = os.get_blocking(self.writing)
        self.shell = 'exec "$0" "$@" 2>&1' if joined else 'exec "$0" "$@"'
        self.run = self.sandbox.start("-v", self.watched.name, stdout=self.writing, shell=self.shell, **environment)

    def close(self):
        self.sandbox.close()
        self.watched.end()
        os.close(self.reading)
        os.close(self.writing)



class StuckOutput(unittest.TestCase):
    OUTPUTS = {"full pipe": {"make": full_pipe}, "pipe that fills": {"make": almost_full_pipe},
               "full pipe, 2>&1": {"make": full_pipe, "joined": True}, "full socket": {"make": full_socket},
               "stopped terminal": {"make": stopped_terminal},
               "full pipe, talkative driver": {"make": full_pipe, "joined": True, "LD_LIBRARY_PATH": TALKATIVE}}

    @classmethod
    def setUpClass(cls):
        cls.to_be_signalled, cls.watching = {}, {}
        for runs in (cls.to_be_signalled, cls.watching):
            for name, options in cls.OUTPUTS.items():
                runs[name] = Stuck(**options)
                cls.addClassCleanup(runs[name].close)
        for runs in (cls.to_be_signalled, cls.watching):
            for stuck in runs.values():
                wait_until(stuck.sandbox.is_ready, 30, "a published list")

    def expect_output(self, name, stuck, others=0):
        """Every message arrived, whole, or was counted; `others` came besides those of the start and of the cycles."""
        left, arrived, cycle = read_all(stuck.reading).lstrip(FILLER), 0, messages_of_a_cycle()
        for message in itertools.chain(START, itertools.cycle(cycle)):
            if not left:
                break
            self.assertTrue(left.startswith(message), left)
            left = left[len(message):]
            arrived += 1
        self.assertEqual(arrived > len(START), name == "pipe that fills")
        if "2>&1" in stuck.shell:
            self.assertEqual(stuck.run.errors, "")
        else:
            dropped = int(DROPPED.fullmatch(stuck.run.errors)[1])
            self.assertEqual((arrived + dropped - len(START) - others) % len(cycle), 0, dropped)
            self.assertGreaterEqual(arrived + dropped, len(START) + 2 * len(cycle))

    def test_1_it_publishes_and_goes_on(self):
        for name, stuck in {**self.to_be_signalled, **self.watching}.items():
            with self.subTest(name):
                self.assertEqual(stuck.sandbox.read(), qz.empty_block())
                published = stuck.sandbox.segment.stat().st_mtime_ns
                wait_until(lambda: stuck.sandbox.segment.stat().st_mtime_ns > published, CYCLE + SLACK,
                           "the next cycle")
                self.assertEqual(os.get_blocking(stuck.writing), stuck.blocking)

    def test_2_a_signal_ends_it(self):
        for name, stuck in self.to_be_signalled.items():
            with self.subTest(name):
                when = time.monotonic()
                self.assertEqual(stuck.run.stop(signal.SIGTERM)[0], 0)
                self.assertLess(time.monotonic() - when, SLACK)
                self.assertEqual(os.listdir(stuck.sandbox.folder), [])
                self.expect_output(name, stuck)

    def test_3_the_watchdog_ends_it(self):
        for stuck in self.watching.values():
            stuck.watched.end()
        for name, stuck in self.watching.items():
            with self.subTest(name):
                self.assertEqual(stuck.run.end(WATCHDOG + SLACK)[0], 0)
                self.assertEqual(os.listdir(stuck.sandbox.folder), [])
                self.expect_output(name, stuck, others=1)


class SingleRun(qz.SandboxCase):
    def test_every_line_arrives(self):
        """However late the reader comes."""
        for make in (full_pipe, full_socket):
            with self.subTest(make.__name__):
                reading, writing = make()
                run = self.sandbox().start("-v", "-single", stdout=writing)
                os.close(writing)
                time.sleep(0.5)
                self.assertTrue(run.is_running)
                with os.fdopen(reading, "rb") as pipe:
                    output = pipe.read().decode().lstrip(FILLER)
                self.assertEqual(output, SHORT_BANNER + VERBOSE + INIT + NO_GPU_VERBOSE + qz.SINGLE + NO_GPU_REPORT)
                self.assertEqual((run.end()[0], run.errors), (0, ""))


if __name__ == "__main__":
    qz.main()
