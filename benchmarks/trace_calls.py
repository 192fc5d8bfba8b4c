"""Counts the companion's system calls in a trace of strace."""

import re
import statistics
import sys

CALL = re.compile(r"^\d+ +(\w+)\(")  # not a line of a signal, of an end, or of a resumed call
RELEASE = re.compile(r"^\d+ +flock\(\d+, LOCK_UN\)")


def calls_a_cycle(trace, least):
    """The median number of calls from one release of the segment's lock to the next, over at least `least` such cycles.
    The last release does not count: it belongs to the end, when the segment is detached."""
    lines = trace.splitlines()
    releases = [number for number, line in enumerate(lines) if RELEASE.match(line)][:-1]
    counts = [sum(CALL.match(line) is not None for line in lines[begin + 1:end + 1])
              for begin, end in zip(releases, releases[1:])]
    if len(counts) < least:
        sys.exit(f"only {len(counts)} whole cycles were traced")
    # A whole number of calls: the lower of the middle two.
    return statistics.median_low(counts)
