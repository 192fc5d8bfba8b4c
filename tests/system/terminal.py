"""Runs a program on a pseudo-terminal and keeps the screen that its output draws. Only the control sequences listed
here are understood; any other ends the test, and so does a line that runs over the right edge."""

import fcntl
import os
import pty
import re
import select
import signal
import struct
import termios
import time
import unicodedata

ENTER, LEAVE = "\x1b[?1049h\x1b[?25l", "\x1b[?25h\x1b[?1049l"
TOKEN = re.compile(r"\x1b\[\?1049[hl]|\x1b\[\?25[hl]|\x1b\[[HKJ]|[\r\n]|[^\x00-\x1f\x7f]")


def columns_of(character):
    return 2 if unicodedata.east_asian_width(character) in "WF" else 1


class Screen:
    def __init__(self, columns, rows):
        self.columns, self.rows = columns, rows
        self.alternate = self.cursor_hidden = False
        self.lines = [[] for _ in range(rows)]
        self.row = self.column = 0

    def feed(self, text):
        position = 0
        while position < len(text):
            match = TOKEN.match(text, position)
            assert match, f"not understood: {text[position:position + 20]!r}"
            self._apply(match[0])
            position = match.end()

    def _apply(self, token):
        if token.endswith(("1049h", "1049l")):
            self.alternate = token[-1] == "h"
        elif token.endswith(("?25h", "?25l")):
            self.cursor_hidden = token[-1] == "l"
        elif token == "\x1b[H":
            self.row = self.column = 0
        elif token == "\x1b[K":
            del self.lines[self.row][self.column:]
        elif token == "\x1b[J":
            del self.lines[self.row][self.column:]
            for row in range(self.row + 1, self.rows):
                self.lines[row] = []
        elif token == "\r":
            self.column = 0
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

    def text(self):
        return ["".join(line) for line in self.lines]


class Terminal:
    """A program on a separate terminal."""

    def __init__(self, arguments, columns=80, rows=24, kind="xterm"):
        self.pid, self.master = pty.fork()
        if self.pid == 0:
            os.environ["TERM"] = kind
            # The parent sets the size before the program may look at it.
            os.read(0, 1)
            os.execv(arguments[0], arguments)
        attributes = termios.tcgetattr(self.master)
        attributes[3] &= ~termios.ECHO
        termios.tcsetattr(self.master, termios.TCSANOW, attributes)
        self.attributes = termios.tcgetattr(self.master)
        self._set_size(columns, rows)
        self.screen = Screen(columns, rows)
        self.raw = ""
        os.write(self.master, b"\n")

    def _set_size(self, columns, rows):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def resize(self, columns, rows):
        """Sets a new size and clears the screen, since reflowing leaves nothing to rely on."""
        self.read(0.2)
        self.screen = Screen(columns, rows)
        self._set_size(columns, rows)

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
            text = data.decode("utf-8", "surrogateescape")
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
