"""What `qzGpuStatus --output` leaves behind when it is ended at the wrong moment, runs beside itself, or writes where it
can't. There is no segment: the report says so, and the exit code of a written one is 1."""

import os
import resource
import signal
import subprocess
import tempfile
import threading
import unittest
from pathlib import Path

from status_command import PROGRAM, run

WRITTEN, OUTPUT = 1, 7
SLOW = Path(os.environ["QZGPUINFO_BUILD"]) / "tests/system/drivers/slowOutput/libslowOutput.so.1"
REPORT = '"state": "missing"'
TEMPORARY = ".qzGpuStatus.tmp-"


class Output(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.target = self.folder / "gpus.json"

    def put_out(self, path, **options):
        return run("--json", "--output", str(path), directory="/nowhere", **options)

    def start_slow(self, call, go):
        """A run that waits in `call` until the file `go` is there."""
        environment = {**os.environ, "LD_PRELOAD": str(SLOW), "QZ_TEST_SLOW": call, "QZ_TEST_GO": str(go),
                       "ASAN_OPTIONS": "verify_asan_link_order=0"}
        process = subprocess.Popen([PROGRAM, "--json", "--output", self.target, "--directory", "/nowhere"],
                                   stdout=subprocess.PIPE, env=environment,
                                   preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, (0, 0)))
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        self.assertEqual(process.stdout.readline(), b"waiting\n")
        return process

    def expect_only_the_report(self, *others):
        self.assertEqual(sorted(os.listdir(self.folder)), sorted([self.target.name, *others]))
        self.assertIn(REPORT, self.target.read_text("utf-8"))

    def test_a_signal_leaves_no_temporary_file(self):
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT, signal.SIGALRM, signal.SIGUSR1,
                       signal.SIGRTMAX):
            with self.subTest(number):
                go = self.folder / "go"
                process = self.start_slow("fsync", go)
                process.send_signal(number)
                go.touch()
                self.assertEqual(process.wait(20), -number)
                go.unlink()
                self.expect_only_the_report()

    def test_the_next_run_removes_what_a_killed_one_left(self):
        process = self.start_slow("fsync", self.folder / "go")
        process.kill()
        process.wait()
        left, = os.listdir(self.folder)
        self.assertTrue(left.startswith(TEMPORARY), left)
        self.assertEqual(self.put_out(self.target).returncode, WRITTEN)
        self.expect_only_the_report()

    def test_a_run_beside_it_leaves_its_temporary_file(self):
        process = self.start_slow("fsync", self.folder / "go")
        self.assertEqual(self.put_out(self.target).returncode, WRITTEN)
        self.assertEqual(len(os.listdir(self.folder)), 2)
        self.target.unlink()
        (self.folder / "go").touch()
        self.assertEqual(process.wait(20), WRITTEN)
        self.expect_only_the_report("go")

    def test_one_that_is_removed_before_it_is_locked(self):
        process = self.start_slow("flock", self.folder / "go")
        self.assertEqual(self.put_out(self.target).returncode, WRITTEN)
        self.expect_only_the_report()
        self.target.unlink()
        (self.folder / "go").touch()
        self.assertEqual(process.wait(20), WRITTEN)
        self.expect_only_the_report("go")

    def test_many_at_once(self):
        codes = []

        def often():
            codes.extend(self.put_out(self.target).returncode for _ in range(25))

        threads = [threading.Thread(target=often) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(codes, 100 * [WRITTEN])
        self.expect_only_the_report()

    def test_what_is_no_temporary_file_stays(self):
        names = [TEMPORARY + "12345", TEMPORARY + "1234567", "x" + TEMPORARY + "12345", ".qzGpuStatus-tmp-123456"]
        for name in names:
            (self.folder / name).touch()
        os.mkfifo(self.folder / (TEMPORARY + "fifo--"))
        (self.folder / (TEMPORARY + "link--")).symlink_to(names[0])
        (self.folder / (TEMPORARY + "folder")).mkdir()
        kept = os.listdir(self.folder)
        if os.geteuid() == 0:
            other = self.folder / (TEMPORARY + "others")
            other.touch()
            os.chown(other, 65534, -1)
            kept.append(other.name)
        self.assertEqual(self.put_out(self.target).returncode, WRITTEN)
        self.expect_only_the_report(*kept)

    def test_a_folder_that_cannot_be_listed(self):
        self.folder.chmod(0o300)
        self.addCleanup(self.folder.chmod, 0o700)
        self.assertEqual(self.put_out(self.target).returncode, WRITTEN)

    def test_names_of_any_length(self):
        for length in (1, 240, 247, 248, 255):
            with self.subTest(length):
                self.target = self.folder / ("n" * length)
                self.assertEqual(self.put_out(self.target).returncode, WRITTEN)
                self.expect_only_the_report()
                self.target.unlink()
        too_long = self.folder / ("n" * 256)
        result = self.put_out(too_long)
        self.assertEqual((result.returncode, result.stderr.decode()),
                         (OUTPUT, f"qzGpuStatus: cannot write '{too_long}': File name too long\n"))
        self.assertEqual(os.listdir(self.folder), [])

    def test_the_size_limit(self):
        def no_room():
            signal.signal(signal.SIGXFSZ, signal.SIG_DFL)
            resource.setrlimit(resource.RLIMIT_FSIZE, (100, 100))

        self.target.write_text("old")
        result = self.put_out(self.target, preexec_fn=no_room)
        self.assertEqual((result.returncode, result.stderr.decode()),
                         (OUTPUT, f"qzGpuStatus: cannot write '{self.target}': File too large\n"))
        self.assertEqual((os.listdir(self.folder), self.target.read_text()), ([self.target.name], "old"))
        with open(self.target, "wb") as file:
            result = run("--json", directory="/nowhere", stdout=file, preexec_fn=no_room)
        self.assertEqual((result.returncode, result.stderr.decode()),
                         (OUTPUT, "qzGpuStatus: cannot write standard output: File too large\n"))


if __name__ == "__main__":
    unittest.main(verbosity=2)
