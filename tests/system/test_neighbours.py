"""Objects that other or careless users place at /dev/shm/qzGpuInfo_v2: refused with a message and exit code 1, never
waited for, never written, never removed. As root and as an ordinary user."""

import os
import signal
import socket
import unittest

import qz
from neighbours import UserSandbox, state

REFUSED = ('Unable to attach shared memory!; The shared memory "qzGpuInfo_v2" is refused, it is not a segment of this '
           "user's own.\n")
DENIED = ('Unable to attach shared memory!; The shared memory "qzGpuInfo_v2" can\'t be attached (Permission denied).\n')
FULL = ('Unable to create shared memory!; The shared memory "qzGpuInfo_v2" can\'t be created (No space left on device). '
        "No space left on device\n")
READ_ONLY = ('Unable to create shared memory!; The shared memory "qzGpuInfo_v2" can\'t be created (Read-only file '
             "system). Read-only file system\n")
TOO_SMALL = 'Unable to attach shared memory!; The shared memory "qzGpuInfo_v2" has become too small.\n'
LINK_TARGET = b"a file that must stay as it is"


def wrong_size(size):
    return f"Shared memory has wrong data size! ({size}!=7472)\n"


class Planted:
    """The rows: each plants something and gives the message to expect. Mixed into a case for each user."""

    ordinary: bool

    def made(self, **settings):
        sandbox = UserSandbox(self.ordinary, **settings)
        self.addCleanup(sandbox.close)
        return sandbox

    def check_refused(self, sandbox, message):
        """The program says so and ends; what was planted is as it was."""
        before = state(sandbox.segment)
        code, output = sandbox.start_as_user().end(8)
        self.assertEqual((code, output), (1, qz.LONG_BANNER + qz.INIT + message))
        self.assertEqual(state(sandbox.segment), before, "the object was touched")
        self.assertEqual(os.listdir(sandbox.folder), [qz.NAME] if before else [], "something was left behind")

    def plant_of(self, sandbox, user, mode, size=qz.SIZE):
        if user != os.geteuid() and os.geteuid() != 0:
            self.skipTest("only root can plant another user's object")
        sandbox.plant(bytes(range(256)) * (size // 256) + bytes(size % 256), mode)
        sandbox.give(sandbox.segment, user)

    def test_another_users_object(self):
        sandbox = self.made()
        self.plant_of(sandbox, sandbox.stranger, 0o666)
        self.check_refused(sandbox, REFUSED)

    def test_another_users_private_object(self):
        sandbox = self.made()
        self.plant_of(sandbox, sandbox.stranger, 0o600)
        self.check_refused(sandbox, DENIED if self.ordinary else REFUSED)

    def test_symbolic_link(self):
        sandbox = self.made()
        target = sandbox.outside / "target"
        target.write_bytes(LINK_TARGET.ljust(qz.SIZE))
        sandbox.give(target, sandbox.user)
        sandbox.segment.symlink_to(target)
        sandbox.give(sandbox.segment, sandbox.user)
        before = state(target)
        self.check_refused(sandbox, REFUSED)
        self.assertEqual(state(target), before, "the link was followed")

    def test_dangling_link(self):
        sandbox = self.made()
        target = sandbox.folder.parent / f"{sandbox.folder.name}-absent"
        sandbox.segment.symlink_to(f"/dev/shm/{target.name}")
        self.check_refused(sandbox, REFUSED)
        self.assertFalse(target.exists(), "the link was followed")

    def test_directory(self):
        sandbox = self.made()
        sandbox.segment.mkdir()
        sandbox.give(sandbox.segment, sandbox.user)
        self.check_refused(sandbox, REFUSED)

    def test_fifo(self):
        sandbox = self.made()
        os.mkfifo(sandbox.segment, 0o600)
        sandbox.give(sandbox.segment, sandbox.user)
        self.check_refused(sandbox, REFUSED)

    def test_socket(self):
        sandbox = self.made()
        with socket.socket(socket.AF_UNIX) as bound:
            bound.bind(str(sandbox.segment))
            sandbox.give(sandbox.segment, sandbox.user)
            self.check_refused(sandbox, REFUSED)

    def test_second_name_of_another_file(self):
        sandbox = self.made()
        other = sandbox.folder / "other"
        other.write_bytes(bytes(qz.SIZE))
        sandbox.give(other, sandbox.user)
        os.link(other, sandbox.segment)
        before = state(other)
        code, output = sandbox.start_as_user().end(8)
        self.assertEqual((code, output), (1, qz.LONG_BANNER + qz.INIT + REFUSED))
        self.assertEqual(state(other), before, "the file was touched")

    def test_sizes(self):
        for size in (0, 1, qz.SIZE - 1):
            with self.subTest(size=size):
                sandbox = self.made()
                self.plant_of(sandbox, sandbox.user, 0o600, size)
                self.check_refused(sandbox, wrong_size(size))

    def test_full_file_system(self):
        self.check_refused(self.made(shm=4096), FULL)

    def test_read_only_file_system(self):
        self.check_refused(self.made(shm="read-only"), READ_ONLY)


@unittest.skipUnless(os.geteuid() == 0, "not root")
class AsRoot(Planted, qz.SandboxCase):
    ordinary = False


class AsOrdinaryUser(Planted, qz.SandboxCase):
    ordinary = True


class WhileItRuns(qz.SandboxCase):
    def test_truncated(self):
        """Reported in every cycle; no SIGBUS; not made larger, and left there when the program ends."""
        users = [True] + [False] * (os.geteuid() == 0)
        sandboxes = [UserSandbox(ordinary) for ordinary in users]
        for sandbox in sandboxes:
            self.addCleanup(sandbox.close)
        runs = [sandbox.start_as_user("-v") for sandbox in sandboxes]
        for sandbox, run in zip(sandboxes, runs):
            run.wait_for(qz.CREATED)
            os.truncate(sandbox.segment, 0)
        for sandbox, run in zip(sandboxes, runs):
            run.wait_for(TOO_SMALL, 10, count=2)
            self.assertEqual(sandbox.segment.stat().st_size, 0)
            code, output = run.stop(signal.SIGTERM)
            self.assertEqual(code, 0, output)
            self.assertEqual(sandbox.segment.stat().st_size, 0, "another's change was undone")


if __name__ == "__main__":
    qz.main()
