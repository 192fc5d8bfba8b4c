"""The segment as the program finds, loses and leaves it, and signals that arrive at the wrong time."""

import os
import re
import shutil
import signal
import sys
import time
import unittest

import qz
from qz import CONTINUOUS, CREATED, INIT, NO_GPU, SHORT_BANNER, USING_EXISTING, wait_until

DRIVERS = qz.BUILD / "tests/system/drivers"
SLOW = {"LD_LIBRARY_PATH": str(DRIVERS / "slow")}
# Without a real OpenCL, whose threads keep a sanitizer from its check at the end.
SLOW_END = {"LD_LIBRARY_PATH": f"{DRIVERS / 'slowEnd'}:{DRIVERS / 'incompleteOpenCL'}"}
LACKING = "GpuNvml_Loader: required functions not found\n"
ATTACH_FAILED = "Unable to attach shared memory!; "


class Refused(qz.SandboxCase):
    """The program ends with 1, and touches nothing."""

    def expect(self, sandbox, line, *arguments):
        code, output = sandbox.run(*arguments)
        self.assertEqual(code, 1, output)
        self.assertRegex(output, r"\A" + re.escape(SHORT_BANNER + INIT) + line + r"\n\Z")

    def test_wrong_size(self):
        for size in (0, 4000, 7471):
            with self.subTest(size):
                sandbox = self.sandbox()
                sandbox.plant(b"\xa5" * size)
                self.expect(sandbox, rf"Shared memory has wrong data size! \({size}!=7472\)", "-bench")
                self.assertEqual(sandbox.read(), b"\xa5" * size)

    def test_no_place_for_it(self):
        for shm, reason in (("none", "No such file or directory"), (4096, "No space left on device"),
                            ("read-only", "Read-only file system")):
            with self.subTest(shm):
                line = rf'Unable to create shared memory!; [^\n]*"qzGpuInfo_v2"[^\n]* {reason}'
                self.expect(self.sandbox(shm=shm), line, "qzNobody")

    def test_planted(self):
        def other_user(path, _):
            path.write_bytes(b"\xa5" * 8000)
            path.chmod(0o666)
            os.chown(path, 65534, 65534)

        kinds = {"link": lambda path, victim: path.symlink_to(victim.name),
                 "dangling link": lambda path, _: path.symlink_to("nothing"),
                 "second name": lambda path, victim: os.link(victim, path),
                 "FIFO": lambda path, _: os.mkfifo(path), "folder": lambda path, _: path.mkdir()}
        if os.geteuid() == 0:
            kinds["other user's"] = other_user
        for kind, plant in kinds.items():
            with self.subTest(kind):
                sandbox = self.sandbox()
                victim = sandbox.folder / "victim"
                victim.write_bytes(b"\xa5" * 8000)
                plant(sandbox.segment, victim)
                names = sorted(os.listdir(sandbox.folder))
                self.expect(sandbox, ATTACH_FAILED + r'[^\n]*"qzGpuInfo_v2"[^\n]*refused[^\n]*', "-bench")
                self.assertEqual(victim.read_bytes(), b"\xa5" * 8000)
                if kind == "other user's":
                    self.assertEqual(sandbox.segment.read_bytes(), b"\xa5" * 8000)
                self.assertEqual(sorted(os.listdir(sandbox.folder)), names)

    @unittest.skipUnless(os.geteuid() == 0, "only root can make another user's object")
    def test_as_an_ordinary_user(self):
        """Root's segment is as foreign to another user as the other way round."""
        sandbox = self.sandbox()
        sandbox.plant(b"\xa5" * 8000, 0o666)
        sandbox.folder.chmod(0o1777)
        code, output = sandbox.run("-bench", shell='exec setpriv --reuid 65534 --regid 65534 --clear-groups "$0" "$@"')
        self.assertEqual(code, 1)
        self.assertRegex(output, ATTACH_FAILED + r"[^\n]*refused")
        self.assertEqual(sandbox.read(), b"\xa5" * 8000)


class Kept(qz.SandboxCase):
    def test_a_larger_one_is_used(self):
        sandbox = self.sandbox()
        sandbox.plant(b"\xa5" * 8000)
        run = sandbox.start("-v")
        wait_until(lambda: sandbox.read()[4] == 1)
        self.assertIn(USING_EXISTING, run.output)
        self.assertEqual(sandbox.read(), qz.empty_block()[:7469] + b"\xa5" * (8000 - 7469))
        self.assertEqual(run.stop()[0], 0)
        self.assertEqual(os.listdir(sandbox.folder), [])

    def test_killed_and_started_again(self):
        sandbox = self.sandbox()
        first = sandbox.start("-bench")
        first.wait_for(CONTINUOUS)
        self.assertEqual(first.stop(signal.SIGKILL)[0], 128 + signal.SIGKILL)
        self.assertEqual(os.listdir(sandbox.folder), [qz.NAME])
        second = sandbox.start("-bench")
        second.wait_for(CONTINUOUS)
        self.assertEqual(second.stop(), (0, SHORT_BANNER + INIT + USING_EXISTING + NO_GPU + CONTINUOUS))
        self.assertEqual(os.listdir(sandbox.folder), [])


@unittest.skipUnless(shutil.which("strace"), "strace is not installed")
class Leaving(qz.SandboxCase):
    """Another instance removes the segment between the two calls of a start: it is there, then it is not."""

    def start_missing(self, times):
        """A start that misses the existing segment that often."""
        sandbox = self.sandbox()
        sandbox.plant(bytes(qz.SIZE))
        # -D: the program is the child, and the one that is ended.
        missing = f"-P /dev/shm/{qz.NAME} -e trace=openat -e inject=openat:error=ENOENT:when={times}"
        return sandbox, sandbox.start("-bench", shell=f'exec strace -D -f -o /dev/null {missing} "$0" "$@"')

    def test_the_start_tries_again(self):
        sandbox, run = self.start_missing("1..3")
        run.wait_for(CONTINUOUS)
        self.assertEqual(run.output, SHORT_BANNER + INIT + USING_EXISTING + NO_GPU + CONTINUOUS)
        self.assertEqual(len(os.listdir(sandbox.folder)), 1)

    def test_not_for_ever(self):
        _, run = self.start_missing("1+")
        code, output = run.end()
        self.assertEqual(code, 1)
        self.assertRegex(output, r"\A" + re.escape(SHORT_BANNER + INIT + ATTACH_FAILED) + r"[^\n]*does not exist\.\n\Z")


class Lost(unittest.TestCase):
    """It is unlinked or truncated while the program is attached: two runs side by side."""

    def test_lost_and_found(self):
        removed, cut = qz.Sandbox(), qz.Sandbox()
        self.addCleanup(removed.close)
        self.addCleanup(cut.close)
        runs = [sandbox.start("-v") for sandbox in (removed, cut)]
        for run in runs:
            run.wait_for(CONTINUOUS)
        removed.segment.unlink()
        os.truncate(cut.segment, 100)
        for sandbox, run in zip((removed, cut), runs):
            wait_until(lambda run=run: ATTACH_FAILED in run.output)
            if sandbox is cut:
                self.assertEqual(cut.read(), bytes(100))
                os.truncate(cut.segment, qz.SIZE)
        for sandbox, run in zip((removed, cut), runs):
            run.wait_for(qz.UPDATED)
            self.assertEqual(sandbox.read(), qz.empty_block())
            code, output = run.stop()
            self.assertEqual((code, output.count(ATTACH_FAILED)), (0, 1))
            self.assertEqual(output.count(CREATED), 2 if sandbox is removed else 1)
            self.assertEqual(os.listdir(sandbox.folder), [])


END_SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


class Signals(qz.SandboxCase):
    """They come while a driver is being loaded, before the event loop runs."""

    def begin(self):
        sandbox = self.sandbox()
        go = sandbox.outside / "go"
        run = sandbox.start("-bench", QZ_TEST_GO=str(go), **SLOW)
        run.wait_for("driver starts\n")
        return sandbox, run, go

    def test_one_ends_it_in_order(self):
        for number in END_SIGNALS:
            with self.subTest(number):
                sandbox, run, go = self.begin()
                run.send(number)
                go.touch()
                expected = (SHORT_BANNER + INIT + CREATED + "driver starts\n" + LACKING + qz.NO_AMD + CONTINUOUS)
                self.assertEqual(run.end(), (0, expected))
                self.assertLess(run.finished, 4)
                self.assertEqual(os.listdir(sandbox.folder), [])

    def test_two_end_it_at_once(self):
        for first, second in ((signal.SIGTERM, signal.SIGTERM), (signal.SIGINT, signal.SIGTERM),
                              (signal.SIGTERM, signal.SIGINT), (signal.SIGHUP, signal.SIGHUP)):
            with self.subTest((first, second)):
                _, run, _ = self.begin()
                run.send(first)
                time.sleep(0.3)
                self.assertTrue(run.is_running)
                self.assertEqual(run.stop(second), (128 + second, SHORT_BANNER + INIT + CREATED + "driver starts\n"))

    def test_one_that_comes_twice_counts_once(self):
        """Supervisors often signal twice: the process, then its group."""
        for first, second in ((signal.SIGTERM, signal.SIGTERM), (signal.SIGINT, signal.SIGTERM),
                              (signal.SIGHUP, signal.SIGTERM)):
            with self.subTest((first, second)):
                sandbox, run, go = self.begin()
                run.send(first)
                time.sleep(0.01)
                run.send(second)
                go.touch()
                self.assertEqual(run.end()[0], 0)
                self.assertEqual(os.listdir(sandbox.folder), [])

    def test_one_while_it_shuts_down(self):
        """The first has been answered; another of the kind that a session's end sends must not tear it short."""
        sandbox = self.sandbox()
        go = sandbox.outside / "go"
        run = sandbox.start("qzNobody", QZ_TEST_GO=str(go), **SLOW_END)
        run.wait_for("driver ends\n")
        run.send(signal.SIGTERM)
        time.sleep(0.1)
        self.assertTrue(run.is_running)
        self.assertEqual(os.listdir(sandbox.folder), [qz.NAME])
        go.touch()
        self.assertEqual(run.end()[0], 0)
        self.assertEqual(os.listdir(sandbox.folder), [])

    def test_two_end_a_driver_that_never_shuts_down(self):
        sandbox = self.sandbox()
        run = sandbox.start("-bench", QZ_TEST_GO=str(sandbox.outside / "go"), **SLOW_END)
        run.wait_for(CONTINUOUS)
        run.send(signal.SIGTERM)
        run.wait_for("driver ends\n")
        time.sleep(0.3)
        self.assertEqual(run.stop(signal.SIGTERM)[0], 128 + signal.SIGTERM)

    def test_blocked_by_the_parent_they_end_it(self):
        block = ("import os, signal, sys; signal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals()); "
                 "os.execv(sys.argv[1], sys.argv[1:])")
        for number in END_SIGNALS:
            with self.subTest(number):
                sandbox = self.sandbox()
                run = sandbox.start(command=[sys.executable, "-c", block, qz.PROGRAM, "-bench"])
                run.wait_for(CONTINUOUS)
                self.assertEqual(run.stop(number)[0], 0)
                self.assertEqual(os.listdir(sandbox.folder), [])

    def test_ignored_by_the_parent_they_stay_so(self):
        """nohup ignores SIGHUP, a shell the SIGINT of its background jobs. The others end it as ever."""
        for ignored in END_SIGNALS:
            sandbox = self.sandbox()
            run = sandbox.start("-bench", shell=f'trap "" {ignored.name[3:]}; exec "$0" "$@"')
            run.wait_for(CONTINUOUS)
            for _ in range(2):
                run.send(ignored)
                time.sleep(0.15)
            with self.subTest(ignored):
                self.assertTrue(run.is_running)
                other = signal.SIGTERM if ignored != signal.SIGTERM else signal.SIGHUP
                self.assertEqual(run.stop(other)[0], 0)
                self.assertEqual(os.listdir(sandbox.folder), [])


if __name__ == "__main__":
    qz.main()
