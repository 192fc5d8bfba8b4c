"""The .deb package: what is in it, and that it installs, works and goes away in a fresh root.

`test_package.py --fresh` takes a root made by debootstrap and apt instead of one made from the packages that
this machine has installed (see fresh_root.py): as root, with the network, and in minutes.
"""

import gzip
import os
import re
import shutil
import stat
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import fresh_root
import manual_pages
import page_links

SOURCE = Path(os.environ["QZGPUINFO_SOURCE"])
BUILD = Path(os.environ["QZGPUINFO_BUILD"])
FRESH = "--fresh" in sys.argv
TOOLS = ("dpkg", "dpkg-deb", "dpkg-shlibdeps", "lintian", "man", "file", "bwrap", "systemd-analyze")
# The tools of an outside project's build and of the manual's examples.
CLIENT_NEEDS = ["g++", "make", "cmake", "pkg-config", "python3", "luajit"]
PROGRAMS = {"qzGpuInfo", "qzGpuStatus", "qzGpuDoctor"}
UNIT = "usr/lib/systemd/system/qzGpuInfo@.service"

CMAKE_PROJECT = """cmake_minimum_required(VERSION 3.16)
project(client LANGUAGES CXX)
find_package(qzGpuInfoReader 1.0 REQUIRED)
add_executable(gpus gpus.cpp)
target_link_libraries(gpus qzGpuInfoReader::qzgpureader)
"""

scratch = deb = None


def setUpModule():
    global scratch, deb
    missing = [tool for tool in TOOLS if shutil.which(tool) is None]
    if not missing and not FRESH:
        # The fresh root is made from what dpkg has installed here, whatever else there may be.
        installed = fresh_root.InstalledPackages().stanzas
        missing = [f"Debian's {name}" for name in [*CLIENT_NEEDS, "systemd"] if name not in installed]
    if missing:
        raise unittest.SkipTest("not on this machine: " + ", ".join(missing))
    scratch = Path(tempfile.mkdtemp(prefix="package-", dir=BUILD))
    # As at its birth, whatever the machine's settings: programs inside run as an ordinary user.
    scratch.chmod(0o755)
    unittest.addModuleCleanup(shutil.rmtree, scratch, ignore_errors=True)
    deb = make_package("first")


def make_package(folder):
    said = fresh_root.call(SOURCE / "packaging/run", "--output", scratch / folder,
                           env={**os.environ, "QZGPUINFO_BUILD": str(BUILD)})
    return Path(said.strip())


def field(name):
    return fresh_root.call("dpkg-deb", "-f", deb, name).strip()


class Contents(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tree = scratch / "tree"
        fresh_root.call("dpkg-deb", "-R", deb, cls.tree)
        cls.prefix = scratch / "prefix"
        fresh_root.call("cmake", "--install", BUILD, "--prefix", cls.prefix)

    def paths(self, root):
        return {str(path.relative_to(root)) for path in root.rglob("*") if not path.is_dir()}

    def test_lintian_has_nothing_to_say(self):
        said = subprocess.run(["lintian", "--allow-root", "--display-info", "--pedantic",
                               "--fail-on=error,warning,info,pedantic", deb], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=120, check=False)
        self.assertEqual((said.returncode, said.stdout + said.stderr), (0, ""))

    def test_each_exception_for_lintian_has_its_reason(self):
        text = (self.tree / "usr/share/lintian/overrides/qzgpuinfo").read_text(encoding="utf-8")
        for paragraph in text.strip().split("\n\n"):
            with self.subTest(paragraph):
                self.assertRegex(paragraph, r"\A(# .*\n)+qzgpuinfo: [\w-]+ .*\Z")

    def test_control(self):
        version = fresh_root.call(BUILD / "qzGpuStatus", "--version").split()[1]
        self.assertEqual(field("Package"), "qzgpuinfo")
        self.assertEqual(field("Version"), f"{version}-1")
        self.assertEqual(field("Architecture"), "amd64")
        self.assertEqual(field("Maintainer"), "qzGpuInfo developers <developers@qzgpuinfo.invalid>")
        self.assertEqual(field("Recommends"), "ocl-icd-libopencl1 | libopencl1")
        self.assertEqual(field("Homepage"), "")
        # Qt's library is in libqt5core5a up to Debian 12 and in libqt5core5t64 from 13 on.
        depends = fresh_root.InstalledPackages.names(field("Depends"))
        self.assertRegex(" ".join(sorted(depends)), r"\Alibc6 libgcc-s1 libncursesw6 libqt5core5(a|t64) libstdc\+\+6 libtinfo6\Z")

    def test_changelog_is_of_this_version(self):
        changelog = (self.tree / "usr/share/doc/qzgpuinfo/changelog.Debian.gz").read_bytes()
        self.assertTrue(gzip.decompress(changelog).decode().startswith(f"qzgpuinfo ({field('Version')}) "))

    def test_what_there_is_to_read(self):
        folder = self.tree / "usr/share/doc/qzgpuinfo"
        self.assertEqual({path.name for path in folder.iterdir()}, {
            "changelog.Debian.gz", "changelog.gz", "copyright", "examples", "farm-slurm.md",
            "finding-out-why.md", "library.md", "limits.md", "segment.md"})
        for name, source in (("finding-out-why.md", "docs/finding-out-why.md"),
                             ("segment.md", "docs/segment.md"), ("limits.md", "docs/limits.md"),
                             ("library.md", "docs/library.md"), ("farm-slurm.md", "docs/farm-slurm.md"),
                             ("examples/read_segment.py", "docs/read_segment.py")):
            self.assertEqual((folder / name).read_bytes(), (SOURCE / source).read_bytes())
        examples = {path.name: path.read_bytes() for path in (SOURCE / "docs/examples").iterdir()}
        self.assertEqual({path.name: path.read_bytes() for path in (folder / "examples").iterdir()
                          if path.name != "read_segment.py"}, examples)
        self.assertEqual(gzip.decompress((folder / "changelog.gz").read_bytes()), (SOURCE / "CHANGELOG.md").read_bytes())
        for page in folder.glob("*.md"):
            self.assertEqual(page_links.links_to_nothing(page), [])

    def test_copyright_is_the_legal_notice(self):
        notice = re.search(r"^QZGPUINFO_LEGAL_NOTICE:STRING=(.*)$",
                           (BUILD / "CMakeCache.txt").read_text(encoding="utf-8"), re.MULTILINE)[1]
        copyright_file = (self.tree / "usr/share/doc/qzgpuinfo/copyright").read_text(encoding="utf-8")
        self.assertTrue(copyright_file.endswith(f"\n {notice}\n"), copyright_file)

    def test_every_file_has_its_sum(self):
        sums = (self.tree / "DEBIAN/md5sums").read_text(encoding="utf-8")
        self.assertEqual({line.split("  ", 1)[1] for line in sums.splitlines()},
                         {path for path in self.paths(self.tree)
                          if not path.startswith("DEBIAN/") and not (self.tree / path).is_symlink()})
        fresh_root.call("md5sum", "--quiet", "-c", "DEBIAN/md5sums", cwd=self.tree)

    def test_rights_and_owners(self):
        for line in fresh_root.call("dpkg-deb", "-c", deb).splitlines():
            rights, owner, path = line.split(None, 5)[0], line.split()[1], line.split()[-1]
            if rights.startswith("l"):
                continue
            program = rights.startswith("d") or path.startswith(("./usr/bin/", "./usr/libexec/"))
            with self.subTest(path):
                self.assertEqual((rights[1:], owner), ("rwxr-xr-x" if program else "rw-r--r--", "root/root"))

    def test_programs_and_libraries_are_stripped(self):
        for file, kind in (*((f"bin/{program}", "pie executable") for program in PROGRAMS),
                           ("lib/libqzgpuinfo.so.1.0.0", "shared object")):
            self.assertRegex(fresh_root.call("file", self.tree / "usr" / file), rf"{kind}.*, stripped")

    def test_the_dynamic_linker_learns_of_the_library(self):
        control = self.tree / "DEBIAN"
        self.assertEqual((control / "triggers").read_text(encoding="utf-8"), "activate-noawait ldconfig\n")
        self.assertEqual((control / "shlibs").read_text(encoding="utf-8"),
                         f"libqzgpuinfo 1 qzgpuinfo (>= {field('Version')})\n")

    def test_plain_install_puts_down_the_same(self):
        packed = {path[len("usr/"):] for path in self.paths(self.tree) if path.startswith("usr/")}
        # What only Debian reads, and where its zsh looks.
        debian = {"share/lintian/overrides/qzgpuinfo", "share/doc/qzgpuinfo/changelog.Debian.gz",
                  *(f"share/zsh/vendor-completions/_{program}" for program in PROGRAMS)}
        self.assertGreaterEqual(packed, debian)
        self.assertEqual(self.paths(self.prefix), packed - debian | {
            f"share/zsh/site-functions/_{program}" for program in PROGRAMS})
        self.assertEqual(fresh_root.call(self.prefix / "bin/qzGpuStatus", "--version"),
                         fresh_root.call(BUILD / "qzGpuStatus", "--version"))

    def test_each_program_has_its_page(self):
        programs = {path.name for path in (self.prefix / "bin").iterdir()}
        pages = {path.name[:-len(".1.gz")] for path in (self.prefix / "share/man/man1").iterdir()}
        self.assertEqual(programs, pages)
        self.assertEqual(programs, PROGRAMS)

    def test_pages_name_the_folder_of_the_documentation(self):
        for root, prefix in ((self.tree / "usr", "/usr"), (self.prefix, str(self.prefix))):
            text = "".join(manual_pages.installed(root, page) for page in manual_pages.PAGES)
            self.assertEqual(set(re.findall(r"\S+/doc/\S+", text)), {
                f"{prefix}/share/doc/qzgpuinfo/{name}"
                for name in ("finding-out-why.md", "library.md", "segment.md", "examples/read_segment.py")})

    @unittest.skipUnless((BUILD / "build.ninja").exists(), "not built with Ninja, which knows what a target needs")
    def test_what_is_packed_and_nothing_else_is_built_for_it(self):
        def ask(*question):
            return fresh_root.call("ninja", "-C", BUILD, "--quiet", "-t", *question).splitlines()
        steps = ask("commands", "packaged")
        self.assertLessEqual(len(steps), 180)
        words = set(" ".join(steps).split())
        self.assertEqual([word for word in words if word.startswith(("tests/", "simulator/", "benchmarks/"))], [])
        scripts = "".join(path.read_text(encoding="utf-8") for path in BUILD.rglob("cmake_install.cmake"))
        installed = set(re.findall(rf'"{re.escape(str(BUILD))}/([^"]+)"', scripts))
        products = installed & {line.split(":")[0] for line in ask("targets", "all")}
        self.assertGreaterEqual(products, PROGRAMS | {"reader/libqzgpureader.a",
                                          f"reader/c/libqzgpuinfo.so.{field('Version').split('-')[0]}",
                                          "packaging/changelog.gz"})
        self.assertEqual([path for path in products
                          if not {path, str(BUILD / path.removesuffix(".gz"))} & words], [])

    def test_the_same_tree_gives_the_same_package(self):
        self.assertEqual(make_package("second").read_bytes(), deb.read_bytes())


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.root = (fresh_root.DebootstrapRoot if FRESH else fresh_root.PackagesRoot)(scratch / "root")
        cls.root.install(deb)
        cls.companion_ends = "kill $companion; wait $companion; echo companion $?"

    def with_companion(self, script, **options):
        """Runs a script beside a companion that has published; the companion's end is in the last line."""
        return self.root.run("qzGpuInfo > /tmp/companion.log & companion=$!\n"
                             f"qzGpuStatus --wait 20 > /dev/null\n{script}\n{self.companion_ends}", **options)

    def test_a_single_run(self):
        done = self.root.run("qzGpuInfo -single")
        self.assertTrue(done.stdout.startswith(". qzGpuInfo  "))
        self.assertTrue(done.stdout.endswith("\nSingle run...\n"), done.stdout)
        self.assertEqual(done.stderr, "")

    def test_a_companion_is_read(self):
        done = self.with_companion("qzGpuStatus --json; echo status $?")
        self.assertIn('"state": "ok"', done.stdout)
        self.assertTrue(done.stdout.endswith("status 0\ncompanion 0\n"), done.stdout)

    def test_dpkg_is_content(self):
        self.assertEqual(self.root.run("dpkg --verify qzgpuinfo; dpkg --audit", user=0).stdout, "")
        self.assertIn("install ok installed", self.root.run("dpkg -s qzgpuinfo").stdout)

    def test_unit(self):
        """Known to systemd, complete, and off."""
        self.root.add(["systemd"])

        def ask(*command):
            return subprocess.run([command[0], f"--root={self.root.path}", *command[1:]],
                                  stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60,
                                  check=False)
        units = [path.name.replace("@", "@render") for path in (self.root.path / UNIT).parent.glob("qz*")]
        self.assertEqual(len(units), 6)
        for unit in units:
            with self.subTest(unit):
                # The companion of a timer is verified with it.
                verified = ask("systemd-analyze", "--man=no", "verify", unit)
                self.assertEqual((verified.returncode, verified.stdout + verified.stderr), (0, ""))
                static = unit.endswith("textfile@render.service")
                self.assertEqual(ask("systemctl", "is-enabled", unit).stdout, "static\n" if static else "disabled\n")
        self.assertEqual(list(self.root.path.glob("etc/systemd/system/**/*qzGpu*")), [])
        unit = (self.root.path / UNIT).read_text(encoding="utf-8")
        for line in ("User=%i", "ExecStart=qzGpuInfo", "Restart=on-failure", "ProtectSystem=strict"):
            self.assertIn(f"\n{line}\n", unit)

    def test_outside_projects_and_examples(self):
        self.root.add(CLIENT_NEEDS)
        client = scratch / "client"
        client.mkdir()
        page = manual_pages.installed(self.root.path / "usr", "qzGpuInfo_v2.5")
        (client / "gpus.c").write_text(manual_pages.literal(page, "/* Prints"), encoding="utf-8")
        shutil.copy(self.root.path / "usr/share/doc/qzgpuinfo/examples/gpus.cpp", client)
        (client / "CMakeLists.txt").write_text(CMAKE_PROJECT, encoding="utf-8")
        bind = ["--bind", str(client), "/srv"]

        with self.subTest("CMake package"):
            self.root.run("cmake -S /srv -B /srv/build && cmake --build /srv/build", extra=bind)
            self.check_client("/srv/build/gpus", bind)
        self.check_examples(bind)
        with self.subTest("pkg-config"):
            self.check_client("/srv/gpus", bind)
        for language, name in (("python3", "gpus.py"), ("luajit", "gpus.lua")):
            with self.subTest(language):
                self.check_client(f"{language} /usr/share/doc/qzgpuinfo/examples/{name}", bind)

    def check_client(self, program, bind):
        """Says why there is nothing to read; with a companion it lists no GPU, for the root shows none."""
        missing = self.root.run(f"{program}", extra=bind, check=False)
        self.assertEqual((missing.returncode, missing.stdout),
                         (1, "there is no segment; the companion does not run\n"))
        self.assertEqual(self.with_companion(f"{program}; echo $?", extra=bind).stdout, "0\ncompanion 0\n")

    # What each example of the manual does here: how it is run (None: not here) and what it prints at the end.
    EXAMPLES = {
        "qzGpuInfo -single -v": ("{}", r"Total GPU Count: 0\n-+ END -+\n\n\n\n"),
        "qzGpuInfo -returnGPS -benchShort; echo $?": ("{}", r"Single run\.\.\.\n0\n"),
        "qzGpuInfo render": ("cp /bin/sleep render; ./render 3 & {}; echo $?",
                             r"Process 'render' does  not exist, closing\.\.\.\n0\n"),
        # Both ask a running systemd.
        "systemctl enable --now qzGpuInfo@render.service": (None, ""),
        "systemctl edit qzGpuInfo@render.service": (None, ""),
        "qzGpuStatus --wait 10": ("{}; echo $?", r"\A0 GPUs, published \d\.\d s ago\n0\n"),
        "qzGpuStatus --json | python3 -c 'import json, sys; print(len(json.load(sys.stdin)[\"gpus\"]))'":
            ("{}", r"\A0\n"),
        "qzGpuStatus --watch 0.5":
            ("timeout --preserve-status -s INT 2 {}; echo $?", r"\A(.* state=ok .* gpus=0 .*\n){3,5}0\n"),
        "qzGpuStatus --prometheus --output /var/lib/prometheus/node-exporter/qzgpuinfo.prom":
            ("{} && tail -n 1 /var/lib/prometheus/node-exporter/qzgpuinfo.prom", r"\Aqzgpuinfo_gpus 0\n"),
        # What it says of this root is not the example's matter; that it ends in order is.
        "qzGpuDoctor": ("{} > report; echo $(($? <= 2)); head -c 16 report", r"1\nno GPU installed"),
        "qzGpuDoctor --only system --user render": (None, ""),
        "qzGpuDoctor --record machine.txt":
            ("{} > report; tail -n 1 machine.txt; stat -c %a machine.txt", r"opencl = none\n600\n"),
        "(flock -w 1 9 && od -A d -t u4 -N 20 <&9) 9< /dev/shm/qzGpuInfo_v2":
            ("{}", r"\A0000000 +68865 +1 +0 +0\n0000016 +0\n0000020\n"),
        "python3 /usr/share/doc/qzgpuinfo/examples/read_segment.py": ("{}; echo $?", r"\n?0\n"),
        "cc -std=c99 gpus.c $(pkg-config --cflags --libs qzgpuinfo) -o gpus":
            ("cd /srv; {}; echo $?", r"\A0\n"),
    }

    def check_examples(self, bind):
        """All of them beside one companion, one after the other."""
        examples = [example for page in manual_pages.PAGES
                    for example in manual_pages.examples(manual_pages.installed(self.root.path / "usr", page))]
        self.assertEqual(set(examples), set(self.EXAMPLES))
        run_here = [example for example in examples if self.EXAMPLES[example][0]]
        self.assertEqual(len(run_here), 12)
        # The compiler's usual name is a choice of the machine's administrator.
        self.root.run("mkdir -p /usr/local/bin && ln -sf /usr/bin/gcc /usr/local/bin/cc", user=0)
        script = "\n".join("echo '=== next'; " + self.EXAMPLES[example][0].replace("{}", example)
                           for example in run_here)
        done = self.with_companion(script + "\necho '=== next'",
                                   extra=[*bind, "--tmpfs", "/var/lib/prometheus/node-exporter"])
        printed = done.stdout.split("=== next\n")[1:]
        self.assertEqual((len(printed), printed[-1], done.stderr), (len(run_here) + 1, "companion 0\n", ""))
        for example, text in zip(run_here, printed):
            with self.subTest(example):
                self.assertRegex(text, self.EXAMPLES[example][1] + r"\Z")

    def test_removed_and_purged(self):
        listed = fresh_root.call("dpkg-deb", "-c", deb).splitlines()
        own = {line.split(" -> ")[0].split()[-1].strip("./") for line in listed if "qz" in line}
        self.assertGreater(len(own), 15)
        self.assertLessEqual(own, self.root.files())
        calls = self.root.path / "var/log/systemctl"
        systemctl = self.root.path / "usr/local/bin/systemctl"
        systemctl.parent.mkdir(parents=True, exist_ok=True)
        systemctl.write_text('#!/bin/sh\necho "$@" >> /var/log/systemctl\n', encoding="utf-8")
        systemctl.chmod(0o755)
        self.addCleanup(systemctl.unlink)

        def calls_of(command, *extra):
            calls.unlink(missing_ok=True)
            self.root.administer(command, *extra)
            return calls.read_text(encoding="utf-8").splitlines() if calls.exists() else []
        running = ("--tmpfs", "/run", "--dir", "/run/systemd/system")
        new = ("--ro-bind", str(deb), "/tmp/new.deb")

        wants = self.root.path / "etc/systemd/system/multi-user.target.wants"
        wants.mkdir(parents=True, exist_ok=True)
        (wants / "qzGpuInfo@render.service").symlink_to("/" + UNIT)
        timer = self.root.path / "etc/systemd/system/timers.target.wants/qzGpuStatus-textfile@render.timer"
        timer.parent.mkdir(parents=True, exist_ok=True)
        timer.symlink_to("/usr/lib/systemd/system/qzGpuStatus-textfile@.timer")
        cache = self.root.path / "var/cache/qzGpuInfo-render"
        cache.mkdir(parents=True)

        self.assertEqual(calls_of("dpkg --remove qzgpuinfo", *running),
                         ["stop qzGpuInfo@*.service qzGpuStatus-textfile@*.timer qzGpuDoctor-textfile@*.timer", "daemon-reload"])
        self.assertEqual(own & self.root.files(), set())
        self.assertTrue(cache.exists() and (wants / "qzGpuInfo@render.service").is_symlink())
        # Running services change over to the new version; nothing is ever enabled or started.
        self.assertEqual(calls_of("dpkg --install /tmp/new.deb", *new, *running),
                         ["daemon-reload", "try-restart qzGpuInfo@*.service"])
        self.assertEqual(calls_of("dpkg --install /tmp/new.deb", *new, *running),
                         ["daemon-reload", "daemon-reload", "try-restart qzGpuInfo@*.service"])
        self.assertEqual(calls_of("dpkg --purge qzgpuinfo"), [])
        self.assertFalse(cache.exists() or (wants / "qzGpuInfo@render.service").is_symlink() or timer.is_symlink())
        left = {path for path in self.root.files() if "qzgpu" in path.lower()}
        self.assertEqual(left, set())
        self.assertEqual(calls_of("dpkg --install /tmp/new.deb", *new, *running), ["daemon-reload"])
        self.assertTrue((self.root.path / UNIT).stat().st_mode & stat.S_IRUSR)


if __name__ == "__main__":
    if FRESH:
        sys.argv.remove("--fresh")
    unittest.main(verbosity=2)
