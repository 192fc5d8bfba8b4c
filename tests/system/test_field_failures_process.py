"""Drivers that harm the process itself: they crash when it ends, or start processes in it."""

import fcntl
import os
import signal
import struct
import subprocess
import time

import simulated
from companion import CompanionCase
from qz import NAME, wait_until
from segment_bytes import ATTACHED, is_set

MACHINE = """
[os-release]
id = debian
[libraries]
cudart = none
[nvidia]
name = NVIDIA One
bus = 0x01
compute = 8.9
utilisation = cycle
temperature = 40
memory_total = 8GiB
memory_used = 1GiB
[opencl]
mode = scripted
[platform]
name = NVIDIA CUDA
[device]
name = NVIDIA One
nv_bus = 0x01
"""
LIBRARIES = ("libnvidia-ml.so.1", "libOpenCL.so.1", "libcuda.so.1")
SEGFAULT = 128 + signal.SIGSEGV


class CrashAtTheEnd(CompanionCase):
    """A library that crashes while it is unloaded, or while the process ends."""

    maxDiff = None

    def test_nothing_crashes_that_is_shut_down_first(self):
        # NVML that is still in use when it is unloaded is what crashes most often.
        for arguments in (["-single"], ["-queryNvCuda"], ["-single", "-bench"]):
            machine = self.described(MACHINE.replace("[opencl]", "[opencl]\nround_ms = 5000\nsleep = no"),
                                     faults=["libnvidia-ml.so.1 = crash-without-shutdown"])
            run = machine.run(*arguments)
            self.assertEqual(run.exit_code, 1 if arguments == ["-queryNvCuda"] else 0)
            events = run.report.events
            self.assertEqual([events.count(event) for event in (
                "call:nvmlShutdown", "close:libnvidia-ml.so.1", "close:libOpenCL.so.1")], [1, 1, 1])
            self.assertLess(events.index("call:nvmlShutdown"), events.index("close:libnvidia-ml.so.1"))
            self.assertLess(events.index("close:libnvidia-ml.so.1"), events.index("close:libOpenCL.so.1"))
            # CUDA's libraries do not unload safely, and so never are.
            self.assertNotIn("close:libcuda.so.1", events)

    def test_all_is_written_before(self):
        whole = self.described(MACHINE).run("-v", "-queryNvCuda")
        self.assertEqual(whole.exit_code, 1)
        for library in LIBRARIES:
            for moment in ("crash-at-unload", "crash-at-exit"):
                with self.subTest(library=library, moment=moment):
                    run = self.described(MACHINE, faults=[f"{library} = {moment}"]).run("-v", "-queryNvCuda")
                    self.assertEqual((run.exit_code, run.output), (SEGFAULT, whole.output))

    def test_a_companion(self):
        """The segment is detached before the process's libraries are unloaded, except those unloaded explicitly."""
        starts = {(library, moment): self.companion(MACHINE, faults=[f"{library} = {moment}"])
                  for library, moment in (("libnvidia-ml.so.1", "crash-at-unload"), ("libcuda.so.1", "crash-at-exit"))}
        for (library, moment), (folder, run) in starts.items():
            with self.subTest(library=library, moment=moment):
                block = self.published(folder)
                self.assertEqual(run.stop()[0], SEGFAULT)
                if moment == "crash-at-exit":
                    self.assertEqual(list(folder.iterdir()), [])
                else:
                    # As after a kill: whole, and marked as not published.
                    self.assertEqual((folder / NAME).read_bytes(), block)
                    self.assertFalse(is_set(folder / NAME, ATTACHED))


class StartsProcesses(CompanionCase):
    """The driver's start brings another process up, which lives on. It was given neither the segment nor its locks."""

    def start(self, how):
        """A companion whose cuInit starts a process, both once the first block is published."""
        folder, run = self.companion(MACHINE, streams=subprocess.DEVNULL, share_pids=True,
                                     faults=[f"cuInit = {how} 120000"])
        return folder, run

    def child_of(self, run):
        pid = run.pid()
        with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
            children = [int(child) for child in file.read().split()]
        self.assertEqual(len(children), 1)
        self.addCleanup(self.end, children[0])
        return children[0]

    @staticmethod
    def end(pid):
        try:
            os.kill(pid, signal.SIGKILL)
        except ProcessLookupError:
            pass

    def assert_lockable(self, folder):
        with open(folder / NAME, "rb") as segment:
            fcntl.flock(segment, fcntl.LOCK_EX | fcntl.LOCK_NB)

    def test_another_program(self):
        folder, run = self.start("spawn")
        block = self.published(folder)
        child = self.child_of(run)
        descriptors = {number: os.readlink(f"/proc/{child}/fd/{number}") for number in os.listdir(f"/proc/{child}/fd")}
        self.assertEqual(set(descriptors) - {"0", "1", "2"}, set(), descriptors)
        self.assert_lockable(folder)
        # Killed: the child goes on, and holds nothing that another program waits for.
        self.assertEqual(run.stop(signal.SIGKILL)[0], 128 + signal.SIGKILL)
        self.assertTrue(os.path.exists(f"/proc/{child}/exe"))
        self.assert_lockable(folder)
        self.assertFalse(is_set(folder / NAME, ATTACHED))
        self.assertEqual((folder / NAME).read_bytes(), block)

    def test_a_child_that_inherits_everything(self):
        # Without another program nothing is closed: locks are released explicitly, not by closing.
        folder, run = self.start("fork")
        _, other = self.companion(MACHINE, shm=folder)
        block = self.published(folder)
        child = self.child_of(run)
        inherited = [os.stat(f"/proc/{child}/fd/{number}").st_ino for number in os.listdir(f"/proc/{child}/fd")]
        self.assertIn(os.stat(folder / NAME).st_ino, inherited)
        self.assert_lockable(folder)
        self.assertEqual(run.stop()[0], 0)
        self.assertTrue(os.path.exists(f"/proc/{child}/exe"))
        # The other companion publishes, and as the last one removes the segment.
        self.assertIsNone(other.exit_code)
        self.published(folder, block, timeout=20)
        self.assertEqual(other.stop()[0], 0)
        self.assertIn([line for line in self.lines(other) if "shared memory" in line],
                      (["Created shared memory"], ["Using existing shared memory"]))
        self.assertEqual(list(folder.iterdir()), [])

    def test_the_end_of_a_child_is_the_drivers_business(self):
        folder, run = self.start("spawn")
        block = self.published(folder)
        child, pid = self.child_of(run), run.pid()
        # A driver waits for its own children: SIGCHLD is neither ignored nor caught nor blocked.
        with open(f"/proc/{pid}/status", encoding="ascii") as file:
            masks = {name: int(value, 16) for name, value in (line.split(":", 1) for line in file)
                     if name in ("SigBlk", "SigIgn", "SigCgt")}
        self.assertEqual({name: mask >> (signal.SIGCHLD - 1) & 1 for name, mask in masks.items()},
                         {"SigBlk": 0, "SigIgn": 0, "SigCgt": 0})
        os.kill(child, signal.SIGKILL)
        self.published(folder, block)
        with open(f"/proc/{child}/stat", encoding="ascii") as file:
            self.assertEqual(file.read().rsplit(")", 1)[1].split()[0], "Z")
        self.assertEqual(run.stop()[0], 0)


if __name__ == "__main__":
    simulated.main()
