"""The .rpm package: what is in it and what it asks for, and that rpm installs, upgrades and removes it in a root where
it is the only one. No machine of that family is needed, or has been seen."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

import fresh_root

SOURCE = Path(os.environ["QZGPUINFO_SOURCE"])
BUILD = Path(os.environ["QZGPUINFO_BUILD"])
TOOLS = ("rpm", "rpmbuild", "rpmlint", "bwrap", "pkg-config", "dpkg")
# The oldest system that it has to run on: what each library there has.
NEWEST = {"GLIBC": "2.34", "GLIBCXX": "3.4.29", "CXXABI": "1.3.13", "GCC": "11", "Qt": "5.15"}

scratch = package = None


def setUpModule():
    global scratch, package
    missing = [tool for tool in TOOLS if shutil.which(tool) is None]
    if missing:
        raise unittest.SkipTest("not on this machine: " + ", ".join(missing))
    scratch = Path(tempfile.mkdtemp(prefix="rpm-", dir=BUILD))
    scratch.chmod(0o755)
    unittest.addModuleCleanup(shutil.rmtree, scratch, ignore_errors=True)
    package = make_package("first")


def make_package(folder):
    said = fresh_root.call(SOURCE / "packaging/run", "--rpm", "--output", scratch / folder,
                           env={**os.environ, "QZGPUINFO_BUILD": str(BUILD)})
    return Path(said.strip())


def ask(*arguments):
    # The system's own database, even an absent one, is closed to ordinary users.
    return fresh_root.call("rpm", "--dbpath", scratch / "database", "--query", "--package", *arguments,
                           package).splitlines()


class Contents(unittest.TestCase):
    def test_rpmlint_has_nothing_to_say(self):
        said = fresh_root.call("rpmlint", "--strict", "--config", SOURCE / "packaging/rpm/rpmlint.toml", package)
        self.assertIn("0 errors, 0 warnings", said)

    def test_each_exception_for_rpmlint_has_its_reason(self):
        text = (SOURCE / "packaging/rpm/rpmlint.toml").read_text(encoding="utf-8")
        filters = re.search(r"^Filters = \[\n(.*)^\]$", text, re.MULTILINE | re.DOTALL)[1]
        self.assertRegex(filters, r"\A(    # .*\n    '.*',\n)+\Z")

    def test_header(self):
        version = fresh_root.call(BUILD / "qzGpuStatus", "--version").split()[1]
        tags = "%{NAME}|%{VERSION}|%{RELEASE}|%{ARCH}|%{LICENSE}|%{VENDOR}|%{BUILDHOST}"
        self.assertEqual(ask("--queryformat", tags), [
            f"qzgpuinfo|{version}|1|x86_64|LicenseRef-all-rights-reserved|qzGpuInfo developers|localhost"])
        self.assertEqual(package.name, f"qzgpuinfo-{version}-1.x86_64.rpm")
        self.assertEqual(ask("--recommends"), ["libOpenCL.so.1()(64bit)"])
        self.assertEqual(ask("--licensefiles"), ["/usr/share/doc/qzgpuinfo/copyright"])
        self.assertIn(f"<developers@qzgpuinfo.invalid> - {version}-1", ask("--changelog")[0])

    def test_provides_the_library(self):
        self.assertLessEqual({"libqzgpuinfo.so.1()(64bit)", "libqzgpuinfo.so.1(QZGPUINFO_1)(64bit)"}, set(ask("--provides")))

    def test_depends_on_libraries_by_their_names(self):
        others = {"/bin/bash", "/bin/sh", "rtld(GNU_HASH)"}
        needed = {line for line in ask("--requires") if not line.startswith("rpmlib(")} - others
        libraries = {re.fullmatch(r"((?:lib|ld-)[\w+.-]+)\((\w[\w.]*)?\)\(64bit\)", line)[1] for line in needed}
        self.assertEqual(libraries, {"ld-linux-x86-64.so.2", "libQt5Core.so.5", "libc.so.6", "libgcc_s.so.1", "libm.so.6",
                                     "libncursesw.so.6", "libstdc++.so.6", "libtinfo.so.6"})
        # Fedora's ncurses has no versions of symbols.
        self.assertEqual([line for line in needed if "NCURSES" in line], [])

    def test_needs_no_newer_libraries(self):
        def number(text):
            return [int(part) for part in text.split(".")]
        versions = re.findall(r"\((\w+?)_([\d.]+)\)", "\n".join(ask("--requires")))
        self.assertEqual({kind for kind, _ in versions}, set(NEWEST))
        self.assertEqual([version for version in versions if number(version[1]) > number(NEWEST[version[0]])], [])

    def test_files_are_those_of_an_installation(self):
        prefix = scratch / "prefix"
        fresh_root.call("cmake", "--install", BUILD, "--prefix", prefix)
        installed = {str(path.relative_to(prefix)) for path in prefix.rglob("*") if not path.is_dir()}
        moved = {re.sub(r"^lib/(?!systemd/)", "lib64/", path) for path in installed}
        self.assertNotEqual(installed, moved)
        folders = {line.split()[-1] for line in ask("--list", "--verbose") if line.startswith("d")}
        self.assertEqual(set(ask("--list")) - folders, {f"/usr/{path}" for path in moved})
        # Folders of other packages are left to those.
        self.assertEqual({folder for folder in folders if "/qzgpuinfo" not in folder},
                         {"/usr/lib64/cmake/qzGpuInfoReader"})

    def test_rights_and_owners(self):
        for line in ask("--list", "--verbose"):
            rights, _, user, group, *_, path = line.split()
            if rights.startswith("l"):
                continue
            with self.subTest(path):
                program = rights.startswith("d") or path.startswith(("/usr/bin/", "/usr/libexec/", "/usr/lib64/libqzgpuinfo.so"))
                self.assertEqual((rights[1:], user, group), ("rwxr-xr-x" if program else "rw-r--r--", "root", "root"))

    def test_the_same_tree_gives_the_same_package(self):
        self.assertEqual(make_package("second").read_bytes(), package.read_bytes())


class Installed(unittest.TestCase):
    """rpm's database is empty before; the libraries themselves come from this machine's packages."""

    @classmethod
    def setUpClass(cls):
        cls.root = fresh_root.PackagesRoot(scratch / "root")
        cls.root.add(["libc6", "libgcc-s1", "libncursesw6", "libqt5core5a", "libstdc++6", "libtinfo6"])
        systemctl = cls.root.path / "usr/bin/systemctl"
        systemctl.write_text('#!/bin/sh\necho "$@" >> /var/log/systemctl\n', encoding="utf-8")
        systemctl.chmod(0o755)
        (cls.root.path / "run/systemd/system").mkdir(parents=True)

    def rpm(self, *arguments):
        """Runs rpm on the root; returns what its scripts asked of systemd."""
        calls = self.root.path / "var/log/systemctl"
        calls.unlink(missing_ok=True)
        done = subprocess.run(["bwrap", "--unshare-user", "--uid", "0", "--gid", "0", "--cap-add", "ALL", "--dev-bind",
                               "/", "/", "rpm", "--root", self.root.path, "--dbpath", "/var/lib/rpm", *arguments],
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=100, check=False)
        # rpm also warns of what it misses in a sandbox, and Debian's of its use.
        said = [line for line in done.stderr.splitlines() if re.search("error|scriptlet|qzgpuinfo", line)]
        self.assertEqual((done.returncode, said, done.stdout), (0, [], ""))
        return calls.read_text(encoding="utf-8").splitlines() if calls.exists() else []

    def test_installed_upgraded_and_removed(self):
        before = self.root.files()
        self.assertEqual(self.rpm("--install", "--nodeps", package), ["daemon-reload"])
        self.rpm("--verify", "--nodeps", "qzgpuinfo")
        with self.subTest("programs"):
            done = self.root.run("qzGpuInfo > /dev/null & qzGpuStatus --wait 20; echo $?; kill $!; wait $!; echo $?")
            self.assertRegex(done.stdout, r"\A0 GPUs, .*\n0\n0\n\Z")
        with self.subTest("library"):
            self.check_library()
        # Running services change over to the new version; nothing is ever enabled or started.
        self.assertEqual(self.rpm("--reinstall", "--nodeps", package),
                         ["daemon-reload", "daemon-reload", "try-restart qzGpuInfo@*.service"])
        self.assertEqual(self.rpm("--erase", "qzgpuinfo"), [
            "stop qzGpuInfo@*.service qzGpuStatus-textfile@*.timer qzGpuDoctor-textfile@*.timer", "daemon-reload"])
        self.assertEqual({path for path in self.root.files() - before if "qzgpu" in path.lower()}, set())

    def check_library(self):
        """Both are found in lib64 by both of their descriptions."""
        folder = self.root.path / "usr/lib64"
        project = scratch / "project"
        project.mkdir()
        for package_name, target, file in (("qzGpuInfoReader", "qzgpureader", "libqzgpureader.a"),
                                           ("qzgpuinfo", "qzgpuinfo", "libqzgpuinfo.so.1.0.0")):
            flags = fresh_root.call("pkg-config", "--cflags", "--libs", package_name,
                                    env={**os.environ, "PKG_CONFIG_PATH": str(folder / "pkgconfig")}).split()
            found = {Path(flag[2:]).resolve() for flag in flags if flag[:2] == "-L"}
            headers = [Path(flag[2:]).resolve() for flag in flags if flag[:2] == "-I"]
            self.assertEqual((found, headers[0]), ({folder.resolve()}, folder.parent.resolve() / "include"))
            self.assertTrue((folder / file).exists())
            (project / "CMakeLists.txt").write_text(
                f"cmake_minimum_required(VERSION 3.16)\nproject(outside LANGUAGES CXX)\nfind_package({package_name} REQUIRED)\n"
                f"get_target_property(location {package_name}::{target} LOCATION)\nmessage(STATUS \"at ${{location}}\")\n",
                encoding="utf-8")
            said = fresh_root.call("cmake", "-S", project, "-B", project / package_name,
                                   f"-D{package_name}_DIR={folder}/cmake/{package_name}")
            self.assertIn(f"at {folder}/{file}\n", said)


if __name__ == "__main__":
    unittest.main(verbosity=2)
