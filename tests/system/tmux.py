"""A real terminal with a real shell: tmux, with a private server."""

import os
import subprocess
import tempfile
import time
from pathlib import Path

SETTINGS = """set -g status off
set -g default-terminal screen
set -g escape-time 0
"""


class Tmux:
    """A shell on a terminal of so many columns and rows, its prompt "$ ", in a folder and with a PATH of the test's."""

    def __init__(self, columns, rows, folder, path):
        self._own = tempfile.TemporaryDirectory(prefix="qzTest-")
        settings, shell = Path(self._own.name, "tmux.conf"), Path(self._own.name, "bashrc")
        settings.write_text(SETTINGS, encoding="utf-8")
        shell.write_text(f"PS1='$ '; PATH='{path}':$PATH; HISTFILE=\n", encoding="utf-8")
        self._socket = os.path.join(self._own.name, "socket")
        environment = {name: value for name, value in os.environ.items() if not name.startswith(("TMUX", "LC_", "LANG"))}
        # It ends with the test even when that is killed, and the shell with it.
        # pylint: disable-next=consider-using-with
        self._server = subprocess.Popen(
            ["setpriv", "--pdeathsig", "KILL", "tmux", "-D", "-u", "-S", self._socket, "-f", str(settings)],
            env={**environment, "LC_ALL": "C.UTF-8"}, stdin=subprocess.DEVNULL)
        try:
            deadline = time.monotonic() + 20
            while not os.path.exists(self._socket) and time.monotonic() < deadline:
                time.sleep(0.02)
            self._call("new-session", "-d", "-x", str(columns), "-y", str(rows), "-c", str(folder),
                       f"bash --noprofile --rcfile '{shell}' -i")
            self.wait_for(lambda lines: lines[0] == "$")
        except BaseException:
            self.close()
            raise

    def _call(self, *command):
        done = subprocess.run(["tmux", "-u", "-S", self._socket, *command], stdin=subprocess.DEVNULL, capture_output=True,
                              timeout=20, check=False)
        assert done.returncode == 0, (command, done.stderr)
        return done.stdout.decode("utf-8")

    def lines(self):
        """The visible text, row by row, without trailing blanks."""
        return [line.rstrip() for line in self._call("capture-pane", "-p").split("\n")[:-1]]

    def told(self, what):
        """tmux's data on its terminal, such as "cursor_flag"."""
        return self._call("display-message", "-p", "#{" + what + "}").rstrip("\n")

    def type(self, text):
        self._call("send-keys", "-l", text)
        self.press("Enter")

    def press(self, key):
        self._call("send-keys", key)

    def resize(self, columns, rows):
        self._call("resize-window", "-x", str(columns), "-y", str(rows))

    def wait_for(self, condition, seconds=20):
        """Waits until the visible text satisfies the condition, and returns it."""
        deadline = time.monotonic() + seconds
        while not condition(lines := self.lines()):
            assert time.monotonic() < deadline, "not seen in:\n" + "\n".join(lines)
            time.sleep(0.05)
        return lines

    def close(self):
        self._server.kill()
        self._server.wait()
        self._own.cleanup()
