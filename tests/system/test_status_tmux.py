"""`qzGpuStatus --watch` typed into a shell on a real terminal."""

import os
import re
import shutil
import sys
import unittest
import unicodedata

from segment_bytes import Segment, block, record
from tmux import Tmux

FOLDER = os.environ["QZGPUINFO_BUILD"]
WATCH = "qzGpuStatus --watch {} --directory ."
GPUS = [record(b"NVIDIA GeForce RTX 4090", usage=45, temperature=60, total=24576, memory=(12288, 12288), speed=123.45,
               optix=1, cl_device=1),
        record("größere 日本語日本語日本語 Karte".encode(), index=1, usage=100, temperature=99, total=141312,
               memory=(141312, 0), speed=99999.5)]
OTHER = [record(b"Another GPU", usage=7)]
AT_96_COLUMNS = [
    "# KIND   NAME                     LOAD              TEMP            MEMORY                 SPEED",
    "0 Cuda-0 NVIDIA GeForce RTX 4090   45% [#####     ]  60C   12288/24576 MiB [#####     ]   123.45",
    "1 Cuda-1 größere 日本語日本語日…  100% [##########]  99C 141312/141312 MiB [##########] 99999.50"]
AT_20_COLUMNS = [
    "# NAME     LOAD TEMP",
    "0 NVIDIA …  45%  60C",
    "1 größere… 100%  99C"]
# Each would change more than its own cells if a terminal got it as it is.
HOSTILE = [b"\x1b]0;title\x07", b"\x1b[2J\x1b[H", b"line\nbreak\r\ttab", b"\xff\xfe \xc3(", b"\xc2\x9b31m \xe2\x80\xae",
           "e\u0301 日本 😀".encode(), b'" \\ \' \x0e']


def columns_of(text):
    return sum(2 if unicodedata.east_asian_width(character) in "WF" else 1 for character in text)


class Watched(unittest.TestCase):
    def setUp(self):
        self.segment = Segment(block(GPUS))
        self.addCleanup(self.segment.__exit__)

    def shell(self, columns=96, rows=12):
        terminal = Tmux(columns, rows, self.segment.directory, FOLDER)
        self.addCleanup(terminal.close)
        return terminal

    def watch(self, columns=96, rows=12, interval=0.1):
        terminal = self.shell(columns, rows)
        terminal.type(WATCH.format(interval) + "; echo code $?")
        terminal.wait_for(lambda lines: re.match(r"\d+ GPUs?,", lines[0]))
        return terminal

    def assert_only_keys(self, lines):
        """The lowest line names the keys; there is nothing above it."""
        self.assertEqual(lines[:-1], [""] * (len(lines) - 1))
        self.assertRegex(lines[-1], r"\Aq quit  s sort")

    def assert_end(self, terminal, code):
        """Back on the shell's own screen, with a cursor, and typing shows."""
        lines = terminal.wait_for(lambda lines: any(line.endswith(f"code {code}") for line in lines))
        self.assertEqual((terminal.told("alternate_on"), terminal.told("cursor_flag")), ("0", "1"))
        self.assertFalse([line for line in lines if "Cuda-" in line or "GPUs," in line])
        terminal.type("echo typed")
        terminal.wait_for(lambda lines: "$ echo typed" in lines and "typed" in lines)

    def test_redrawn_in_place(self):
        terminal = self.watch()
        self.assertEqual((terminal.told("alternate_on"), terminal.told("cursor_flag")), ("1", "0"))
        first = terminal.wait_for(lambda lines: lines[1:4] == AT_96_COLUMNS)
        # The age goes on, and nothing else moves.
        later = terminal.wait_for(lambda lines: lines[0] != first[0])
        self.assertRegex(later[0], r"\A2 GPUs, published \d+\.\d s ago\Z")
        self.assertEqual(later[1:-1], first[1:-1])
        self.assert_only_keys(later[4:])

    def test_fewer_gpus_leave_nothing_behind(self):
        terminal = self.watch(columns=72)
        self.segment.write(block(OTHER))
        lines = terminal.wait_for(lambda lines: "Another GPU" in lines[2])
        self.assertRegex(lines[0], r"\A1 GPU, published \d\.\d s ago\Z")
        self.assertEqual(lines[1:3], [
            "# KIND   NAME        LOAD              TEMP MEMORY SPEED FEATURES",
            "0 Cuda-0 Another GPU   7% [#         ]    -      -     - -"])
        self.assert_only_keys(lines[3:])
        os.unlink(self.segment.path)
        lines = terminal.wait_for(lambda lines: "segment" in lines[0])
        self.assertEqual(lines[0], "there is no segment; the companion does not run")
        self.assert_only_keys(lines[1:])

    def test_more_gpus_than_rows_do_not_scroll(self):
        self.segment.write(block(OTHER * 16, OTHER * 16))
        terminal = self.watch(rows=6)
        first = terminal.wait_for(lambda lines: lines[5].startswith(" 3 "))
        later = terminal.wait_for(lambda lines: lines[0] != first[0])
        self.assertRegex(later[0], r"\A32 GPUs, published")
        self.assertEqual([line[:2] for line in later[1:]], [" #", " 0", " 1", " 2", " 3"])

    def test_20_columns(self):
        terminal = self.watch(columns=20)
        self.assert_only_keys(terminal.wait_for(lambda lines: lines[1:4] == AT_20_COLUMNS)[4:])

    def test_resized_between_two_readings(self):
        terminal = self.watch(interval=3600)
        for columns, rows, table in ((20, 5, AT_20_COLUMNS), (96, 12, AT_96_COLUMNS), (20, 12, AT_20_COLUMNS)):
            terminal.resize(columns, rows)
            lines = terminal.wait_for(lambda lines, table=table: lines[1:4] == table)
            if rows == 5:
                self.assertEqual(lines[4:], [""])
            else:
                self.assert_only_keys(lines[4:])

    def test_ctrl_c_gives_the_terminal_back(self):
        terminal = self.shell()
        terminal.type("echo before")
        terminal.type(WATCH.format(0.1) + "; echo code $?")
        terminal.wait_for(lambda lines: lines[1:4] == AT_96_COLUMNS)
        terminal.press("C-c")
        self.assert_end(terminal, 0)
        self.assertEqual(terminal.lines()[:2], ["$ echo before", "before"])

    def test_stopped_by_ctrl_z_and_gone_on_with(self):
        terminal = self.watch()
        terminal.press("C-z")
        terminal.wait_for(lambda lines: any("Stopped" in line for line in lines))
        self.assertEqual((terminal.told("alternate_on"), terminal.told("cursor_flag")), ("0", "1"))
        terminal.type("fg; echo code $?")
        terminal.wait_for(lambda lines: lines[1:4] == AT_96_COLUMNS)
        self.assertEqual((terminal.told("alternate_on"), terminal.told("cursor_flag")), ("1", "0"))
        terminal.press("C-c")
        self.assert_end(terminal, 0)

    def test_into_a_file_plain_lines(self):
        terminal = self.shell()
        terminal.type(WATCH.format(0.1) + " > lines; echo code $?")
        path = os.path.join(self.segment.directory, "lines")
        terminal.wait_for(lambda _: os.path.exists(path) and os.path.getsize(path) > 500)
        self.assertEqual(terminal.told("alternate_on"), "0")
        terminal.press("C-c")
        self.assert_end(terminal, 0)
        with open(path, encoding="utf-8") as file:
            for number, line in enumerate(file):
                self.assertRegex(line, r"\A\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ state=ok age=\d+\.\ds " + f"gpu={number % 2} ")
                self.assertTrue(line.rstrip("\n").isprintable(), line)

    def test_names_move_no_cursor(self):
        self.segment.write(block([record(name, index=i, usage=i, temperature=50) for i, name in enumerate(HOSTILE)]))
        for columns in (20, 33, 96):
            with self.subTest(columns):
                terminal = self.watch(columns)
                title = terminal.told("pane_title")
                lines = terminal.wait_for(lambda lines: lines[len(HOSTILE) + 1] != "")
                end = columns_of(lines[1].split("LOAD")[0]) + 4
                for i, line in enumerate(lines[2:len(HOSTILE) + 2]):
                    self.assertTrue(line.startswith(f"{i} "), lines)
                    self.assertEqual(columns_of(line[:line.index(f"{i}%") + 2]), end, lines)
                self.assert_only_keys(lines[len(HOSTILE) + 2:])
                self.assertEqual(terminal.told("pane_title"), title)


if __name__ == "__main__":
    if shutil.which("tmux") is None:
        print("SKIPPED: tmux is not installed")
        sys.exit(77)
    unittest.main(verbosity=2)
