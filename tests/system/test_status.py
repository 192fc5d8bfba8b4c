"""What `qzGpuStatus` answers: every state of the segment, every exit code, its options and where its output goes."""

import json
import os
import re
import resource
import signal
import stat
import subprocess
import tempfile
import threading
import time
import unittest

import segment_bytes
from segment_bytes import ATTACHED, MEASURING, PUBLISHED, Segment, block, record
from status_command import PROGRAM, reachable_by_nobody, run

OK, NO_DATA, USAGE, STALE, FOREIGN, LOCKED, NOT_READABLE, OUTPUT = range(8)
GPU = record(b"Some GPU", usage=5)


def state_of(segment):
    """Exit code and JSON report; that all forms give the same exit code is checked on the way."""
    result = run("--json", directory=segment.directory)
    for form in ([], ["--prometheus"]):
        other = run(*form, directory=segment.directory)
        assert other.returncode == result.returncode, (form, other)
    return result.returncode, json.loads(result.stdout)


def without_times(text):
    return re.sub(r"\d+\.\d s", "N s", text)


class States(unittest.TestCase):
    def expect(self, segment, code, state):
        answered, report = state_of(segment)
        self.assertEqual((answered, report["state"]), (code, state))
        if state not in ("ok", "stale"):
            self.assertEqual((report["gpus"], report["summary"]), ([], None))
            table = run(directory=segment.directory)
            self.assertEqual(table.stdout, b"")
            self.assertEqual(table.stderr.decode(), f"qzGpuStatus: {segment.path}: {report['message']}\n")
        if state != "ok":
            features = run("--features", directory=segment.directory)
            self.assertEqual((features.returncode, features.stdout), (code, b""))
            # The data have grown older since.
            self.assertEqual(without_times(features.stderr.decode()),
                             f"qzGpuStatus: {segment.path}: {without_times(report['message'])}\n")
        return report

    def test_fresh_data(self):
        with Segment(block([GPU])) as segment:
            report = self.expect(segment, OK, "ok")
            self.assertEqual([report[flag] for flag in ("writerAttached", "published", "measuring")], [True, True, False])
            self.assertLess(report["ageSeconds"], 10)

    def test_features_of_fresh_data(self):
        for gpus, line in (([], b"\n"), ([GPU], b"qz_gpu,qz_nvcuda,qz_model_somegpu\n")):
            with Segment(block(gpus)) as segment:
                result = run("--features", directory=segment.directory)
                self.assertEqual((result.returncode, result.stdout, result.stderr), (OK, line, b""))

    def test_no_gpu_at_all_is_fresh_data_too(self):
        with Segment(block()) as segment:
            report = self.expect(segment, OK, "ok")
            self.assertEqual((report["gpus"], report["summary"]), ([], None))

    def test_no_segment(self):
        with Segment() as segment:
            report = self.expect(segment, NO_DATA, "missing")
            self.assertEqual((report["ageSeconds"], report["publishedAt"]), (None, None))

    def test_no_directory(self):
        result = run("--json", directory="/nowhere/at/all")
        self.assertEqual((result.returncode, json.loads(result.stdout)["state"]), (NO_DATA, "missing"))

    def test_a_directory_that_is_a_file(self):
        with tempfile.NamedTemporaryFile() as file:
            result = run("--json", directory=file.name)
        self.assertEqual((result.returncode, json.loads(result.stdout)["state"]), (NO_DATA, "missing"))

    def test_created_and_not_written_yet(self):
        with Segment(bytes(segment_bytes.SIZE)) as segment:
            self.assertTrue(self.expect(segment, NO_DATA, "notReady")["writerAttached"])

    def test_not_ready_with_a_version(self):
        with Segment(block([GPU], ready=0)) as segment:
            self.expect(segment, NO_DATA, "notReady")

    def test_no_writer_attached(self):
        with Segment(block([GPU]), flags=(), age=12.0) as segment:
            report = self.expect(segment, STALE, "stale")
            self.assertFalse(report["writerAttached"])
            self.assertAlmostEqual(report["ageSeconds"], 12.0, delta=5)
            self.assertEqual(report["gpus"][0]["usagePercent"], 5)
            self.assertIn("STALE: no companion", run(directory=segment.directory).stdout.decode())

    def test_a_writer_that_has_not_published(self):
        for flags in ((ATTACHED,), (ATTACHED, MEASURING)):
            with Segment(block([GPU]), flags=flags, age=3) as segment:
                report = self.expect(segment, STALE, "stale")
                self.assertRegex(report["message"], r"\Athe companion has not published yet; an earlier one published "
                                                    r"the list [3-9]\.\d s ago\Z")
                self.assertEqual((report["writerAttached"], report["published"]), (True, False))
                segment.set(PUBLISHED)
                self.expect(segment, OK, "ok")

    def test_the_writer_ends_while_the_segment_stays(self):
        with Segment(block([GPU])) as segment:
            self.expect(segment, OK, "ok")
            segment.detach()
            self.expect(segment, STALE, "stale")

    def test_older_than_the_limit(self):
        for age, flag, limit, state in (
                (10, PUBLISHED, None, "ok"), (21, PUBLISHED, None, "stale"), (21, MEASURING, None, "ok"),
                (1700, MEASURING, None, "ok"), (1801, MEASURING, None, "stale"), (1900, PUBLISHED, "0", "ok"),
                (1900, PUBLISHED, "2000", "ok"), (10, PUBLISHED, "5", "stale"), (10, MEASURING, "5.5", "stale"),
                (3, PUBLISHED, "60", "ok")):
            flags = (ATTACHED, PUBLISHED, flag)
            with self.subTest(age=age, limit=limit), Segment(block([GPU]), age=age, flags=flags) as segment:
                arguments = [] if limit is None else ["--max-age", limit]
                result = run("--json", *arguments, directory=segment.directory)
                self.assertEqual(json.loads(result.stdout)["state"], state)
                self.assertEqual(result.returncode, OK if state == "ok" else STALE)

    def test_the_limit_is_named(self):
        with Segment(block([GPU]), age=100) as segment:
            self.assertRegex(self.expect(segment, STALE, "stale")["message"],
                             r"\Athe list was published 10\d\.\d s ago, more than 20\.0 s\Z")
            segment.set(MEASURING)
            self.assertTrue(self.expect(segment, OK, "ok")["measuring"])

    def test_a_clock_that_was_set_back(self):
        with Segment(block([GPU]), age=-8) as segment:
            self.assertEqual(self.expect(segment, OK, "ok")["ageSeconds"], 0)
        with Segment(block([GPU]), age=-3600) as segment:
            report = self.expect(segment, STALE, "stale")
            self.assertEqual(report["ageSeconds"], 0)
            self.assertRegex(report["message"], r"\Athe list is dated 3\d{3}\.\d s in the future, its age is not known; "
                                                r"the clock was set back\Z")
            self.assertEqual(run("--max-age", "0", directory=segment.directory).returncode, STALE)

    def test_another_version(self):
        with Segment(block([GPU], version=segment_bytes.VERSION + 1)) as segment:
            self.expect(segment, FOREIGN, "foreign")

    def test_each_count_above_16(self):
        for counts in ((17, 0, 0), (0, 17, 0), (0, 0, 17), (2**32 - 1, 1, 0)):
            with self.subTest(counts), Segment(block(counts=counts)) as segment:
                self.expect(segment, FOREIGN, "foreign")

    def test_16_of_each(self):
        with Segment(block([GPU] * 16, [GPU] * 16, [GPU] * 16)) as segment:
            self.assertEqual(len(self.expect(segment, OK, "ok")["gpus"]), 48)

    def test_sizes(self):
        for size, code, state in ((0, FOREIGN, "tooSmall"), (4, FOREIGN, "tooSmall"), (7471, FOREIGN, "tooSmall"),
                                  (7472, OK, "ok"), (9000, OK, "ok")):
            with self.subTest(size), Segment(block([GPU], size=size)) as segment:
                self.expect(segment, code, state)

    def test_a_lock_that_stays_taken(self):
        with Segment(block([GPU])) as segment, segment.locked():
            started = time.monotonic()
            result = run("--json", directory=segment.directory)
            waited = time.monotonic() - started
            self.assertEqual((result.returncode, json.loads(result.stdout)["state"]), (LOCKED, "locked"))
            self.assertTrue(0.9 < waited < 3.0, waited)
            self.expect(segment, LOCKED, "locked")

    def test_a_lock_that_comes_free_in_time(self):
        with Segment(block([GPU])) as segment:
            with segment.locked():
                process = subprocess.Popen([PROGRAM, "--directory", segment.directory], stdout=subprocess.PIPE)
                time.sleep(0.3)
            output, _ = process.communicate(timeout=20)
            self.assertEqual(process.returncode, OK)
            self.assertIn(b"Some GPU", output)


class Waiting(unittest.TestCase):
    def test_gives_up_after_the_time(self):
        with Segment() as segment:
            started = time.monotonic()
            result = run("--wait", "0.5", directory=segment.directory)
            self.assertTrue(0.5 <= time.monotonic() - started < 3)
            self.assertEqual(result.returncode, NO_DATA)

    def wait_while(self, segment, action):
        helper = threading.Timer(0.5, action)
        helper.start()
        started = time.monotonic()
        result = run("--wait", "10", directory=segment.directory)
        self.assertLess(time.monotonic() - started, 5)
        self.assertEqual(result.returncode, OK, result)
        self.assertIn(b"Some GPU", result.stdout)
        helper.join()

    def test_for_a_companion_that_starts(self):
        with Segment() as segment:
            def publish():
                segment.write(bytes(segment_bytes.SIZE))
                segment.attach()
                segment.write(block([GPU]))
            self.wait_while(segment, publish)

    def test_for_the_first_update(self):
        with Segment(block([GPU], ready=0)) as segment:
            self.wait_while(segment, lambda: segment.write(block([GPU])))

    def test_for_a_companion_that_takes_over_old_data(self):
        with Segment(block([GPU]), flags=(ATTACHED,)) as segment:
            self.wait_while(segment, lambda: segment.set(PUBLISHED))

    def test_returns_at_once_with_fresh_data(self):
        with Segment(block([GPU])) as segment:
            started = time.monotonic()
            self.assertEqual(run("--wait=30", directory=segment.directory).returncode, OK)
            self.assertLess(time.monotonic() - started, 3)


class CommandLine(unittest.TestCase):
    def test_help_lists_every_option_and_exit_code(self):
        for name in ("--help", "-h"):
            result = run(name)
            self.assertEqual((result.returncode, result.stderr), (OK, b""))
            text = result.stdout.decode()
            for option in ("--json", "--prometheus", "--features", "--watch", "--help", "--version", "--output", "--wait",
                           "--max-age", "--user", "--directory"):
                self.assertIn(option, text)
            for code in range(8):
                self.assertIn(f"\n  {code}  ", text)
            self.assertLessEqual(max(map(len, text.splitlines())), 80)

    def test_version(self):
        self.assertRegex(run("--version").stdout.decode(), r"\AqzGpuStatus \d+\.\d+\.\d+\n\Z")

    def test_wrong_arguments(self):
        for arguments in (["--nonsense"], ["plain"], [""], ["--json", "--prometheus"], ["--json=yes"], ["--wait"],
                          ["--wait", "-1"], ["--wait", "1e3"], ["--wait", "nan"], ["--wait", "."],
                          ["--wait", "1.2.3"], ["--wait", "99999999999"], ["--watch", "0"], ["--watch=0.05"],
                          ["--watch=soon"], ["--watch="], ["--watch", "--json"], ["--max-age", "old"], ["--output"],
                          ["--output", ""], ["--output="], ["--directory"], ["--watch", "--output", "x"],
                          ["x" * 10000], ["--features", "--json"], ["--features", "--watch"], ["--features=x"],
                          ["--user"], ["--user="], ["--user", ""], ["--user", "no-such-user"], ["--user", "0"]):
            with self.subTest(arguments):
                result = run(*arguments)
                self.assertEqual((result.returncode, result.stdout), (USAGE, b""))
                self.assertRegex(result.stderr.decode(), r"\AqzGpuStatus: [^\n]*; see qzGpuStatus --help\n\Z")
        self.assertIn(b"unknown user 'no-such-user'", run("--user", "no-such-user").stderr)


class Output(unittest.TestCase):
    def setUp(self):
        self.segment = Segment(block([GPU]))
        self.addCleanup(self.segment.__exit__)
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.path = os.path.join(self.folder, "gpus.prom")

    def put_out(self, path, **options):
        return run("--prometheus", "--output", path, directory=self.segment.directory, **options)

    def expect_failure(self, path, because, **options):
        result = self.put_out(path, **options)
        self.assertEqual((result.returncode, result.stdout), (OUTPUT, b""))
        self.assertEqual(result.stderr.decode(), f"qzGpuStatus: cannot write '{path}': {because}\n")

    def test_a_new_file(self):
        before = os.umask(0o077)
        self.addCleanup(os.umask, before)
        result = self.put_out(self.path)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (OK, b"", b""))
        self.assertEqual(os.stat(self.path).st_mode & 0o7777, 0o644)
        with open(self.path, encoding="utf-8") as file:
            self.assertIn("qzgpuinfo_up 1\n", file.read())
        self.assertEqual(os.listdir(self.folder), ["gpus.prom"])

    def test_a_file_name_without_directory(self):
        self.assertEqual(self.put_out("gpus.prom", cwd=self.folder).returncode, OK)
        self.assertTrue(os.path.exists(self.path))

    def test_replaces_and_never_rewrites(self):
        with open(self.path, "w+", encoding="utf-8") as old:
            old.write("old")
            old.flush()
            self.assertEqual(self.put_out(self.path).returncode, OK)
            old.seek(0)
            self.assertEqual(old.read(), "old")
        with open(self.path, encoding="utf-8") as file:
            self.assertIn("qzgpuinfo_up 1\n", file.read())

    def test_the_exit_code_tells_the_state_although_the_file_was_written(self):
        self.segment.detach()
        self.assertEqual(self.put_out(self.path).returncode, STALE)
        with open(self.path, encoding="utf-8") as file:
            self.assertIn("qzgpuinfo_up 0\n", file.read())

    def test_other_forms_can_go_to_a_file_too(self):
        run("--json", "--output", self.path, directory=self.segment.directory)
        with open(self.path, encoding="utf-8") as file:
            self.assertEqual(json.load(file)["state"], "ok")

    def test_no_such_directory(self):
        self.expect_failure(self.folder + "/none/gpus.prom", "No such file or directory")

    def test_a_directory_that_may_not_be_written(self):
        os.chmod(self.folder, 0o555)
        nobody = {"user": 65534} if os.geteuid() == 0 else {}
        for path in (PROGRAM, self.folder) if nobody else ():
            if not reachable_by_nobody(path):
                self.skipTest(f"SKIPPED: {path} is out of another user's reach")
        self.expect_failure(self.path, "Permission denied", **nobody)

    def test_what_is_no_regular_file_is_left_alone(self):
        # Objects of this test's own: as root, a command that fails here would replace the machine's devices.
        link, fifo, folder = (os.path.join(self.folder, name) for name in ("link", "fifo", "folder"))
        os.symlink("elsewhere", link)
        os.mkfifo(fifo)
        os.mkdir(folder)
        for path in (link, fifo, folder):
            kind = stat.S_IFMT(os.lstat(path).st_mode)
            self.expect_failure(path, "it is there and is no regular file")
            self.assertEqual(stat.S_IFMT(os.lstat(path).st_mode), kind)
        self.assertEqual(sorted(os.listdir(self.folder)), ["fifo", "folder", "link"])

    def test_a_name_that_is_a_directory_to_be(self):
        self.expect_failure(self.folder + "/none/", "Is a directory")

    def test_a_full_disk_leaves_the_old_file(self):
        with open(self.path, "w", encoding="utf-8") as file:
            file.write("old")

        def no_room():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (100, 100))
        self.expect_failure(self.path, "File too large", preexec_fn=no_room)
        with open(self.path, encoding="utf-8") as file:
            self.assertEqual(file.read(), "old")
        self.assertEqual(os.listdir(self.folder), ["gpus.prom"])

    def test_standard_output_that_is_full(self):
        for form in ([], ["--json"], ["--prometheus"], ["--help"], ["--watch"]):
            with self.subTest(form), open("/dev/full", "wb") as full:
                result = run(*form, directory=self.segment.directory, stdout=full)
                self.assertEqual(result.returncode, OUTPUT)
                self.assertIn(b"cannot write standard output: No space left on device", result.stderr)

    def test_standard_output_whose_reader_is_gone(self):
        reading, writing = os.pipe()
        os.close(reading)
        with os.fdopen(writing, "wb") as pipe:
            result = run("--json", directory=self.segment.directory, stdout=pipe)
        self.assertEqual((result.returncode, result.stderr), (OUTPUT, b""))


if __name__ == "__main__":
    unittest.main(verbosity=2)
