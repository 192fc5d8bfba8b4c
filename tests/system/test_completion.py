"""Completion in the real interactive shells, on a machine where other users' processes and files have hostile names:
nothing of a name is ever run, and a completed name reaches the command as it is."""

import os
import shutil
import unittest
from pathlib import Path

from interactive_shell import PROMPT, InteractiveShell
from test_manual import doctor_options, info_options, status_options

COMPLETIONS = Path(os.environ["QZGPUINFO_SOURCE"], "packaging/completions")
# Each begins with a different character, so that one character completes it.
NAMES = ["$(touch ran)", "`touch ran`", ";touch ran", "&touch ran", "|touch ran", ">ran", "<(touch ran)", "a b  c",
         "it's", 'q"q "', "\\touch ran", "*", "u?", "[a-z]", "{x,y}", "~root", "!!", "#x", "%1", "^a^b", "=ls", "c:d:e",
         "k=v@w", "@x", "(touch ran)", "n\\nn", "plain", "w!ho", "ünï", " lead", "/x/y"]
# Empty names and other than text cannot be typed; a name beginning with "-" would be an option.
NO_NAMES = [b"", b"new\nline", b"\nfirst", b"\x1b[31mred", b"tab\tbed", b"del\x7f", b"inv\xffalid", b"-dash", b"-$(touch ran)"]
FILES = ["$(touch ran)", "`touch ran`", ";touch ran", "a b", "it's", 'q"q', "new\nline;touch ran"]


class InShell:
    """The tests that every shell has to pass. `special` has the quotes that may be open before a name, each with the characters
    that are escaped within it; `unfit` the characters of names that are not completed within it."""

    special = {"": "$`;&|><'\"\\*?[{~!#^=@( ", "'": "", '"': '$`\\'}
    unfit = {"": "", "'": "", '"': ""}
    directories = FILES
    # Completes the command that sudo is given.
    knows_sudo = True

    @classmethod
    def setUpClass(cls):
        if shutil.which(cls.program) is None or shutil.which("bwrap") is None:
            raise unittest.SkipTest(f"no {cls.program} or no bwrap here")
        cls.shell = InteractiveShell(("qzGpuInfo", "qzGpuStatus", "qzGpuDoctor", "sudo"), [*map(os.fsencode, NAMES), *NO_NAMES])
        cls.addClassCleanup(cls.shell.close)
        cls.begin()

    def tearDown(self):
        self.assertEqual(list(self.shell.folder.glob("**/ran")), [], "a name was run")

    def begins(self, quote, character):
        """The first character of a name, typed as this shell wants it there."""
        return quote + ("\\" if character in self.special[quote] else "") + character

    def test_a_name_is_quoted(self):
        for quote, unfit in self.unfit.items():
            for name in NAMES:
                with self.subTest(quote=quote, name=name):
                    typed = "qzGpuInfo " + self.begins(quote, name[0]) + "\t"
                    if set(unfit) & set(name):
                        self.assertEqual(self.shell.type(typed + quote), [os.fsencode(name[0])])
                    else:
                        self.assertEqual(self.shell.type(typed), [os.fsencode(name)])

    def test_as_root(self):
        given = self.shell.type("sudo qzGpuInfo \\$\t")
        self.assertEqual(given, [b"qzGpuInfo", b"$(touch ran)" if self.knows_sudo else b"$"])

    def test_what_is_offered(self):
        offered = set(self.offered("qzGpuInfo "))
        # The sandbox, the shell, and its command that reads the names are processes too.
        self.assertEqual(offered - {b"bwrap", b"sh", b"grep", self.program.encode()}, set(map(os.fsencode, NAMES)))

    def test_part_of_a_word(self):
        """Where a shell sees a new word after a colon, no name is added to what was typed."""
        self.assertEqual(self.shell.type("qzGpuInfo c:p\t"), [b"c:p"])

    def test_options(self):
        self.assertEqual(set(self.offered("qzGpuInfo -")), set(map(os.fsencode, info_options())))
        self.assertEqual(set(self.offered("qzGpuStatus -")), set(map(os.fsencode, status_options())))
        self.assertEqual(set(self.offered("qzGpuDoctor -")), set(map(os.fsencode, doctor_options())))
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
            given = self.shell.type("qzGpuDoctor --record " + self.begins("", name[0]) + "\t")
            self.assertEqual(given, [b"--record", os.fsencode(name)])
        for name in self.directories:
            with self.subTest(directory=name):
                given = self.shell.type("qzGpuStatus --directory d" + self.begins("", name[0]) + "\t")
                self.assertEqual([part.rstrip(b"/") for part in given], [b"--directory", os.fsencode(f"d{name}")])
                # A file is no directory: nothing is completed.
                given = self.shell.type("qzGpuStatus --directory " + self.begins("", name[0]) + "\t")
                self.assertEqual(given, [b"--directory", os.fsencode(name[0])])

    def test_checks(self):
        self.assertEqual(self.shell.type("qzGpuDoctor --only op\t"), [b"--only", b"opencl"])

    def test_seconds(self):
        self.assertEqual(self.shell.type("qzGpuStatus --wait \t"), [b"--wait"])


class Bash(InShell, unittest.TestCase):
    program = "bash"
    # Readline takes an escaped quote for the closing one, and the history's `!` cannot be escaped.
    unfit = {"": "", "'": "'", '"': '"!'}
    knows_sudo = False
    load = f"source '{COMPLETIONS}/bash/qzGpuInfo'; source '{COMPLETIONS}/bash/qzGpuStatus'; source '{COMPLETIONS}/bash/qzGpuDoctor'"

    @classmethod
    def begin(cls):
        settings = cls.shell.home / "settings"
        settings.write_text(f"PS1='{PROMPT}'\n{cls.load}\n", encoding="utf-8")
        cls.shell.start("bash", "--noprofile", "--rcfile", settings, "-i", INPUTRC="/dev/null")

    def offered(self, typed):
        """Readline's insert-completions."""
        return self.shell.type(typed + "\x1b*")


class BashWithItsPackage(Bash):
    """As installed: bash-completion loads the file by the command's name."""

    knows_sudo = True
    load = "source /usr/share/bash-completion/bash_completion"

    @classmethod
    def begin(cls):
        if not Path(cls.load.split()[1]).exists():
            raise unittest.SkipTest("no bash-completion here")
        folder = cls.shell.home / ".local/share/bash-completion"
        folder.mkdir(parents=True)
        (folder / "completions").symlink_to(COMPLETIONS / "bash")
        super().begin()


class Zsh(InShell, unittest.TestCase):
    program = "zsh"

    @classmethod
    def begin(cls):
        (cls.shell.home / ".zshrc").write_text(
            f"PROMPT='{PROMPT}'\nfpath=('{COMPLETIONS}/zsh' $fpath)\nautoload -U compinit\ncompinit -u -D\n"
            "zle -C insert-all complete-word _generic\nbindkey '^[*' insert-all\n"
            "zstyle ':completion:insert-all:*' completer _all_matches _complete\n"
            "zstyle ':completion:insert-all:*' insert true\n", encoding="utf-8")
        cls.shell.start("zsh", "-d", "-i")

    def offered(self, typed):
        return self.shell.type(typed + "\x1b*")


class Fish(InShell, unittest.TestCase):
    program = "fish"
    special = {**InShell.special, "'": "\\", '"': '$"\\'}
    # Its own list of directories has one in each line.
    directories = FILES[:-1]

    @classmethod
    def begin(cls):
        # Without the second folder it would look through all manual pages first.
        (cls.shell.home / "fish/generated_completions").mkdir(parents=True)
        (cls.shell.home / "fish/config.fish").write_text(
            f"function fish_prompt\n    printf '{PROMPT}'\nend\nset -g fish_greeting\n"
            f"set -g fish_autosuggestion_enabled 0\nset -p fish_complete_path '{COMPLETIONS}/fish'\n",
            encoding="utf-8")
        folders = {f"XDG_{kind}_HOME": str(cls.shell.home) for kind in ("CONFIG", "DATA", "CACHE")}
        cls.shell.start("fish", "-i", **folders)

    def offered(self, typed):
        return self.shell.type(f"qzGpuInfo (complete -C'{typed}' | string replace -r '\\t.*' '')")


if __name__ == "__main__":
    unittest.main(verbosity=2)
