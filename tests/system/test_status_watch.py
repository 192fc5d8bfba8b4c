"""`qzGpuStatus` on a terminal: the table at every width, and `--watch` in place, as lines, interrupted and resized."""

import os
import pty
import signal
import subprocess
import time
import termios
import unittest

from segment_bytes import Segment, block, record
from status_command import PROGRAM
from terminal import COLOR, DOWN, ENTER, LEAVE, PAGE_DOWN, PAGE_UP, UP, Terminal

GPUS = [record(b"NVIDIA GeForce RTX 4090", usage=45, temperature=60, total=24576, memory=(12288, 12288), speed=123.45,
               optix=1, cl_device=1),
        record("größere 日本語日本語日本語 Karte".encode(), index=1, usage=100, temperature=99, total=141312,
               memory=(141312, 0), speed=99999.5)]
OTHER = [record(b"Another GPU", usage=7)]


def processor_time(pid):
    """Seconds that a process has used so far."""
    with open(f"/proc/{pid}/stat", encoding="ascii") as file:
        used = file.read().rsplit(")", 1)[1].split()[11:13]
    return sum(map(int, used)) / os.sysconf("SC_CLK_TCK")


class OnATerminal(unittest.TestCase):
    def setUp(self):
        self.segment = Segment(block(GPUS))
        self.addCleanup(self.segment.__exit__)

    def terminal(self, *arguments, command=(), **options):
        if command:
            arguments = ("--watch", "1")
        terminal = Terminal([*command, PROGRAM, "--directory", self.segment.directory, *arguments], **options)
        self.addCleanup(terminal.__exit__)
        return terminal

    def watch(self, **options):
        return self.terminal("--watch", "0.1", **options)


class Widths(OnATerminal):
    def test_no_width_wraps_or_loses_its_columns(self):
        for columns in (*range(1, 40), *range(40, 130, 7)):
            terminal = self.terminal(columns=columns)
            self.assertEqual(terminal.end(), 0)
            lines = terminal.screen.text()
            self.assertEqual(len([line for line in lines if line]), 4, (columns, lines))

    def test_20_columns(self):
        terminal = self.terminal(columns=20)
        self.assertEqual(terminal.end(), 0)
        self.assertEqual(terminal.screen.text()[1:4], [
            "# NAME     LOAD TEMP",
            "0 NVIDIA …  45%  60C",
            "1 größere… 100%  99C"])

    def test_80_columns(self):
        terminal = self.terminal(columns=80)
        self.assertEqual(terminal.end(), 0)
        self.assertEqual(terminal.screen.text()[1:3], [
            "# KIND   NAME                  LOAD TEMP            MEMORY    SPEED FEATURES",
            "0 Cuda-0 NVIDIA GeForce RTX 4…  45%  60C   12288/24576 MiB   123.45 OpenCL OptiX"])

    def test_the_names_get_what_room_there_is(self):
        terminal = self.terminal(columns=60)
        self.assertEqual(terminal.end(), 0)
        self.assertEqual(terminal.screen.text()[1:3], [
            "# KIND   NAME                    LOAD TEMP            MEMORY",
            "0 Cuda-0 NVIDIA GeForce RTX 4090  45%  60C   12288/24576 MiB"])


class InPlace(OnATerminal):
    def test_bars_for_load_and_memory(self):
        terminal = self.watch(columns=96)
        terminal.wait_for(lambda lines: "#" in lines[1])
        self.assertEqual(terminal.screen.text()[1:4], [
            "# KIND   NAME                     LOAD              TEMP            MEMORY                 SPEED",
            "0 Cuda-0 NVIDIA GeForce RTX 4090   45% [#####     ]  60C   12288/24576 MiB [#####     ]   123.45",
            "1 Cuda-1 größere 日本語日本語日…  100% [##########]  99C 141312/141312 MiB [##########] 99999.50"])

    def test_redrawn_in_place(self):
        terminal = self.watch()
        terminal.wait_for(lambda lines: lines[2] == "0 Cuda-0 NVIDIA GeForce R…  45% [#####     ]  60C   "
                          "12288/24576 MiB [#####     ]")
        self.assertTrue(terminal.screen.alternate and terminal.screen.cursor_hidden)
        self.segment.write(block(OTHER))
        terminal.wait_for(lambda lines: "Another GPU" in lines[2])
        self.assertEqual(terminal.screen.text()[1:4], ["# KIND   NAME        LOAD              TEMP MEMORY SPEED FEATURES",
                                                       "0 Cuda-0 Another GPU   7% [#         ]    -      -     - -", ""])
        self.assertEqual("".join(terminal.screen.text()[4:-1]), "")
        self.assertEqual(terminal.raw.count(ENTER), 1)

    def test_a_companion_that_ends_and_comes_back(self):
        terminal = self.watch()
        terminal.wait_for(lambda lines: "2 GPUs" in lines[0])
        self.segment.detach()
        terminal.wait_for(lambda lines: lines[0].startswith("STALE: ") and "NVIDIA" in lines[2])
        os.unlink(self.segment.path)
        terminal.wait_for(lambda lines: "no segment" in lines[0] and not "".join(lines[1:-1]))
        self.segment.write(block(OTHER))
        self.segment.attach()
        terminal.wait_for(lambda lines: "1 GPU," in lines[0])

    def test_every_signal_that_ends_it_leaves_the_terminal_as_it_was(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number):
                terminal = self.watch()
                terminal.wait_for(lambda lines: "2 GPUs" in lines[0])
                terminal.signal(number)
                self.assertEqual(terminal.end(), 0)
                self.assertTrue(terminal.raw.startswith(ENTER) and terminal.raw.endswith((LEAVE, LEAVE + "\r")), terminal.raw[-80:])
                self.assertFalse(terminal.screen.alternate or terminal.screen.cursor_hidden)
                self.assertEqual(termios.tcgetattr(terminal.master), terminal.attributes)

    def test_ctrl_c(self):
        terminal = self.watch()
        terminal.wait_for(lambda lines: "2 GPUs" in lines[0])
        os.write(terminal.master, b"\x03")
        self.assertEqual(terminal.end(), 0)
        self.assertTrue(terminal.raw.endswith((LEAVE, LEAVE + "\r")), terminal.raw[-80:])

    def test_resized_while_it_waits(self):
        terminal = self.terminal("--watch", "3600")
        terminal.wait_for(lambda lines: "MEMORY" in lines[1])
        terminal.resize(20, 5)
        terminal.wait_for(lambda lines: lines[3] == "1 größere… 100%  99C" and not lines[4])
        terminal.resize(120, 10)
        terminal.wait_for(lambda lines: "SPEED" in lines[1])

    def test_a_size_beyond_what_the_library_can_draw(self):
        terminal = self.watch()
        terminal.wait_for(lambda lines: "2 GPUs" in lines[0])
        for columns, rows in ((40000, 5), (20, 40000), (40000, 40000)):
            terminal.set_size(columns, rows)
            self.assertTrue(terminal.read(0.3))
        terminal.resize(20, 5)
        terminal.wait_for(lambda lines: lines[3] == "1 größere… 100%  99C" and not lines[4])

    def test_more_gpus_than_rows(self):
        self.segment.write(block(GPUS * 8))
        terminal = self.watch(rows=6)
        terminal.wait_for(lambda lines: lines[5] != "")
        self.assertTrue(terminal.screen.text()[5].startswith(" 3 Cuda-1"))

    def test_one_row(self):
        terminal = self.watch(rows=1)
        terminal.wait_for(lambda lines: "2 GPUs" in lines[0])


class Keys(OnATerminal):
    def setUp(self):
        super().setUp()
        self.segment.write(block([record(b"GPU", index=i, usage=6 * i, temperature=90 - i, total=100, memory=(50, 50))
                                  for i in range(16)]))

    def press(self, terminal, keys, row):
        """Waits until the first GPU's line begins like this."""
        os.write(terminal.master, keys)
        terminal.wait_for(lambda lines: lines[2].startswith(row))

    def test_60_by_10(self):
        terminal = self.terminal("--watch", "3600", columns=60, rows=10)
        terminal.wait_for(lambda lines: lines[9].startswith(" 7 "))
        self.assertRegex(terminal.screen.text()[0], r"\A16 GPUs, published \d\.\d s ago … 8 more\Z")

    def test_scrolling_and_sorting(self):
        terminal = self.terminal("--watch", "3600", columns=60, rows=10)
        terminal.wait_for(lambda lines: lines[2].startswith(" 0 "))
        for keys, row in ((DOWN, " 1 "), (DOWN + DOWN, " 3 "), (UP, " 2 "), (PAGE_DOWN, " 8 "), (DOWN, " 8 "),
                          (PAGE_UP, " 0 "), (b"s", "15 "), (b"x", "15 "), (b"s", " 0 ")):
            self.press(terminal, keys, row)

    def test_graphs_table_and_help(self):
        terminal = self.terminal("--watch", "3600")
        terminal.wait_for(lambda lines: lines[23].startswith("q quit  s sort  g graphs  ? help"))
        for keys, sign in ((b"g", "g table"), (b"g", "g graphs"), (b"?", "g graphs")):
            os.write(terminal.master, keys)
            terminal.wait_for(lambda lines, sign=sign: sign in lines[23])
            terminal.wait_for(lambda lines, keys=keys, sign=sign:
                              lines[3].startswith({"g table": "load "}.get(sign, "  arrows" if keys == b"?" else " 1 ")))

    def test_q_ends_it(self):
        terminal = self.watch()
        terminal.wait_for(lambda lines: "16 GPUs" in lines[0])
        self.assertNotEqual(termios.tcgetattr(terminal.master)[3] & termios.ICANON, terminal.attributes[3] & termios.ICANON)
        os.write(terminal.master, b"q")
        self.assertEqual(terminal.end(), 0)
        self.assertFalse(terminal.screen.alternate or terminal.screen.cursor_hidden)
        self.assertEqual(termios.tcgetattr(terminal.master), terminal.attributes)

    def test_a_key_right_behind_escape(self):
        for begin in (b"\x1b", b"\x1b[", b"\x1b[1;"):
            terminal = self.terminal("--watch", "3600")
            terminal.wait_for(lambda lines: "16 GPUs" in lines[0])
            os.write(terminal.master, begin + b"q")
            self.assertEqual(terminal.end(), 0)

    def test_without_standard_input_it_goes_on_and_does_not_spin(self):
        for source in ("</dev/null", "<&-", "< <(:)"):
            with self.subTest(source):
                terminal = self.terminal(columns=100, command=["/bin/bash", "-c", f'exec "$0" "$@" {source}'])
                terminal.wait_for(lambda lines: "16 GPUs" in lines[0])
                before = processor_time(terminal.pid)
                time.sleep(1)
                self.assertLess(processor_time(terminal.pid) - before, 0.5)
                self.segment.set_age(7)
                terminal.wait_for(lambda lines: "published 7." in lines[0])

    def test_a_keyboard_that_goes_away(self):
        keyboard, its_end = pty.openpty()
        terminal = self.terminal(columns=100, command=["/bin/bash", "-c", f'exec "$0" "$@" <{os.ttyname(its_end)}'])
        terminal.wait_for(lambda lines: "16 GPUs" in lines[0])
        os.write(keyboard, b"s\n")  # a terminal of its own, in its own modes
        terminal.wait_for(lambda lines: lines[2].startswith("15 "))
        os.close(its_end)
        os.close(keyboard)
        before = processor_time(terminal.pid)
        time.sleep(1)
        self.assertLess(processor_time(terminal.pid) - before, 0.5)
        self.segment.set_age(7)
        terminal.wait_for(lambda lines: "published 7." in lines[0])

    def test_a_terminal_that_was_closed(self):
        for before, codes in (("", (0, 7)), ("trap '' HUP; ", (7,))):
            with self.subTest(before):
                terminal = self.terminal(columns=100, command=["/bin/bash", "-c", before + 'exec "$0" "$@"'])
                terminal.wait_for(lambda lines: "16 GPUs" in lines[0])
                os.close(terminal.master)
                terminal.master = os.open(os.devnull, os.O_RDWR)
                deadline = time.monotonic() + 20
                while not (ended := os.waitpid(terminal.pid, os.WNOHANG))[0] and time.monotonic() < deadline:
                    time.sleep(0.05)
                self.assertEqual(ended[0], terminal.pid)
                terminal.pid = 0
                self.assertIn(os.waitstatus_to_exitcode(ended[1]), codes)


class Looks(OnATerminal):
    def drawn(self, rows=24, **options):
        terminal = self.watch(columns=100, rows=rows, **options)
        terminal.wait_for(lambda lines: "2 GPUs" in lines[0] and "99C" in "".join(lines))
        return terminal

    def test_colors_have_a_meaning(self):
        self.assertRegex(self.drawn().raw, r"\x1b\[31m\x1b\[1m *99C")
        self.segment.write(block(OTHER))
        terminal = self.watch()
        terminal.wait_for(lambda lines: "Another GPU" in lines[2])
        self.assertNotRegex(terminal.raw, COLOR)

    def test_no_colors_where_none_are_wanted_or_known(self):
        for options in ({"NO_COLOR": "1"}, {"kind": "qz-test-plain"}):
            with self.subTest(options):
                raw = self.drawn(**options).raw
                self.assertNotRegex(raw, COLOR)
                self.assertRegex(raw, r"\x1b\[1m *99C")
        self.assertRegex(self.drawn(NO_COLOR="").raw, COLOR)

    def test_ascii_where_the_locale_is_not_utf_8(self):
        for rows in (24, 40):
            terminal = self.drawn(rows, LC_ALL="C")
            self.assertTrue(terminal.raw.isascii())
            self.assertIn("gr??ere ??????", "".join(terminal.screen.text()))
        self.assertIn("load", "".join(terminal.screen.text()))
        self.assertIn("█", self.drawn(40).raw)

    def test_200_by_50_is_used(self):
        terminal = self.watch(columns=200, rows=50)
        terminal.wait_for(lambda lines: lines[49].startswith("q quit") and lines[48] and "temp " in "".join(lines))
        self.assertEqual("".join(terminal.screen.text()).count("temp "), 2)

    def test_an_unknown_terminal_gets_lines(self):
        self.segment.write(block(OTHER))
        terminal = self.terminal("--watch", "60", columns=200, kind="qz-nobody-knows-it")
        terminal.wait_for(lambda lines: "gpu=0" in lines[0])
        self.assertNotIn("\x1b", terminal.raw)


class AsLines(OnATerminal):
    LINE = (r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ state=ok age=\d+\.\ds gpu=0 kind=Cuda-0 load=45% temp=60C "
            r"mem=12288/24576MiB speed=123\.45 name=NVIDIA GeForce RTX 4090\Z")

    def test_into_a_pipe(self):
        with subprocess.Popen([PROGRAM, "--watch", "0.2", "--directory", self.segment.directory],
                              stdout=subprocess.PIPE) as process:
            try:
                started = time.monotonic()
                lines = [process.stdout.readline().decode().rstrip("\n") for _ in range(5)]
                self.assertTrue(0.3 < time.monotonic() - started < 5)
                os.unlink(self.segment.path)
                while "state=missing" not in (line := process.stdout.readline().decode()):
                    self.assertIn("state=ok", line)
            finally:
                process.send_signal(signal.SIGTERM)
        self.assertEqual(process.returncode, 0)
        self.assertRegex(lines[0], self.LINE)
        self.assertRegex(lines[4], self.LINE)
        self.assertTrue(lines[1].endswith(" name=größere 日本語日本語日本語 Karte"), lines[1])
        self.assertTrue(line.endswith("Z state=missing gpus=0 there is no segment; the companion does not run\n"))

    def test_waits_for_the_companion_first(self):
        os.unlink(self.segment.path)
        arguments = [PROGRAM, "--watch", "0.2", "--wait", "20", "--directory", self.segment.directory]
        with subprocess.Popen(arguments, stdout=subprocess.PIPE) as process:
            try:
                time.sleep(0.8)
                self.segment.write(block(GPUS))
                self.segment.attach()
                self.assertRegex(process.stdout.readline().decode().rstrip("\n"), self.LINE)
            finally:
                process.send_signal(signal.SIGTERM)

    def test_on_a_terminal_that_cannot_redraw(self):
        self.segment.write(block(OTHER))
        terminal = self.terminal("--watch", "60", columns=200, kind="dumb")
        terminal.wait_for(lambda lines: "gpu=0" in lines[0])
        self.assertNotIn("\x1b", terminal.raw)

    def test_a_name_with_a_line_break_stays_one_line(self):
        self.segment.write(block([record(b"line\nbreak \x1b[2J")]))
        with subprocess.Popen([PROGRAM, "--watch", "0.1", "--directory", self.segment.directory],
                              stdout=subprocess.PIPE) as process:
            lines = [process.stdout.readline().decode() for _ in range(2)]
            process.terminate()
        for line in lines:
            self.assertTrue(line.endswith(" load=- temp=- mem=- speed=- name=line\ufffdbreak \ufffd[2J\n"), line)


if __name__ == "__main__":
    unittest.main()
