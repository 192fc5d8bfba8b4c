"""Completion in the real interactive shells, on a machine where other users' processes and files have hostile names:
nothing of a name is ever run, and a completed name reaches the command as it is."""

import os
import shutil
import unittest
from pathlib import Path

from interactive_shell import PROMPT, InteractiveShell
from test_manual import info_options, status_options

COMPLETIONS = Path(os.environ["QZGPUINFO_SOURCE"], "packaging/completions")
# Each begins with another character, so that one character completes it.
NAMES = ["$(touch ran)", "`touch ran`", ";touch ran", "&touch ran", "|touch ran", ">ran", "<(touch ran)", "a b  c",
         "it's", 'q"q "', "\\touch ran", "*", "?", "[a-z]", "{x,y}", "~root", "!!", "#x", "%1", "^a^b", "=ls", "c:d:e",
         "k=v@w", "@x", "(touch ran)", "n\\nn", "plain", "w!ho", "ünï", " lead", "/x/y"]
# Process names are not text when a terminal or a locale cannot show them; those with "-" in front are options.
NO_NAMES = [b"new\nline", b"\nfirst", b"\x1b[31mred", b"tab\tbed", b"del\x7f", b"inv\xffalid", b"-dash", b"-v $(touch ran)"]
FILES = ["$(touch ran)", "`touch ran`", ";touch ran", "a b", "it's", 'q"q', "new\nline;touch ran"]


class InShell:
    """What every shell has to pass. `quotes` are those that may be open before the name."""

    quotes = ("", "'", '"')

    def setUp(self):
        if shutil.which(self.program) is None or shutil.which("bwrap") is None:
            self.skipTest(f"no {self.program} or no bwrap here")
        self.shell = InteractiveShell(("qzGpuInfo", "qzGpuStatus"), [*map(os.fsencode, NAMES), *NO_NAMES])
        self.addCleanup(self.shell.close)
        self.begin()

    def tearDown(self):
        self.assertEqual(list(self.shell.folder.glob("**/ran")), [], "a name was run")

    def begins(self, quote, character):
        """The first character of a name, typed as this shell wants it there."""
        special = {"": "$`;&|><'\"\\*?[{~!#^=@( ", "'": "", '"': '$`\\'}[quote]
        return quote + ("\\" if character in special else "") + character

    def test_a_name_is_quoted(self):
        for quote in self.quotes:
            for name in NAMES:
                with self.subTest(quote=quote, name=name):
                    typed = "qzGpuInfo " + self.begins(quote, name[0]) + "\t"
                    if self.fits(quote, name):
                        self.assertEqual(self.shell.type(typed), [os.fsencode(name)])
                    else:
                        self.assertEqual(self.shell.type(typed + quote), [os.fsencode(name[0])])

    def test_what_is_offered(self):
        offered = set(self.offered("qzGpuInfo "))
        self.assertEqual(offered - {b"bwrap", b"sh", self.program.encode()}, set(map(os.fsencode, NAMES)))

    def test_options(self):
        self.assertEqual(set(self.offered("qzGpuInfo -")), set(map(os.fsencode, info_options())))
        self.assertEqual(set(self.offered("qzGpuStatus -")), set(map(os.fsencode, status_options())))
        self.assertEqual(self.shell.type("qzGpuInfo -v -si\t"), [b"-v", b"-single"])
        self.assertEqual(self.shell.type("qzGpuInfo -v pla\t"), [b"-v", b"plain"])
        self.assertEqual(self.shell.type("qzGpuStatus --ma\t"), [b"--max-age"])

    def test_files(self):
        for name in FILES:
            (self.shell.work / name).touch()
            (self.shell.work / f"d{name}").mkdir()
        for name in FILES:
            for option in ("--output ", "--output="):
                with self.subTest(option=option, name=name):
                    given = self.shell.type("qzGpuStatus " + option + self.begins("", name[0]) + "\t")
                    self.assertEqual(b" ".join(given), os.fsencode(option + name))
            with self.subTest(directory=name):
                given = self.shell.type("qzGpuStatus --directory d" + self.begins("", name[0]) + "\t")
                self.assertEqual(given, [b"--directory", os.fsencode(f"d{name}/")])
                # A file is no directory: nothing is completed.
                given = self.shell.type("qzGpuStatus --directory " + self.begins("", name[0]) + "\t")
                self.assertEqual(given, [b"--directory", os.fsencode(name[0])])

    def test_seconds(self):
        self.assertEqual(self.shell.type("qzGpuStatus --wait \t"), [b"--wait"])


class Bash(InShell, unittest.TestCase):
    program = "bash"

    def begin(self):
        settings = self.shell.home / "settings"
        settings.write_text(f"PS1='{PROMPT}'\nsource '{COMPLETIONS}/qzGpuInfo'\nsource '{COMPLETIONS}/qzGpuStatus'\n",
                            encoding="utf-8")
        self.shell.start("bash", "--noprofile", "--rcfile", settings, "-i", INPUTRC="/dev/null")

    @staticmethod
    def fits(quote, name):
        """Readline cannot tell an escaped quote from the closing one, and the history's `!` cannot be escaped."""
        return not set({"": "", "'": "'", '"': '"!'}[quote]) & set(name)

    def offered(self, typed):
        """Readline's insert-completions."""
        return self.shell.type(typed + "\x1b*")


class BashWithItsPackage(Bash):
    """As installed: bash-completion loads the file by the command's name."""

    def begin(self):
        package = Path("/usr/share/bash-completion/bash_completion")
        if not package.exists():
            self.skipTest("no bash-completion here")
        folder = self.shell.home / ".local/share/bash-completion"
        folder.mkdir(parents=True)
        (folder / "completions").symlink_to(COMPLETIONS)
        settings = self.shell.home / "settings"
        settings.write_text(f"PS1='{PROMPT}'\nsource {package}\n", encoding="utf-8")
        self.shell.start("bash", "--noprofile", "--rcfile", settings, "-i", INPUTRC="/dev/null")


if __name__ == "__main__":
    unittest.main(verbosity=2)
