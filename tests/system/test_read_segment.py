"""docs/read_segment.py, which other people copy, gives what the segment holds and what `qzGpuStatus` says."""

import ast
import fcntl
import importlib
import json
import os
import pwd
import re
import subprocess
import sys
import time
import unittest

from segment_bytes import ATTACHED, MEASURING, WRITER, Segment, block, record
from status_command import run

PATH = os.path.join(os.environ["QZGPUINFO_SOURCE"], "docs", "read_segment.py")
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(PATH))
reader = importlib.import_module("read_segment")

WHOLE = record(b"RTX", usage=45, temperature=60, total=24576, memory=(1024, 23552), speed=123.5, optix=1, cl_device=9)
BLOCK = block([WHOLE, record(b"y" * 64, index=1, usage=0)], [record(b"\xffNavi", kind=2, ray_tracing=1, total=5, speed=1.0)],
              [record(b"old", kind=9, valid=0, usage=3)])


class ReadSegment(unittest.TestCase):
    def test_every_member(self):
        self.assertEqual(next(reader.gpus(BLOCK)), {
            "name": "RTX", "kind": "Cuda", "device": 0, "opencl": True, "optix": True, "ray_tracing": False, "usage": 45,
            "temperature": 60, "total": 24576, "used": 1024, "free": 23552, "speed": 123.5, "answers": True})

    def test_says_what_the_command_says(self):
        with Segment(BLOCK) as segment:
            status = json.loads(run("--json", directory=segment.directory).stdout)["gpus"]
        names = {"name": "name", "kind": "kind", "device": "deviceIndex", "opencl": "openclMatched",
                 "optix": "optixCapable", "ray_tracing": "amdRayTracing", "usage": "usagePercent",
                 "temperature": "temperatureCelsius", "total": "memoryTotalMiB", "used": "memoryUsedMiB",
                 "free": "memoryFreeMiB", "speed": "speedGps", "answers": "figuresValid"}
        for mine, theirs in zip(reader.gpus(BLOCK), status, strict=True):
            # The command takes a name of 64 bytes without an end for one of 63; so long a name is never published.
            self.assertEqual({**mine, "name": mine["name"][:63]}, {key: theirs[name] for key, name in names.items()})

    def run_program(self, path, *user, **environment):
        return subprocess.run([PATH, path, *user], capture_output=True, text=True, timeout=20,
                              env={**os.environ, **environment})

    def test_as_a_program(self):
        for flags, end in ((WRITER, ""), ((ATTACHED,), ", stale")):
            with self.subTest(flags), Segment(BLOCK, age=3, flags=flags) as segment:
                lines = self.run_program(segment.path).stdout.splitlines()
                self.assertRegex(lines[0], rf"\Apublished [3-9]\.\d s ago{end}\Z")
                self.assertEqual([ast.literal_eval(line) for line in lines[1:]], list(reader.gpus(BLOCK)))

    def test_a_name_beyond_the_locale(self):
        with Segment(BLOCK, flags=WRITER) as segment:
            run = self.run_program(segment.path, PYTHONIOENCODING="ascii")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertIn(r"'name': '\ufffdNavi'", run.stdout)

    def test_a_failure_is_a_sentence(self):
        with Segment(bytes(7472)) as segment:
            for path, reason in ((segment.path, "no data yet"), (segment.path + "x", "No such file or directory")):
                result = self.run_program(path)
                self.assertEqual((result.returncode, result.stdout), (1, ""))
                self.assertRegex(result.stderr, rf"\Aread_segment\.py: [^\n]*{reason}[^\n]*\n\Z")

    def test_flags(self):
        for flags, names in (((), set()), ((ATTACHED,), {"attached"}), (WRITER, {"attached", "published"}),
                             ((ATTACHED, MEASURING), {"attached", "measuring"})):
            with self.subTest(flags), Segment(BLOCK, flags=flags) as segment:
                self.assertEqual(reader.locked_bytes(segment.path)[2], names)

    def test_fresh_as_the_command_says(self):
        for age in (-3600, -8, 0, 15, 25, 1700, 1900):
            for flags in ((ATTACHED,), WRITER, (*WRITER, MEASURING), (ATTACHED, MEASURING)):
                for limit in (None, 0, 5, 100):
                    with self.subTest(age=age, flags=flags, limit=limit), Segment(BLOCK, age, flags) as segment:
                        _, seen, held = reader.locked_bytes(segment.path)
                        arguments = [] if limit is None else ["--max-age", str(limit)]
                        code = run(*arguments, directory=segment.directory).returncode
                        self.assertIn(code, (0, 3))
                        self.assertEqual(reader.fresh(seen, held, limit), code == 0)

    def test_a_date_ahead_of_the_clock(self):
        with Segment(BLOCK, age=-3600) as segment:
            self.assertAlmostEqual(reader.locked_bytes(segment.path)[1], -3600, delta=10)

    def test_fresh_up_to_its_limits(self):
        published = {"published"}
        for age, flags, limit, expected in (
                (20, published, None, True), (20.1, published, None, False), (1800, published | {"measuring"}, None, True),
                (1800.1, published | {"measuring"}, None, False), (1e9, published, 0, True), (5, published, 5, True),
                (-10, published, None, True), (-10.1, published, 0, False), (0, {"attached", "measuring"}, 0, False)):
            self.assertEqual(reader.fresh(age, flags, limit), expected, (age, flags, limit))

    def test_only_cuda(self):
        self.assertEqual(len(list(reader.gpus(block([WHOLE], [WHOLE], only_cuda=1)))), 1)

    def test_what_is_no_list(self):
        for data, reason in ((bytes(7472), "no data yet"), (block(ready=0), "no data yet"), (block(version=1), "version"),
                             (block(counts=(17, 0, 0)), "version"), (block()[:7471], "too small"), (b"", "too small")):
            with self.assertRaisesRegex(ValueError, reason):
                list(reader.gpus(data))

    def test_what_is_no_segment(self):
        with Segment() as segment:
            with self.assertRaises(FileNotFoundError):
                reader.locked_bytes(segment.path)
            os.mkfifo(segment.path)
            with self.assertRaisesRegex(ValueError, "not a segment"):
                reader.locked_bytes(segment.path)
            os.unlink(segment.path)
            os.symlink("/dev/null", segment.path)
            with self.assertRaises(OSError):
                reader.locked_bytes(segment.path)
            os.unlink(segment.path)
            segment.write(BLOCK)
            os.link(segment.path, segment.path + "2")
            with self.assertRaisesRegex(ValueError, "not a segment"):
                reader.locked_bytes(segment.path)

    def test_whose_it_is(self):
        with Segment(BLOCK) as segment:
            os.chmod(segment.path, 0o660)
            with self.assertRaisesRegex(ValueError, "not a segment"):
                reader.locked_bytes(segment.path)
            os.chmod(segment.path, 0o600)
            namespace = ["unshare", "--user"]
            if subprocess.run([*namespace, "true"], stderr=subprocess.DEVNULL).returncode != 0:
                self.skipTest("SKIPPED: no user namespace can be made here")
            result = subprocess.run([*namespace, sys.executable, PATH, segment.path], capture_output=True, text=True, timeout=20)
            self.assertEqual((result.returncode, result.stdout), (1, ""))
            self.assertIn("cannot tell whose segment", result.stderr)

    def test_the_segment_of_a_named_user(self):
        mine = pwd.getpwuid(os.geteuid()).pw_name
        other = "daemon" if mine != "daemon" else "bin"
        with Segment(BLOCK) as segment:
            self.assertEqual(reader.locked_bytes(segment.path, user=mine)[0], BLOCK)
            self.assertEqual(self.run_program(segment.path, mine).returncode, 0)
            for user, reason in ((other, "not a segment of this user's alone"), ("no-such-user", "unknown user 'no-such-user'")):
                result = self.run_program(segment.path, user)
                self.assertEqual((result.returncode, result.stdout, result.stderr), (1, "", f"read_segment.py: {reason}\n"))
            if os.geteuid() == 0:
                os.chown(segment.path, pwd.getpwnam(other).pw_uid, -1)
                self.assertEqual(reader.locked_bytes(segment.path, user=other)[0], BLOCK)

    def test_a_shared_lock_is_a_lock(self):
        with Segment(BLOCK) as segment, open(segment.path, "rb") as other:
            fcntl.flock(other, fcntl.LOCK_SH)
            with self.assertRaises(TimeoutError):
                reader.locked_bytes(segment.path, 0.1)

    def test_a_lock_that_stays_taken(self):
        with Segment(BLOCK) as segment:
            with segment.locked():
                started = time.monotonic()
                with self.assertRaises(TimeoutError):
                    reader.locked_bytes(segment.path, 0.3)
                self.assertTrue(0.3 <= time.monotonic() - started < 3)
            self.assertEqual(reader.locked_bytes(segment.path)[0], BLOCK)


class Documentation(unittest.TestCase):
    """docs/segment.md names every byte of the block and of a record, once."""

    def test_the_tables_leave_no_gap(self):
        with open(os.path.join(os.path.dirname(PATH), "segment.md"), encoding="utf-8") as file:
            text = file.read()
        for title, size, fields in (("## The block\n", 7472, 10), ("## A record\n", 152, 20)):
            rows = re.findall(r"^\| (\d+) \| (\d+) \|[^|]*\| ?(`\w+`)?", text.split(title)[1].split("\n## ")[0], re.M)
            end = 0
            for offset, length, _ in rows:
                self.assertEqual(int(offset), end)
                end += int(length)
            self.assertEqual(end, size)
            self.assertEqual(len([name for _, _, name in rows if name]), fields)


if __name__ == "__main__":
    unittest.main()
