"""`./dev on`: how it makes, keeps and enters the roots of other releases. Stand-ins for debootstrap, apt and the tools
that need rights make a root of a few files; a run in a real one is what CI does."""

import fcntl
import os
import shutil
import subprocess
import tempfile
import textwrap
import unittest
from pathlib import Path

SOURCE = Path(os.environ["QZGPUINFO_SOURCE"])
RUN = SOURCE / "tests/releases/run"
# As root of a user namespace, so that ordinary users can run these tests.
TREE = Path("root", "qzgpuinfo")  # of root, inside
AS_ROOT = ["bwrap", "--unshare-user", "--uid", "0", "--gid", "0", "--bind", "/", "/", "--dev-bind", "/dev", "/dev", "--"]

STAND_INS = {
    "apt-get": """
        [[ $1 == indextargets ]] || exit 0
        cat <<'INDEXES'
        Debian bookworm http://mirror.example/debian/
        Debian bookworm-backports http://mirror.example/debian/
        Debian bookworm-proposed-updates http://mirror.example/debian/
        Debian bookworm-security http://mirror.example/security/
        Debian bookworm-updates http://mirror.example/debian/
        Another bookworm http://another.example/
        INDEXES
        """,
    "apt-config": """
        if [[ $1 == shell ]]; then echo "proxy='http://proxy.example:3128'"; else echo 'Acquire::http::Proxy "p";'; fi
        """,
    "debootstrap": """
        echo "$http_proxy $*" >>"$HERE/debootstraps"
        root=${@: -2:1}
        mkdir -p "$root"/{etc/apt/apt.conf.d,etc/dpkg/dpkg.cfg.d,usr/sbin,root}
        [[ ! -e $HERE/broken ]]
        """,
    "setpriv": """
        while [[ $1 == --* ]]; do [[ $1 == --clear-groups ]] || shift; shift; done
        exec "$@"
        """,
    "unshare": """
        while [[ $1 == --* ]]; do shift; done
        exec "$@"
        """,
}
# In place of the one that mounts: keeps what would be run inside, and the root as it is then.
ENTER = """#!/usr/bin/env bash
shift 2
printf '%s\\n' "$@" >>"$HERE/inside"
for setting in "$@"; do [[ $setting != HOME=* ]] || HOME=${setting#*=}; done
if [[ $* == *useradd* ]]; then mkdir -p "$ROOT/home/dev"; exit; fi
cp -R "$ROOT" "$HERE/seen"
[[ ! -e $HERE/killed ]] || kill -KILL $$
cd "$ROOT$HOME/qzgpuinfo"
[[ ! -e $HERE/result ]] || { mkdir -p build/release && cp "$HERE/result" build/release/tests.xml; }
exit 42
"""


class On(unittest.TestCase):
    def setUp(self):
        if shutil.which("rsync") is None:
            self.skipTest("rsync is not installed")
        if shutil.which("bwrap") is None or subprocess.run([*AS_ROOT, "true"], check=False,
                                                            capture_output=True).returncode != 0:
            self.skipTest("bubblewrap can't make a user namespace")
        scratch = tempfile.TemporaryDirectory(prefix="qzTest-")
        self.addCleanup(scratch.cleanup)
        self.here = Path(scratch.name)
        self.roots = self.here / "roots"
        self.place = self.roots / "trixie"
        self.tree = self.here / "tree"
        scripts = self.here / "scripts"
        scripts.mkdir()
        shutil.copy(RUN, scripts)
        self.script(scripts / "enter", ENTER)
        for name, text in STAND_INS.items():
            self.script(self.here / "bin" / name, "#!/usr/bin/env bash" + textwrap.dedent(text))
        self.write("tree/dev", "committed")
        self.write("tree/gone", "committed")
        self.write("tree/.gitignore", "/build/\n/ignored\n")
        self.git("init", "--quiet")
        self.git("add", ".")
        self.git("-c", "user.name=n", "-c", "user.email=e", "commit", "--quiet", "--message=m")

    def write(self, name, text):
        path = self.here / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        return path

    def script(self, path, text):
        self.write(path, text).chmod(0o755)

    def git(self, *arguments):
        subprocess.run(["git", "-C", self.tree, *arguments], check=True, capture_output=True)

    def start(self, *arguments, **environment):
        """`./dev on` with these arguments, in its own surroundings."""
        shutil.rmtree(self.here / "seen", ignore_errors=True)
        (self.here / "inside").unlink(missing_ok=True)
        (self.here / "tmp").mkdir(exist_ok=True)
        environment = {"PATH": f"{self.here / 'bin'}:{os.environ['PATH']}", "HERE": str(self.here),
                       "ROOT": str(self.place / "work"), "QZ_ROOTS": str(self.roots), "TMPDIR": str(self.here / "tmp"),
                       "QZGPUINFO_SOURCE": str(self.tree), **environment}
        # pylint: disable-next=consider-using-with
        return subprocess.Popen([*AS_ROOT, self.here / "scripts/run", *arguments], env=environment, text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)

    def end(self, process):
        """Its exit code and standard error."""
        with process:
            _, said = process.communicate(timeout=60)
        self.assertEqual(os.listdir(self.here / "tmp"), [])
        return process.returncode, said

    def on(self, *arguments, **environment):
        return self.end(self.start(*arguments, **environment))

    def read(self, name):
        return (self.here / name).read_text(encoding="utf-8")

    def test_usage(self):
        for arguments in ([], ["trixie"], ["--user", "trixie"], ["../trixie", "test"], ["", "test"]):
            with self.subTest(arguments):
                code, said = self.on(*arguments)
                self.assertEqual((code, said.splitlines()[0]),
                                 (2, "usage: ./dev on RELEASE COMMAND [ARGUMENTS] [--user] [--again]"))
        self.assertFalse(self.roots.exists())

    def test_a_root_is_made_once(self):
        for _ in range(2):
            self.assertEqual(self.on("trixie", "test")[0], 42)
        made = self.read("debootstraps").splitlines()
        self.assertEqual(len(made), 1)
        self.assertTrue(made[0].startswith("http://proxy.example:3128 --force-check-gpg --variant=minbase --include=git "))
        self.assertTrue(made[0].endswith(f" trixie {self.place}/base.new http://mirror.example/debian/"), made[0])
        self.assertEqual(self.read("seen/etc/apt/sources.list").splitlines(),
                         ["deb http://mirror.example/debian/ trixie main",
                          "deb http://mirror.example/security/ trixie-security main",
                          "deb http://mirror.example/debian/ trixie-updates main"])
        self.assertEqual(self.read("seen/etc/apt/apt.conf.d/90mirror"), 'Acquire::http::Proxy "p";\n')

    def test_sid_has_one_source(self):
        self.on("sid", "test", ROOT=str(self.roots / "sid/work"))
        self.assertEqual(self.read("seen/etc/apt/sources.list"), "deb http://mirror.example/debian/ sid main\n")

    def test_a_half_made_root_is_not_used(self):
        self.write("broken", "")
        code, said = self.on("trixie", "test")
        self.assertEqual((code, said.splitlines()[-1]), (125, "dev: debootstrap could not make a root of trixie"))
        self.assertFalse((self.here / "inside").exists())
        (self.here / "broken").unlink()
        self.assertEqual(self.on("trixie", "test")[0], 42)
        self.assertEqual(len(self.read("debootstraps").splitlines()), 2)

    def test_no_mirror(self):
        self.script("bin/apt-get", "#!/bin/sh\n[ $1 != indextargets ] || echo Another bookworm http://another.example/\n")
        code, said = self.on("trixie", "test")
        self.assertEqual((code, said), (125, "dev: apt uses no mirror of Debian here, to make a root of trixie from\n"))

    def test_no_namespaces(self):
        self.script("bin/unshare", "#!/bin/sh\nexit 1\n")
        code, said = self.on("trixie", "test")
        self.assertEqual((code, said), (125, "dev: no roots can be made here: namespaces are refused (a container needs "
                                             "--privileged)\n"))

    def test_what_runs_inside(self):
        code, _ = self.on("trixie", "simulate", "a machine", "", "-v", QZ_SWEEP="full", CI="", OTHER="x", TERM="dumb")
        inside = self.read("inside").splitlines()
        self.assertEqual(code, 42)
        self.assertEqual(inside[-5:], ["dev", "simulate", "a machine", "", "-v"])
        self.assertIn("QZ_SWEEP=full", inside)
        self.assertFalse([line for line in inside if line.startswith(("OTHER=", "CI="))])
        self.assertIn("HOME=/root", inside)

    def test_as_an_ordinary_user(self):
        for arguments in (["--user", "trixie", "test"], ["trixie", "test", "--user"]):
            with self.subTest(arguments):
                self.assertEqual(self.on(*arguments)[0], 42)
                inside = self.read("inside").splitlines()
                self.assertTrue(any("install --no-install-recommends sudo" in line for line in inside))
                self.assertIn("HOME=/home/dev", inside)
                self.assertEqual(inside[inside.index("--reuid") + 1], "dev")
                self.assertEqual(inside[-2:], ["dev", "test"])
                self.assertEqual(self.read("seen/home/dev/qzgpuinfo/dev"), "committed")

    def test_the_tree_goes_along_with_its_changes(self):
        self.assertNotIn("not committed", self.on("trixie", "test")[1])
        self.assertEqual(self.read("seen" / TREE / "gone"), "committed")
        self.write("tree/dev", "changed")
        self.write("tree/new", "untracked")
        self.write("tree/ignored", "")
        (self.tree / "gone").unlink()
        for again in (["--again"], []):
            with self.subTest(again):
                said = self.on("trixie", "test", *again)[1]
                self.assertIn("dev: with the changes to 3 files that are not committed\n", said)
                inside = self.here / "seen" / TREE
                self.assertEqual(sorted(os.listdir(inside)), [".git", ".gitignore", "dev", "new"])
                self.assertEqual((inside / "dev").read_text(), "changed")

    def test_a_run_starts_clean_unless_it_goes_on(self):
        self.assertEqual(self.on("trixie", "test", "--again")[0], 42)
        self.write(self.place / "work" / "left", "")
        self.write(self.place / "work" / TREE / "build/left", "")
        self.on("trixie", "test", "--again")
        self.assertTrue((self.here / "seen/left").exists())
        self.assertTrue((self.here / "seen" / TREE / "build/left").exists())
        self.on("trixie", "test")
        self.assertFalse((self.here / "seen/left").exists())

    def test_a_run_does_not_go_on_after_one_that_was_cut_short(self):
        self.write("killed", "")
        self.assertEqual(self.on("trixie", "test")[0], 137)
        self.write(self.place / "work" / "left", "")
        (self.here / "killed").unlink()
        self.on("trixie", "test", "--again")
        self.assertFalse((self.here / "seen/left").exists())

    def test_results_come_back(self):
        self.write("tree/build/on/trixie/old.deb", "")
        self.write("result", "results")
        self.on("trixie", "test")
        self.assertEqual(self.read("tree/build/on/trixie/release/tests.xml"), "results")
        self.assertFalse((self.tree / "build/on/trixie/old.deb").exists())

    def test_one_run_at_a_time(self):
        self.on("trixie", "test")
        with open(self.place / ".lock", "rb") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            process = self.start("trixie", "test")
            self.assertEqual(process.stderr.readline(), "dev: waiting for another run on trixie\n")
            self.assertFalse((self.here / "inside").exists())
        self.assertEqual(self.end(process)[0], 42)


if __name__ == "__main__":
    unittest.main(verbosity=2)
