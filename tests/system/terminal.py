"""Runs a program on a pseudo-terminal and keeps the screen that its output draws. The terminal is of a kind of its own,
which has only the control sequences listed here; any other ends the test, and so does a line that runs over the right
edge."""

import codecs
import fcntl
import os
import pty
import re
import select
import signal
import struct
import subprocess
import tempfile
import termios
import time
import unicodedata

ENTER, LEAVE = "\x1b[?1049h", "\x1b[?1049l"
HIDE_CURSOR, SHOW_CURSOR = "\x1b[?25l", "\x1b[?25h"
UP, DOWN, PAGE_UP, PAGE_DOWN = b"\x1b[A", b"\x1b[B", b"\x1b[5~", b"\x1b[6~"
COLOR = re.compile(r"\x1b\[3[0-7]m")
TOKEN = re.compile(r"\x1b\[\?1049[hl]|\x1b\[\?25[hl]|\x1b\[(?:\d+;\d+)?H|\x1b\[2?[KJ]|\x1b\[[\d;]*m|[\r\n\b]|[^\x00-\x1f\x7f]")
BEGUN = re.compile(r"\x1b(?:\[\??[\d;]*)?")
TIOCGPTN = 0x80045430  # which Python's termios doesn't name
KIND = "qz-test"
# The second kind has no colors.
DESCRIPTION = r"""qz-test|terminal of the tests, colors#8, pairs#64, setaf=\E[3%p1%dm, setab=\E[4%p1%dm, op=\E[39;49m, use=qz-test-plain,
qz-test-plain|the same without colors, am, xenl, cols#80, lines#24, bold=\E[1m, rev=\E[7m, sgr0=\E[m,
    clear=\E[H\E[2J, cup=\E[%i%p1%d;%p2%dH, el=\E[K, ed=\E[J, cr=\r, cub1=\b, smcup=\E[?1049h, rmcup=\E[?1049l,
    civis=\E[?25l, cnorm=\E[?25h, kcuu1=\E[A, kcud1=\E[B, kpp=\E[5~, knp=\E[6~,
"""
_described = tempfile.TemporaryDirectory(prefix="qzTest-")
subprocess.run(["tic", "-x", "-o", _described.name, "-"], input=DESCRIPTION, text=True, check=True)


def columns_of(character):
    return 2 if unicodedata.east_asian_width(character) in "WF" else 1


class Screen:
    def __init__(self, columns, rows):
        self.columns, self.rows = columns, rows
        self.alternate = self.cursor_hidden = False
        self.lines = [[] for _ in range(rows)]
        self.row = self.column = 0
        self.own = (self.lines, 0, 0)
        self._begun = ""

    def feed(self, text):
        """Draws the text; a sequence that is not whole yet waits for the rest of it."""
        text, self._begun = self._begun + text, ""
        position = 0
        while position < len(text):
            match = TOKEN.match(text, position)
            if not match and BEGUN.fullmatch(text, position):
                self._begun = text[position:]
                return
            assert match, f"not understood: {text[position:position + 20]!r}"
            self._apply(match[0])
            position = match.end()

    def _apply(self, token):
        if token.endswith(("1049h", "1049l")):
            self._switch(token[-1] == "h")
        elif token.endswith(("?25h", "?25l")):
            self.cursor_hidden = token[-1] == "l"
        elif token.endswith("H"):
            row, column = map(int, token[2:-1].split(";")) if ";" in token else (1, 1)
            self.row, self.column = row - 1, column - 1
        elif token.endswith("m") and token[0] == "\x1b":
            pass
        elif token == "\x1b[2J":
            self.lines = [[] for _ in range(self.rows)]
        elif token == "\x1b[K":
            del self.lines[self.row][self.column:]
        elif token == "\x1b[J":
            del self.lines[self.row][self.column:]
            for row in range(self.row + 1, self.rows):
                self.lines[row] = []
        elif token == "\r":
            self.column = 0
        elif token == "\b":
            self.column -= 1
        elif token == "\n":
            self.row += 1
            assert self.row < self.rows, "the screen scrolled"
        else:
            line = self.lines[self.row]
            cells = [token] + [""] * (columns_of(token) - 1)
            line.extend(" " * (self.column - len(line)))
            line[self.column:self.column + len(cells)] = cells
            self.column += len(cells)
            assert self.column <= self.columns, f"a line runs over the edge: {''.join(line)!r}"

    def _switch(self, alternate):
        """The other screen is empty at first; the own one comes back as it was."""
        if alternate and not self.alternate:
            self.own, self.lines = (self.lines, self.row, self.column), [[] for _ in range(self.rows)]
        elif self.alternate and not alternate:
            self.lines, self.row, self.column = self.own
        self.alternate = alternate

    def text(self):
        return ["".join(line).rstrip() for line in self.lines]


class Terminal:
    """A program on a separate terminal."""

    def __init__(self, arguments, columns=80, rows=24, kind=KIND, full=False, **environment):
        """`full`: it can't take another byte before what is in it was read."""
        self.pid, self.master = pty.fork()
        if self.pid == 0:
            os.environ.update(TERM=kind, TERMINFO=_described.name, LC_ALL="C.UTF-8")
            os.environ.pop("NO_COLOR", None)
            os.environ.update(environment)
            # The parent sets the size before the program may look at it.
            os.read(0, 1)
            os.execv(arguments[0], arguments)
        attributes = termios.tcgetattr(self.master)
        attributes[3] &= ~termios.ECHO
        termios.tcsetattr(self.master, termios.TCSANOW, attributes)
        self.attributes = termios.tcgetattr(self.master)
        self.set_size(columns, rows)
        self.screen = Screen(columns, rows)
        self.raw = ""
        self._decoder = codecs.getincrementaldecoder("utf-8")("surrogateescape")
        if full:
            self._fill()
        os.write(self.master, b"\n")

    def _fill(self):
        number, = struct.unpack("i", fcntl.ioctl(self.master, TIOCGPTN, bytes(4)))
        slave = os.open(f"/dev/pts/{number}", os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
        try:
            # What was taken is moved on a moment later, and there is room again.
            refusals = 0
            while refusals < 10:
                try:
                    os.write(slave, b" " * 256)
                    refusals = 0
                except BlockingIOError:
                    refusals += 1
                    time.sleep(0.02)
        finally:
            os.close(slave)

    def set_size(self, columns, rows):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def resize(self, columns, rows):
        """Sets a new size and clears the screen, since reflowing leaves nothing to rely on."""
        self.read(0.2)
        self.screen = Screen(columns, rows)
        self.set_size(columns, rows)

    def read(self, seconds):
        """Reads the output that arrives in time; False at the end of the output."""
        deadline = time.monotonic() + seconds
        while (left := deadline - time.monotonic()) > 0:
            if not select.select([self.master], [], [], left)[0]:
                return True
            try:
                data = os.read(self.master, 65536)
            except OSError:
                data = b""
            if not data:
                return False
            text = self._decoder.decode(data)
            self.raw += text
            self.screen.feed(text)
        return True

    def wait_for(self, condition, seconds=10):
        deadline = time.monotonic() + seconds
        while not condition(self.screen.text()):
            assert time.monotonic() < deadline, f"not seen: {self.screen.text()}"
            self.read(0.05)
        self.read(0.05)

    def signal(self, number):
        os.kill(self.pid, number)

    def end(self):
        """Reads the rest; the exit code (below zero: the signal that ended it)."""
        deadline = time.monotonic() + 10
        while self.read(0.1) and time.monotonic() < deadline:
            pass
        _, status = os.waitpid(self.pid, 0)
        self.pid = 0
        return os.waitstatus_to_exitcode(status)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.pid:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
        os.close(self.master)
