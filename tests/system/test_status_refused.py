"""An object under the segment's name that is not this user's segment: `qzGpuStatus` does not wait on it, read it or
trust it."""

import json
import os
import pwd
import socket
import subprocess
import unittest

from segment_bytes import Segment, block, record
from status_command import PROGRAM, reachable_by_nobody, run

OK, NO_DATA, FOREIGN, NOT_READABLE = 0, 1, 4, 6
ME = pwd.getpwuid(os.geteuid()).pw_name
GPU = record(b"Some GPU", usage=5)


class WhatIsNoSegment(unittest.TestCase):
    def expect(self, segment, code, state):
        result = run("--json", directory=segment.directory, timeout=5)
        self.assertEqual((result.returncode, json.loads(result.stdout)["state"]), (code, state))

    def test_symbolic_link(self):
        with Segment(block([GPU])) as segment:
            os.rename(segment.path, segment.path + "_real")
            os.symlink(segment.path + "_real", segment.path)
            self.expect(segment, FOREIGN, "foreign")

    def test_second_name(self):
        with Segment(block([GPU])) as segment:
            os.link(segment.path, segment.path + "_second")
            self.expect(segment, FOREIGN, "foreign")

    def test_directory(self):
        with Segment() as segment:
            os.mkdir(segment.path)
            self.expect(segment, FOREIGN, "foreign")

    def test_fifo(self):
        with Segment() as segment:
            os.mkfifo(segment.path)
            self.expect(segment, FOREIGN, "foreign")

    def test_socket(self):
        with Segment() as segment, socket.socket(socket.AF_UNIX) as server:
            server.bind(segment.path)
            self.expect(segment, FOREIGN, "foreign")

    @unittest.skipIf(os.geteuid() != 0, "SKIPPED: only root can give a file to another user")
    def test_another_users(self):
        with Segment(block([GPU])) as segment:
            os.chown(segment.path, 65534, -1)
            self.expect(segment, NOT_READABLE, "permissionDenied")

    def test_open_to_others(self):
        with Segment(block([GPU])) as segment:
            os.chmod(segment.path, 0o644)
            self.expect(segment, NOT_READABLE, "permissionDenied")
            self.assertIn(b"is open to others", run(directory=segment.directory).stderr)

    def test_whose_it_is_cannot_be_told(self):
        """In a user namespace without this user, whose files look like every other user's."""
        if subprocess.run(["unshare", "--user", "true"], stderr=subprocess.DEVNULL).returncode != 0:
            self.skipTest("SKIPPED: no user namespace can be made here")
        with Segment(block([GPU])) as segment:
            for mapping, code in (([], NOT_READABLE), (["--map-root-user"], OK)):
                with self.subTest(mapping):
                    command = ["unshare", "--user", *mapping, PROGRAM, "--directory", segment.directory]
                    self.assertEqual(subprocess.run(command, capture_output=True, timeout=20).returncode, code)

    @unittest.skipIf(os.geteuid() != 0, "SKIPPED: only root can give a file to another user")
    def test_the_user_whose_number_stands_for_the_unknown(self):
        with Segment(block([GPU])) as segment:
            os.chmod(segment.directory, 0o755)
            os.chown(segment.path, 65534, -1)
            for path in (PROGRAM, segment.directory):
                if not reachable_by_nobody(path):
                    self.skipTest(f"SKIPPED: {path} is out of another user's reach")
            self.assertEqual(run(directory=segment.directory, user=65534).returncode, OK)

    def test_whose_segment_it_has_to_be(self):
        other = "daemon" if ME != "daemon" else "bin"
        with Segment(block([GPU])) as segment:
            for user, code in ((ME, OK), (other, NOT_READABLE)):
                for form in ([], ["--json"], ["--prometheus"], ["--features"]):
                    with self.subTest(user=user, form=form):
                        self.assertEqual(run(*form, "--user", user, directory=segment.directory).returncode, code)
            os.unlink(segment.path)
            self.assertEqual(run("--user", ME, directory=segment.directory).returncode, NO_DATA)

    @unittest.skipIf(os.geteuid() != 0, "SKIPPED: only root can give a file to another user")
    def test_root_reads_for_another_user(self):
        with Segment(block([GPU])) as segment:
            os.chown(segment.path, pwd.getpwnam("daemon").pw_uid, -1)
            result = run("--user", "daemon", directory=segment.directory)
            self.assertEqual((result.returncode, result.stderr), (OK, b""))
            self.assertIn(b"Some GPU", result.stdout)
            self.assertEqual(run("--user=bin", directory=segment.directory).returncode, NOT_READABLE)
            self.assertEqual(run(directory=segment.directory).returncode, NOT_READABLE)
            for mode in (0o644, 0o660):
                os.chmod(segment.path, mode)
                self.assertEqual(run("--user", "daemon", directory=segment.directory).returncode, NOT_READABLE)

    @unittest.skipIf(os.geteuid() != 0, "SKIPPED: only root can run as another user")
    def test_another_user_has_no_right_to_read(self):
        with Segment(block([GPU])) as segment:
            os.chmod(segment.directory, 0o755)
            for path in (PROGRAM, segment.directory):
                if not reachable_by_nobody(path):
                    self.skipTest(f"SKIPPED: {path} is out of another user's reach")
            self.assertEqual(run("--user", ME, directory=segment.directory, user=65534).returncode, NOT_READABLE)

    @unittest.skipIf(os.geteuid() != 0, "SKIPPED: only root can run as another user")
    def test_not_readable(self):
        with Segment(block([GPU])) as segment:
            os.chmod(segment.directory, 0o755)
            for path in (PROGRAM, segment.directory):
                if not reachable_by_nobody(path):
                    self.skipTest(f"SKIPPED: {path} is out of another user's reach")
            result = run("--json", directory=segment.directory, user=65534)
            self.assertEqual((result.returncode, json.loads(result.stdout)["state"]),
                             (NOT_READABLE, "permissionDenied"))


if __name__ == "__main__":
    unittest.main(verbosity=2)
