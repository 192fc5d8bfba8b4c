"""The program as it runs continuously, seen from outside through /proc."""

import os
import re
import sys
import time
from pathlib import Path

CYCLE_SECONDS = 4.0


class Companion:
    """The qzGpuInfo of a Run."""

    def __init__(self, run):
        self.pid = run.pid()
        self._run = run
        self._seen = None

    def published(self):
        """When the segment was last published, in nanoseconds; None without a segment."""
        try:
            return os.stat(f"/proc/{self.pid}/root/dev/shm/qzGpuInfo_v2").st_mtime_ns
        except FileNotFoundError:
            return None

    def is_ready(self):
        """Whether the first cycle is done: the block says so."""
        try:
            with open(f"/proc/{self.pid}/root/dev/shm/qzGpuInfo_v2", "rb") as segment:
                return segment.read(8)[4:] == b"\1\0\0\0"
        except FileNotFoundError:
            return False

    def next_publish(self):
        """Waits for the end of the next update cycle since the last call. So several companions can be waited for in
        turn, cycle after cycle, in any order of publishing."""
        deadline = time.monotonic() + 3 * CYCLE_SECONDS
        while self.published() == self._seen or not self.is_ready():
            if not self._run.is_running or time.monotonic() > deadline:
                sys.exit("the companion does not publish")
            time.sleep(0.1)
        self._seen = self.published()

    def processor_ms(self):
        """The processor time used so far by all threads, in milliseconds, as the scheduler counts it."""
        tasks = Path(f"/proc/{self.pid}/task").iterdir()
        return sum(int((task / "schedstat").read_text().split()[0]) for task in tasks) / 1e6


def resident_mib(pid):
    """The memory that a process has in use, its libraries' pages included."""
    status = Path(f"/proc/{pid}/status").read_text(encoding="utf-8")
    return int(re.search(r"^VmRSS:\s+(\d+) kB$", status, re.MULTILINE)[1]) / 1024


def cycle_costs(companions, cycles):
    """The processor time of each of so many update cycles, in milliseconds; a list for each companion. They are
    watched together, and the first cycle is skipped."""
    for companion in companions:
        companion.next_publish()
    used = [[companion.processor_ms()] for companion in companions]
    for _ in range(cycles):
        for companion, sums in zip(companions, used):
            companion.next_publish()
            sums.append(companion.processor_ms())
    return [[after - before for before, after in zip(sums, sums[1:])] for sums in used]
