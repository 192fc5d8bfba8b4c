"""The model of the segment's life, tests/model/segment.pml: spin finds nothing in it, and finds each rule that is broken
on purpose."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

MODEL = Path(os.environ["QZGPUINFO_SOURCE"]) / "tests/model/segment.pml"

# What spin's message has to have in it: a word of the assertion, or its sentence about a deadlock.
TORN_WHILE_COPIED = "accepts"
TORN_BY_A_KILL = "mixed"
FRESH_THOUGH_DEAD = " !((((held[0]==1)&&hasPublished[0])"
STALE_THOUGH_PUBLISHED = " !((((held[0]==1)&&published[0])"
STALE_THOUGH_MEASURING = "measuring"
LEFT_BEHIND = "abandoned"
TWO_CYCLES = "lost[w]<2"
DEADLOCK = "invalid end state"
NOT_ITS_PUBLISHERS = "orphaned"

BROKEN = {
    "WRITER_WITHOUT_LOCK": TORN_WHILE_COPIED,
    "READER_WITHOUT_LOCK": TORN_WHILE_COPIED,
    "READY_WHILE_WRITING": TORN_BY_A_KILL,
    "PUBLISHED_WHEN_ATTACHED": FRESH_THOUGH_DEAD,
    "PUBLISHED_AFTER_UNLOCK": STALE_THOUGH_PUBLISHED,
    "MEASURING_TOO_LATE": STALE_THOUGH_MEASURING,
    "MEASURING_TOO_SHORT": STALE_THOUGH_MEASURING,
    "REMOVED_UNDER_OTHERS": TWO_CYCLES,
    "EXCLUSIVE_OVER_SHARED": LEFT_BEHIND,
    "NAME_NOT_RESTORED": TWO_CYCLES,
    "NAMELESS_ATTACHED": TWO_CYCLES,
    "NAMED_BEFORE_ATTACHED": TWO_CYCLES,
    "ENDLESS_WAIT": DEADLOCK,
    "STALLED_REMOVAL_COUNTS": TWO_CYCLES,
    "FOREIGN_REMOVAL_COUNTS": TWO_CYCLES,
}


def search(*defines, optimise="-O0"):
    """What spin's search says that visits every state of the model, up to the first error."""
    with tempfile.TemporaryDirectory() as folder:
        def run(*command):
            result = subprocess.run(command, cwd=folder, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                    stderr=subprocess.STDOUT, text=True, timeout=600, check=False)
            if result.returncode != 0:
                raise AssertionError(f"{' '.join(command)}\n{result.stdout[-4000:]}")
            return result.stdout

        run("spin", *defines, "-a", str(MODEL))
        # COLLAPSE: a third of the memory. SAFETY: assertions and deadlocks, no endless loops. MEMLIM: MiB.
        run("cc", optimise, "-w", "-DSAFETY", "-DCOLLAPSE", "-DVECTORSZ=128", "-DMEMLIM=2000", "-o", "pan", "pan.c")
        return run("./pan", "-m1000000", "-w23")


class Model(unittest.TestCase):
    def hold(self, *defines):
        output = search(*defines, optimise="-O1")
        self.assertIn("errors: 0", output)
        self.assertNotIn("Search not completed", output)
        print(re.search(r"\d+ states, stored", output)[0], "with", defines)
        return output

    def test_holds(self):
        output = self.hold()
        # What no search comes to would prove nothing. Companions and the reader run for ever.
        unreached = re.findall(r'^\t\S+, state \d+, "(.*)"$', output, re.MULTILINE)
        self.assertEqual(unreached, ["-end-", "-end-"])

    def test_one_companion(self):
        self.hold("-DCOMPANIONS=1", "-DAUTHOR")

    def test_another_may_answer_for_a_dead_ones_list(self):
        self.refute(NOT_ITS_PUBLISHERS, "-DAUTHOR")

    def test_broken_rules(self):
        defined = re.findall(r"^#define (\w+) \d+$", MODEL.read_text("utf-8").split("#ifndef BROKEN")[0], re.MULTILINE)
        self.assertEqual(defined, ["NOTHING", *BROKEN])
        for rule, message in BROKEN.items():
            with self.subTest(rule):
                self.refute(message, f"-DBROKEN={rule}")

    def refute(self, message, *defines):
        found = re.search(r"^pan:1: (assertion violated .*|invalid end state) \(at depth", search(*defines), re.MULTILINE)
        self.assertIsNotNone(found, "spin found nothing")
        self.assertIn(message, found[1])


if __name__ == "__main__":
    if shutil.which("spin") is None:
        print("SKIPPED: spin is not installed")
        sys.exit(77)
    unittest.main(verbosity=2)
