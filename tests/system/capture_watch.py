#!/usr/bin/env python3
"""Writes docs/watch.md: what `qzGpuStatus --watch` shows in a real terminal (tmux) of several sizes.

usage: QZGPUINFO_BUILD=build/release tests/system/capture_watch.py
"""

import math
import os
import time
from pathlib import Path

from segment_bytes import Segment, block, record
from tmux import Tmux

PAGE = Path(__file__).resolve().parents[2] / "docs/watch.md"
READINGS = 90
BEGIN = """# The live view

`qzGpuStatus --watch` in terminals of several sizes. `tests/system/capture_watch.py` made this page with the real program;
the figures are invented. On a terminal there are colors as well: red for 85 C and more, magenta for memory of which 95 %
or more are in use, reversed for stale data and for GPUs that do not answer.

Keys: arrows and Page keys scroll, `s` sorts (load, temperature, memory, as listed), `g` switches between graphs and
table, `?` shows help, `q` ends. A graph's latest reading is at the right; a gap is a reading without the figure.
"""


def gpus(count, turn):
    def wave(i, period, low, high):
        return int(low + (high - low) * (0.5 + 0.5 * math.sin(turn / period + 1.7 * i)))
    return block([record(b"NVIDIA GeForce RTX 4090", index=i, optix=1, cl_device=1, total=24564,
                         usage=wave(i, 6, 2, 100), temperature=wave(i, 15, 38, 88), memory=(wave(i, 11, 900, 24400), 0),
                         speed=118.0 + i / 8) for i in range(count)])


def capture(count, columns, rows, *keys):
    with Segment(gpus(count, 0)) as segment:
        terminal = Tmux(columns, rows, segment.directory, os.environ["QZGPUINFO_BUILD"])
        try:
            terminal.type("qzGpuStatus --watch 0.1 --directory .")
            terminal.wait_for(lambda lines: "published" in lines[0])
            for turn in range(READINGS):
                segment.write(gpus(count, turn))
                time.sleep(0.1)
            for key in keys:
                terminal.press(key)
                time.sleep(0.5)
            lines = terminal.lines()
        finally:
            terminal.close()
    return "```\n" + "\n".join(lines) + "\n```\n"


def main():
    text = BEGIN
    for title, arguments in (("1 GPU, 80 x 30", (1, 80, 30)), ("8 GPUs, 100 x 30", (8, 100, 30)),
                             ("16 GPUs, 80 x 24", (16, 80, 24)), ("16 GPUs, 60 x 10", (16, 60, 10)),
                             ("16 GPUs, 180 x 50", (16, 180, 50)), ("Help", (8, 80, 24, "?"))):
        text += f"\n## {title}\n\n" + capture(*arguments)
    PAGE.write_text(text, encoding="utf-8")


if __name__ == "__main__":
    main()
