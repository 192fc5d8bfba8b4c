"""What ends and stops `qzGpuStatus --watch`, whatever its output does, and how it leaves the terminal."""

import fcntl
import os
import signal
import subprocess
import termios
import time
import unittest

from segment_bytes import Segment, block, record
from status_command import PROGRAM
from terminal import ENTER, LEAVE, Terminal

ENDING = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT)
F_SETPIPE_SZ = 1031
# A job of a shell that controls the terminal: Ctrl-Z stops the job, `fg` continues it.
JOB = ["/bin/bash", "--norc", "-mc", '"$0" "$@"; echo "[job $?]"; read -r; fg >/dev/null; echo "[end $?]"']


def code_of(number):
    return -number if number == signal.SIGQUIT else 0


class Watched(unittest.TestCase):
    def setUp(self):
        self.segment = Segment(block([record(b"NVIDIA GeForce RTX 4090", usage=45)] * 16))
        self.addCleanup(self.segment.__exit__)
        self.command = [PROGRAM, "--watch", "0.1", "--directory", self.segment.directory]

    def terminal(self, arguments=None, **options):
        terminal = Terminal(arguments or self.command, **options)
        self.addCleanup(terminal.__exit__)
        return terminal

    def start(self, **options):
        process = subprocess.Popen(self.command, **options)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def assert_waits_for_output(self, pid):
        """Until the process sleeps in a write that is not read."""
        for _ in range(200):
            with open(f"/proc/{pid}/wchan", encoding="ascii") as file:
                channel = file.read()
            with open(f"/proc/{pid}/syscall", encoding="ascii") as file:
                if file.read().startswith("1 "):  # write
                    return
            time.sleep(0.02)
        self.fail("still not in a write: " + channel)

    def assert_ends(self, process, number):
        began = time.monotonic()
        process.send_signal(number)
        self.assertEqual(process.wait(10), code_of(number))
        self.assertLess(time.monotonic() - began, 3)


class OutputThatTakesNothing(Watched):
    def test_a_full_pipe(self):
        for number in ENDING:
            with self.subTest(number):
                reading, writing = os.pipe()
                fcntl.fcntl(writing, F_SETPIPE_SZ, 4096)
                process = self.start(stdout=writing)
                os.close(writing)
                self.assert_waits_for_output(process.pid)
                self.assert_ends(process, number)
                os.close(reading)

    def test_a_terminal_that_nobody_reads(self):
        for number in ENDING:
            with self.subTest(number):
                terminal = self.terminal(full=True)
                self.assert_waits_for_output(terminal.pid)
                began = time.monotonic()
                terminal.signal(number)
                _, status = os.waitpid(terminal.pid, 0)
                self.assertLess(time.monotonic() - began, 3)
                terminal.pid = 0
                self.assertEqual(os.waitstatus_to_exitcode(status), code_of(number))
                self.assertEqual(termios.tcgetattr(terminal.master), terminal.attributes)

    def test_a_terminal_that_ctrl_s_has_stopped(self):
        terminal = self.terminal()
        terminal.wait_for(lambda lines: "GPUs," in lines[0])
        os.write(terminal.master, b"\x13")
        self.assert_waits_for_output(terminal.pid)
        terminal.signal(signal.SIGTERM)
        self.assertEqual(terminal.end(), 0)

    def test_ctrl_z_before_a_terminal_that_nobody_reads(self):
        # The shell stays: the kernel ends a stopped job that loses its shell.
        terminal = self.terminal(["/bin/bash", "--norc", "-mc", '"$0" "$@"; read -r', *self.command], full=True)
        job = None
        for _ in range(200):
            with open(f"/proc/{terminal.pid}/task/{terminal.pid}/children", encoding="ascii") as file:
                job = file.read().split()
            if job:
                break
            time.sleep(0.02)
        job = int(job[0])
        self.assert_waits_for_output(job)
        os.kill(job, signal.SIGTSTP)
        for _ in range(200):
            with open(f"/proc/{job}/stat", encoding="ascii") as file:
                if file.read().rsplit(")", 1)[1].split()[0] == "T":
                    break
            time.sleep(0.02)
        else:
            self.fail("not stopped")
        os.kill(job, signal.SIGKILL)


class Terminals(Watched):
    def test_ctrl_backslash_restores_the_screen_and_ends_by_its_signal(self):
        terminal = self.terminal()
        terminal.wait_for(lambda lines: "GPUs," in lines[0])
        os.write(terminal.master, b"\x1c")
        self.assertEqual(terminal.end(), -signal.SIGQUIT)
        self.assertTrue(terminal.raw.startswith(ENTER) and terminal.raw.endswith((LEAVE, LEAVE + "\r")), terminal.raw[-80:])

    def test_ctrl_z_stops_a_job_and_fg_continues_it(self):
        terminal = self.terminal([*JOB, *self.command], columns=120, rows=24)
        terminal.wait_for(lambda lines: "GPUs," in lines[0])
        os.write(terminal.master, b"\x1a")
        terminal.wait_for(lambda _: f"[job {128 + signal.SIGTSTP}]" in terminal.raw)
        self.assertIn(LEAVE, terminal.raw)
        stopped = len(terminal.raw)
        os.write(terminal.master, b"\n")
        terminal.wait_for(lambda _: ENTER in terminal.raw[stopped:] and "GPUs," in terminal.raw[stopped:])
        os.write(terminal.master, b"\x03")
        terminal.wait_for(lambda _: "[end 0]" in terminal.raw)
        self.assertGreater(terminal.raw.rindex("[end 0]"), terminal.raw.rindex(LEAVE))

    def test_ctrl_z_without_a_shell_that_could_continue_it(self):
        terminal = self.terminal()
        terminal.wait_for(lambda lines: "GPUs," in lines[0])
        os.write(terminal.master, b"\x1a")
        terminal.wait_for(lambda _: terminal.raw.count(ENTER) == 2)
        self.segment.write(block([record(b"Another GPU")]))
        terminal.wait_for(lambda lines: "Another GPU" in lines[2])

    def test_ctrl_z_stops_lines_as_it_stops_cat(self):
        terminal = self.terminal([*JOB, *self.command], columns=250, rows=200, kind="dumb")
        terminal.wait_for(lambda lines: "gpu=15" in "".join(lines))
        os.write(terminal.master, b"\x1a")
        terminal.wait_for(lambda _: f"[job {128 + signal.SIGTSTP}]" in terminal.raw)


class Dispositions(Watched):
    def test_what_was_ignored_stays_ignored(self):
        for number in ENDING:
            with self.subTest(number):
                process = self.start(stdout=subprocess.DEVNULL,
                                     preexec_fn=lambda number=number: signal.signal(number, signal.SIG_IGN))
                time.sleep(0.3)
                process.send_signal(number)
                with self.assertRaises(subprocess.TimeoutExpired):
                    process.wait(0.5)
                self.assert_ends(process, signal.SIGINT if number == signal.SIGTERM else signal.SIGTERM)

    def test_what_was_blocked_ends_it(self):
        process = self.start(stdout=subprocess.DEVNULL,
                             preexec_fn=lambda: signal.pthread_sigmask(signal.SIG_BLOCK, [*ENDING, signal.SIGALRM]))
        time.sleep(0.3)
        self.assert_ends(process, signal.SIGTERM)

    def test_a_blocked_alarm_still_ends_it(self):
        reading, writing = os.pipe()
        self.addCleanup(os.close, reading)
        fcntl.fcntl(writing, F_SETPIPE_SZ, 4096)
        process = self.start(stdout=writing,
                             preexec_fn=lambda: signal.pthread_sigmask(signal.SIG_BLOCK, [*ENDING, signal.SIGALRM]))
        os.close(writing)
        self.assert_waits_for_output(process.pid)
        self.assert_ends(process, signal.SIGHUP)


if __name__ == "__main__":
    unittest.main()
