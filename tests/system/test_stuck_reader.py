"""A process that is stopped while it holds the segment's lock: publishing fails with its message and goes on when the
lock is free, and the watchdog ends the program in its time all the same."""

import os
import signal
import subprocess
import sys
import time

import qz
from watched import Watched

NOT_FREE = ('Unable to lock shared memory!; The shared memory "qzGpuInfo_v2" can\'t be locked, its lock was not free in '
            "time.\n")
WATCH_INTERVAL = 5.0
LOCK_BOUND = 1.0
# The machine may be busy.
SLACK = 3.0

HOLDER = """
import fcntl, os, signal, sys
segment = open(sys.argv[1], "rb")
fcntl.flock(segment, fcntl.LOCK_EX)
os.kill(os.getpid(), signal.SIGSTOP)
"""


class StuckReader(qz.SandboxCase):
    def start_stuck(self, *arguments):
        """The program with a segment whose lock a stopped process holds."""
        sandbox = self.sandbox()
        run = sandbox.start(*arguments)
        run.wait_for(qz.CREATED)
        holder = subprocess.Popen([sys.executable, "-c", HOLDER, str(sandbox.segment)])
        self.addCleanup(holder.wait)
        self.addCleanup(holder.kill)
        self.assertTrue(os.WIFSTOPPED(os.waitpid(holder.pid, os.WUNTRACED)[1]))
        return sandbox, run, holder

    def test_stopped_while_it_holds_the_lock(self):
        watched = Watched()
        self.addCleanup(watched.end)
        _, orphan, _ = self.start_stuck(watched.name)
        sandbox, going_on, holder = self.start_stuck()

        orphan.wait_for(NOT_FREE)
        going_on.wait_for(NOT_FREE)
        # Right after a check, so that nearly a whole interval has to pass.
        time.sleep(max(0.0, orphan.started + WATCH_INTERVAL + 0.5 - time.monotonic()))
        self.assertTrue(orphan.is_running and going_on.is_running)
        watched.end()
        lost = time.monotonic() - orphan.started
        os.kill(holder.pid, signal.SIGCONT)
        holder.wait(5)

        qz.wait_until(sandbox.is_ready, 6.0, "publishing once the lock is free")
        self.assertEqual(going_on.output.count(NOT_FREE), 1)
        self.assertEqual(going_on.stop()[0], 0)

        code, output = orphan.end(WATCH_INTERVAL + LOCK_BOUND + SLACK + 5)
        self.assertEqual(code, 0)
        self.assertIn(f"Process '{watched.name}' does  not exist, closing...\n", output)
        self.assertGreaterEqual(output.count(NOT_FREE), 2, "the lock was held all the time")
        self.assertLess(orphan.finished - lost, WATCH_INTERVAL + LOCK_BOUND + SLACK)


if __name__ == "__main__":
    qz.main()
