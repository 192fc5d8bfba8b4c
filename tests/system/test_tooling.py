"""The tree's own tools: the commands of ./dev, and the checks that CI relies on."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(os.environ.get("QZGPUINFO_SOURCE", Path(__file__).resolve().parent.parent.parent))


def run(*command, **options):
    return subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, capture_output=True,
                          text=True, timeout=60, check=False, **options)


class Scratch(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)

    def write(self, name, text, mode=0o644):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        path.chmod(mode)
        return path


class Dev(Scratch):
    COMMANDS = ["run", "test", "sanitize", "simulate", "demo", "lint", "bench", "fuzz", "package", "on", "help"]

    def test_help_names_every_command(self):
        for arguments in (["help"], ["--help"], ["-h"], []):
            with self.subTest(arguments):
                answer = run(SOURCE / "dev", *arguments, cwd="/")
                self.assertEqual((answer.returncode, answer.stderr), (0, ""))
                self.assertEqual(re.findall(r"^  (\w+)", answer.stdout, re.MULTILINE), self.COMMANDS)

    def test_every_command_of_the_help_is_there(self):
        script = (SOURCE / "dev").read_text(encoding="utf-8")
        cases = re.findall(r"^    (\w+)(?: \| [^)]*)?\)$", script, re.MULTILINE)
        self.assertEqual(cases, self.COMMANDS)

    def test_unknown_command(self):
        answer = run(SOURCE / "dev", "tset")
        self.assertEqual((answer.returncode, answer.stdout), (2, ""))
        self.assertTrue(answer.stderr.startswith("dev: there is no command 'tset'\nusage: ./dev [--no-install] COMMAND"))

    def machine_without(self, *absent):
        """A PATH with the tools that dev itself uses and the built program's, less the absent ones."""
        tools = self.root / "bin"
        tools.mkdir()
        for tool in ("bash", "env", "readlink", "dirname", "cat", "grep"):
            (tools / tool).symlink_to(shutil.which(tool))
        for tool in ("python3", "g++", "cmake", "ninja", "git"):
            if tool not in absent:
                (tools / tool).symlink_to("/bin/true")
        return tools

    def test_nothing_to_install_with(self):
        tools = self.machine_without("cmake", "ninja")
        answer = run("/usr/bin/bash", SOURCE / "dev", "run", env={"PATH": str(tools)})
        self.assertEqual((answer.returncode, answer.stdout), (1, ""))
        self.assertIn("no apt-get here", answer.stderr)
        self.assertTrue(answer.stderr.endswith("then run this again: cmake ninja-build\n"), answer.stderr)

    def add_installer(self):
        self.write("bin/sudo", '#!/usr/bin/env bash\n"$@"\n', 0o755)
        self.write("bin/apt-get", '#!/usr/bin/env bash\necho "apt-get $*" >&2\nexit 1\n', 0o755)

    def test_installs_nothing_when_told_so(self):
        tools = self.machine_without("cmake", "ninja")
        self.add_installer()
        answer = run("/usr/bin/bash", SOURCE / "dev", "--no-install", "run", env={"PATH": str(tools)})
        self.assertEqual((answer.returncode, answer.stdout, answer.stderr),
                         (1, "", "dev: missing, and not to be installed: cmake ninja-build\n"))

    def test_each_kind_of_package_has_its_needs(self):
        tools = self.machine_without()
        for arguments, missing in ([], "dpkg-dev file"), (["--rpm"], "rpm"):
            answer = run("/usr/bin/bash", SOURCE / "dev", "--no-install", "package", *arguments, env={"PATH": str(tools)})
            self.assertEqual((answer.returncode, answer.stderr), (1, f"dev: missing, and not to be installed: {missing}\n"))

    def test_builds_only_what_is_packed(self):
        tools = self.machine_without("ninja")
        for tool in ("mkdir", "flock"):
            (tools / tool).symlink_to(shutil.which(tool))
        self.write("bin/rpmbuild", "", 0o755)
        self.write("bin/ninja", '#!/usr/bin/env bash\necho "ninja $*"\n', 0o755)
        shutil.copy(SOURCE / "dev", self.root)
        answer = run("/usr/bin/bash", self.root / "dev", "package", "--rpm", env={"PATH": str(tools)})
        self.assertEqual(answer.stderr, f"ninja -C {self.root.resolve()}/build/release packaged\n"
                                        "dev: packaging/run is not in this tree\n")

    def test_installs_what_is_missing_and_says_so_first(self):
        tools = self.machine_without("cmake", "ninja")
        self.add_installer()
        answer = run("/usr/bin/bash", SOURCE / "dev", "run", env={"PATH": str(tools)})
        lines = answer.stderr.splitlines()
        self.assertEqual(answer.returncode, 1)
        self.assertEqual(lines[0], "dev: will install with apt-get: cmake ninja-build")
        calls = [line.split(" ", 3)[3] for line in lines if line.startswith("apt-get ")]
        # The lists are fetched again after the first failure; without them nothing is left to try.
        install = "DPkg::Lock::Timeout=300 install --no-install-recommends cmake ninja-build"
        self.assertEqual(calls[-2:], [install, "DPkg::Lock::Timeout=300 update"])
        self.assertEqual(lines[-1], "dev: apt-get could not install: cmake ninja-build")


class Includes(Scratch):
    def check(self, files):
        for name in ("support/qzTime.h", "app/log/logLine.h", "gpu/GpuInfo.h", "opencl/errorName.h",
                     "nvidia/nvml.h", "amd/AmdAdvice.h", "app/WatchDog.h", "reader/Reader.h",
                     "simulator/Fault.h"):
            self.write(name, "#pragma once\n")
        for name, text in files.items():
            self.write(name, text)
        return run(SOURCE / "lint/includes.py", self.root)

    def test_the_tree_itself(self):
        answer = run(SOURCE / "lint/includes.py", SOURCE)
        self.assertEqual((answer.returncode, answer.stdout), (0, ""), answer.stdout)

    def test_downward_includes_pass(self):
        answer = self.check({
            "app/log/a.cpp": '#include "app/log/logLine.h"\n#include "support/qzTime.h"\n',
            "gpu/a.cpp": '#include "app/log/logLine.h"\n#include "support/qzTime.h"\n#include <QString>\n',
            "opencl/a.cpp": '#include "gpu/GpuInfo.h"\n',
            "nvidia/a.cpp": '#include "opencl/errorName.h"\n',
            "amd/a.cpp": '#include "opencl/errorName.h"\n',
            "app/a.cpp": '#include "nvidia/nvml.h"\n#include "amd/AmdAdvice.h"\n#include "app/WatchDog.h"\n',
            "reader/a.cpp": '#include "support/qzTime.h"\n',
            "reader/status/a.cpp": '#include "gpu/GpuInfo.h"\n#include "reader/Reader.h"\n',
            "tests/unit/a.cpp": '#include "app/WatchDog.h"\n',
        })
        self.assertEqual((answer.returncode, answer.stdout), (0, ""))

    def test_upward_includes_are_rejected(self):
        for file, target in (
            ("support/a.cpp", "app/log/logLine.h"),
            ("app/log/a.cpp", "app/WatchDog.h"),
            ("app/log/a.h", "gpu/GpuInfo.h"),
            ("gpu/a.h", "opencl/errorName.h"),
            ("opencl/a.cpp", "nvidia/nvml.h"),
            ("nvidia/a.cpp", "amd/AmdAdvice.h"),
            ("amd/a.cpp", "nvidia/nvml.h"),
            ("amd/a.cpp", "app/WatchDog.h"),
            ("reader/a.cpp", "app/log/logLine.h"),
            ("reader/a.cpp", "simulator/Fault.h"),
            ("simulator/lib/a.cpp", "gpu/GpuInfo.h"),
        ):
            for opening, closing in ('""', "<>"):
                with self.subTest(file=file, target=target, opening=opening):
                    answer = self.check({file: f"\n  #  include {opening}{target}{closing}\n"})
                    self.assertEqual(answer.returncode, 1)
                    own, other = os.path.dirname(file).replace("/lib", ""), os.path.dirname(target)
                    reason = f'{file}:2: {own} includes {other} ("{target}"); it may include '
                    self.assertTrue(answer.stdout.startswith(reason), answer.stdout)
                    self.assertEqual(answer.stdout.count("\n"), 1)
                    (self.root / file).unlink()

    def test_includes_are_written_from_the_root(self):
        answer = self.check({
            "gpu/a.cpp": '#include "GpuInfo.h"\n',
            "amd/a.cpp": '#include "../gpu/GpuInfo.h"\n',
        })
        self.assertEqual(answer.returncode, 1)
        dots, short = answer.stdout.splitlines()
        self.assertRegex(dots, r'^amd/a\.cpp:1: .*without "\.\."$')
        self.assertRegex(short, r'^gpu/a\.cpp:1: .*\("gpu/GpuInfo\.h"\)$')

    def test_an_empty_tree_is_no_success(self):
        answer = run(SOURCE / "lint/includes.py", self.root)
        self.assertEqual(answer.returncode, 1)
        self.assertIn("no source file", answer.stderr)


class LintSettings(unittest.TestCase):
    def test_each_disabled_check_has_its_reason(self):
        text = (SOURCE / ".clang-tidy").read_text(encoding="utf-8")
        disabled = dict(re.findall(r"^  - '-([\w-]+)'(.*)$", text, re.MULTILINE))
        self.assertIn("modernize-use-trailing-return-type", disabled)
        for check, rest in disabled.items():
            with self.subTest(check):
                self.assertRegex(rest, r"^ +# \w.+")

    def test_unknown_step(self):
        answer = run(SOURCE / "lint/run", "fromat")
        self.assertEqual((answer.returncode, answer.stdout), (2, ""))
        self.assertIn("there is no step 'fromat'", answer.stderr)


class SkippedTests(Scratch):
    RESULTS = """<?xml version="1.0" encoding="UTF-8"?>
<testsuite name="x" tests="6" skipped="2">
<testcase name="unit.Passes" status="run"><system-out>PASS   : TestPasses::all()</system-out></testcase>
<testcase name="system.gpu" status="notrun"><system-out>SKIPPED: no GPU</system-out></testcase>
<testcase name="unit.Rows" status="run"><system-out>SKIP   : TestRows::reads(a row) no file
SKIP   : TestRows::whole() no such thing</system-out></testcase>
<testcase name="system.named" status="run"><system-out>test_a (__main__.K.test_a) ... skipped "isn't"
test_b (__main__.K)
Its docstring. ... skipped 'because'
test_c (__main__.K.test_c) ... ok

OK (skipped=2)</system-out></testcase>
<testcase name="system.counted" status="fail"><system-out>sF
FAILED (failures=1, skipped=1)</system-out></testcase>
</testsuite>
"""
    EVERY = [
        "skipped: system.gpu: SKIPPED: no GPU",
        "skipped: unit.Rows::reads(a row): no file",
        "skipped: unit.Rows::whole(): no such thing",
        "skipped: system.named::K.test_a: isn't",
        "skipped: system.named::K.test_b: because",
        "skipped: system.counted::unnamed: 1 cases, which unittest names with verbosity 2",
    ]

    def check(self, excuses, results=RESULTS):
        return run(SOURCE / ".ci/skipped_tests.py", self.write("tests.xml", results),
                   self.write("excuses", excuses))

    def test_each_one_is_named(self):
        answer = self.check("# no excuse\n\n")
        self.assertEqual((answer.returncode, answer.stdout.splitlines()), (1, self.EVERY))

    def test_an_excuse_counts_for_its_name_alone(self):
        answer = self.check("system.gpu: this machine has none\nunit.Rows::reads(*: nor this\n")
        self.assertEqual((answer.returncode, answer.stdout.splitlines()), (1, self.EVERY[2:]))

    def test_all_excused(self):
        answer = self.check("*: for the test's sake\n")
        self.assertEqual((answer.returncode, answer.stdout), (0, ""))

    def test_an_excuse_needs_a_reason(self):
        for excuse in ("system.gpu", "system.gpu:", "system.gpu:  "):
            with self.subTest(excuse):
                answer = self.check(excuse + "\n")
                self.assertEqual(answer.returncode, 1)
                self.assertIn("an excuse without a reason", answer.stderr)

    def test_no_results_are_no_success(self):
        answer = run(SOURCE / ".ci/skipped_tests.py", self.root / "absent.xml", self.write("excuses", ""))
        self.assertEqual(answer.returncode, 1)
        self.assertIn("no results of a test run", answer.stderr)
        self.assertEqual(self.check("", "<cut").returncode, 1)

    def test_the_real_excuses_have_reasons(self):
        answer = run(SOURCE / ".ci/skipped_tests.py", self.write("tests.xml", "<testsuite/>"))
        self.assertEqual((answer.returncode, answer.stdout, answer.stderr), (0, "", ""))


if __name__ == "__main__":
    unittest.main(verbosity=2)
