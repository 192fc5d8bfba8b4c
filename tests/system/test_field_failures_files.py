"""Files of cards that sleep: a card wakes when certain of them are read, so which the program opens, and how often, is
counted from outside, by the system calls; others are there and can't be read for a while, or vanish."""

import re
import shutil
import tempfile
import time
import unittest
from collections import Counter
from pathlib import Path

import simulated
from companion import CompanionCase, figures, read_segment

# A card with all there is, one without a monitor, one that is too small, and one of another vendor. No figure changes,
# or the simulator would answer in the file's place.
MACHINE = """
[os-release]
id = debian
[card card0]
address = 0000:03:00.0
vendor = 0x1002
product_name = Radeon
label = left slot
mem_info_vram_total = 8GiB
mem_info_vram_used = 1GiB
gpu_busy_percent = 31
hwmon = hwmon3
hwmon3/temp1_input = 51000
connectors = DP-1
[card card1]
address = 0000:04:00.0
vendor = 0x1002
label = right slot
mem_info_vram_total = 4GiB
mem_info_vram_used = 1GiB
gpu_busy_percent = 0
[card card2]
address = 0000:05:00.0
vendor = 0x1002
mem_info_vram_total = 512MiB
mem_info_vram_used = 1MiB
gpu_busy_percent = 0
hwmon = hwmon4
hwmon4/temp1_input = 40000
[card card3]
address = 0000:06:00.0
vendor = 0x10de
product_name = not ours
mem_info_vram_total = 8GiB
gpu_busy_percent = 0
hwmon = hwmon5
[drm]
entries = renderD128
"""
DRM = "/sys/class/drm"
LIVE = {"card0/gpu_busy_percent", "card0/mem_info_vram_used", "card0/hwmon/hwmon3/temp1_input",
        "card1/gpu_busy_percent", "card1/mem_info_vram_used"}
# What decides whether a card is shown, and which; a name is not asked for where the better one is there.
AT_START = {"card0/vendor", "card0/product_name", "card0/mem_info_vram_total", "card0/hwmon",
            "card1/vendor", "card1/product_name", "card1/label", "card1/mem_info_vram_total", "card1/hwmon",
            "card2/vendor", "card2/product_name", "card2/label", "card2/mem_info_vram_total", "card2/hwmon",
            "card3/vendor"}
UPDATE = "update current usage"
CYCLES = 2


@unittest.skipUnless(shutil.which("strace"), "strace is not installed")
class Openings(CompanionCase):
    def traced(self):
        """The lines of a companion's trace, split at the beginning of each cycle."""
        trace = Path(tempfile.mkdtemp(prefix="qzTest-")) / "trace"
        self.addCleanup(shutil.rmtree, trace.parent)
        # A sanitizer build can't look for leaks while it is traced.
        folder, run = self.companion(MACHINE, "-v", wrap=["strace", "-f", "-s", "300", "-o", str(trace),
                                                          "-e", "trace=%file,getdents64,write"],
                                     environment={"ASAN_OPTIONS": "detect_leaks=0:verify_asan_link_order=0"})
        block = self.published(folder, timeout=20)
        written = (folder / "qzGpuInfo_v2").stat().st_mtime_ns
        while (folder / "qzGpuInfo_v2").stat().st_mtime_ns == written:
            time.sleep(0.05)
        self.published(folder, timeout=20)
        self.assertEqual(block[12], 2)
        self.assertEqual(run.stop()[0], 0)
        parts, part = [], []
        for line in trace.read_text("utf-8", "replace").splitlines():
            if UPDATE in line:
                parts.append(part)
                part = []
            part.append(line)
        return [*parts, part]

    @staticmethod
    def files(lines, calls):
        """How often each file below the cards is named by these system calls."""
        found = re.findall(rf'(?:{calls})\((?:AT_FDCWD, )?"{DRM}/(card\d+)/device/([^"]+?)/?"', "\n".join(lines))
        return Counter(f"{card}/{name}" for card, name in found)

    def test_each_file_is_opened_once_a_cycle(self):
        start, *cycles = self.traced()
        self.assertEqual(self.files(start, "open|openat"), Counter(AT_START))
        self.assertEqual(len(cycles), CYCLES)
        for cycle in cycles:
            self.assertEqual(self.files(cycle, "open|openat"), Counter(LIVE))
            # No other look at the cards: no listing, no link followed, no status asked for.
            self.assertEqual(self.files(cycle, r"\w+"), Counter(LIVE))
            self.assertEqual([line for line in cycle if "/sys/" in line and f"{DRM}/card" not in line], [])


class Readings(CompanionCase):
    # The kernel's answers for a card that is suspended, by its driver's age; a sensor's file may be refused, too.
    FAULTS = ("card0/gpu_busy_percent = fail EBUSY at 2", "card0/mem_info_vram_used = fail EINVAL at 2",
              "card0/hwmon/hwmon3/temp1_input = refuse EPERM at 2", "card1/gpu_busy_percent = fail EPERM at 3")

    def by_name(self, block):
        """The figures of the cards, whichever comes first in its folder."""
        return {gpu["name"]: found for gpu, found in zip(read_segment.gpus(block), figures(block), strict=True)}

    def test_a_figure_that_fails_is_absent_until_it_is_back(self):
        folder = self.shm_folder()
        simulation = self.described(MACHINE, self.FAULTS, shm=folder)
        run = simulation.start()
        whole = {"Radeon": (51, 8192, 1024, 31), "right slot": (None, 4096, 1024, 0)}
        first = self.published(folder)
        self.assertEqual(self.by_name(first), whole)
        second = self.published(folder, first)
        self.assertEqual(self.by_name(second), {**whole, "Radeon": (None, 8192, None, None)})
        third = self.published(folder, second)
        self.assertEqual(self.by_name(third), {**whole, "right slot": (None, 4096, 1024, None)})
        # The monitor of card0 comes back under another number after its driver was reloaded; the number it had is
        # now another card's.
        monitors = simulation.layout.card("card0") / "hwmon"
        (monitors / "hwmon3").rename(monitors / "hwmon8")
        others = simulation.layout.card("card1") / "hwmon/hwmon3"
        others.mkdir(parents=True)
        (others / "temp1_input").write_text("99000\n")
        fourth = self.published(folder, third)
        self.assertEqual(self.by_name(fourth), {**whole, "Radeon": (None, 8192, 1024, 31)})
        self.assertEqual(run.stop()[0], 0)


if __name__ == "__main__":
    simulated.main()
