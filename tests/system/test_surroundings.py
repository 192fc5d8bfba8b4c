"""Machines on which something is missing or odd: no /proc or a veiled one, few descriptors, another locale, a vendor
library that is none."""

import os
import re
import shutil
import signal
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

import qz
import simulated
from neighbours import UserSandbox
from watched import Watched

DRIVERS = Path(os.environ["QZGPUINFO_BUILD"]) / "tests/system/drivers"
SANITIZED = bool(re.search(r"^QZGPUINFO_SANITIZE:STRING=.", (qz.BUILD / "CMakeCache.txt").read_text("utf-8"),
                           re.MULTILINE))
CHECK_INTERVAL = 5.0
NO_DESCRIPTORS = ('Unable to create shared memory!; The shared memory "qzGpuInfo_v2" can\'t be created (Too many open '
                  "files). Too many open files\n")


@unittest.skipIf(SANITIZED, "a sanitizer needs /proc and additional descriptors")
class ProcessList(unittest.TestCase):
    """Watching over more than one interval, all runs side by side."""

    def begin(self, *prefix, ordinary=False, arguments=()):
        """A run behind a separate command, and what it watches."""
        sandbox = UserSandbox(ordinary)
        self.addCleanup(sandbox.close)
        watched = Watched(*sandbox.switch)
        self.addCleanup(watched.end)
        run = sandbox.start(command=[*prefix, *sandbox.switch, sandbox.program, watched.name, *arguments])
        return sandbox, run, watched

    def test_watching(self):
        mounted = ["sh", "-c", 'mount -t proc -o "$0" proc /proc && exec "$@"']
        blind, seeing, starved = [], [], []
        for ordinary in [True] + [False] * (os.geteuid() == 0):
            blind.append(self.begin_without_proc(ordinary))
            starved += [self.begin("sh", "-c", f'ulimit -n {limit} && exec "$@"', "sh", ordinary=ordinary)
                        for limit in (6, 7)]
        if os.geteuid() == 0:
            seeing = [self.begin(*mounted, f"hidepid={level}", ordinary=True) for level in (1, 2)]
        every = blind + seeing + starved
        for _, run, _ in every:
            run.wait_for(qz.CONTINUOUS)
        time.sleep(CHECK_INTERVAL + 1)
        for sandbox, run, _ in every:
            self.assertTrue(run.is_running, run.output)
            self.assertTrue(sandbox.is_ready(), run.output)
        for _, _, watched in every:
            watched.end()
        for _, run, watched in seeing:
            code, output = run.end(CHECK_INTERVAL + 2)
            self.assertEqual((code, output.splitlines()[-1]),
                             (0, f"Process '{watched.name}' does  not exist, closing..."))
        for _, run, _ in blind + starved:
            # If the check is impossible, the process does not count as gone.
            self.assertTrue(run.is_running, run.output)
            self.assertEqual(run.stop(signal.SIGTERM)[0], 0)
        for sandbox, _, _ in every:
            self.assertEqual(os.listdir(sandbox.folder), [])

    def begin_without_proc(self, ordinary):
        sandbox = UserSandbox(ordinary, no_proc=True)
        self.addCleanup(sandbox.close)
        watched = Watched()
        self.addCleanup(watched.end)
        return sandbox, sandbox.start_as_user(watched.name), watched


@unittest.skipIf(SANITIZED, "a sanitizer needs additional descriptors")
class Descriptors(qz.SandboxCase):
    def test_few(self):
        """With fewer than the segment needs the program says so; with more it works; no number ends it by a signal."""
        outcomes = {}
        for limit in range(3, 17):
            run = self.sandbox().start(shell=f'ulimit -n {limit}; exec "$0" "$@"')
            qz.wait_until(lambda run=run: qz.CONTINUOUS in run.output or not run.is_running, 10, "a start or an end")
            outcomes[limit], output = run.stop() if run.is_running else run.end()
            if outcomes[limit] == 1:
                self.assertIn(NO_DESCRIPTORS, output)
        # The dynamic loader itself needs one.
        self.assertEqual(outcomes, {3: 127, 4: 1, 5: 1, **{limit: 0 for limit in range(6, 17)}})


class Libraries(qz.SandboxCase):
    def test_of_another_architecture(self):
        sandbox = self.sandbox()
        image = bytearray(Path(qz.PROGRAM).read_bytes()[:4096])
        image[18:20] = (183).to_bytes(2, "little")
        for name in ("libnvidia-ml.so.1", "libnvidia-ml.so"):
            (sandbox.outside / name).write_bytes(image)
        self.assertEqual(sandbox.run("-single", LD_LIBRARY_PATH=str(sandbox.outside)),
                         (0, qz.SHORT_BANNER + qz.INIT + qz.NO_GPU + qz.SINGLE))

    def test_prints_and_exits_in_its_constructor(self):
        sandbox = self.sandbox()
        library = str(DRIVERS / "exiting")
        code, output = sandbox.run(LD_LIBRARY_PATH=library)
        self.assertEqual((code, output), (7, qz.LONG_BANNER + qz.INIT + qz.CREATED + "driver gives up\n"))
        self.assertEqual(sandbox.read(), bytes(qz.SIZE), "a segment as a killed program leaves it")
        # The next start takes it over, with or without that driver.
        self.assertEqual(sandbox.run(LD_LIBRARY_PATH=library)[0], 7)
        run = sandbox.start()
        run.wait_for(qz.USING_EXISTING)
        self.assertEqual(run.stop()[0], 0)
        self.assertFalse(sandbox.segment.exists())


class OnSimulatedMachines(simulated.SimulatedCase):
    def report(self, arguments, environment):
        """What the NVIDIA half of the scripted machine prints."""
        sections = simulated.description("scripted").split("\n[")
        machine = "\n[".join(section for section in sections if not section.startswith("card "))
        run = self.described(machine, environment=environment).run(*arguments)
        self.assertEqual(run.exit_code, 0)
        self.assertEqual(run.report.live, {})
        # The clock runs on; a locale could change signs and separators.
        return re.sub(r"[0-9]+", "0", run.output)

    def test_locales(self):
        if shutil.which("localedef") is None:
            self.skipTest("no localedef here (package libc-bin)")
        folder = tempfile.mkdtemp(prefix="locales-")
        self.addCleanup(shutil.rmtree, folder)
        arguments = ("-v", "-single", "-benchShort")
        plain = self.report(arguments, {"LC_ALL": "C.UTF-8"})
        self.assertIn("Speed:", plain)
        for name in ("de_DE", "tr_TR"):
            subprocess.run(["localedef", "-i", name, "-f", "UTF-8", f"{folder}/{name}.UTF-8"], check=False,
                           capture_output=True)
            environment = {"LOCPATH": folder, "LC_ALL": f"{name}.UTF-8", "LANGUAGE": name}
            point = subprocess.run(["locale", "decimal_point"], env={**os.environ, **environment},
                                   capture_output=True, text=True, check=False).stdout
            if point != ",\n":
                self.skipTest(f"no sources of the locale {name} here (package locales)")
            with self.subTest(name):
                self.assertEqual(self.report(arguments, environment), plain)

    @unittest.skipIf(SANITIZED, "a sanitizer takes more address space than any limit leaves")
    def test_less_memory_than_the_benchmark_needs(self):
        """Two arrays of 512 MiB each: with room for none or for one of them the score is 0, and the rest is there."""
        for megabytes in (500, 900):
            with self.subTest(megabytes=megabytes):
                wrap = ["prlimit", f"--as={megabytes << 20}"]
                run = self.simulation("scripted", wrap=wrap).run("-v", "-returnGPS")
                lines = self.lines(run)
                self.assertEqual(run.exit_code, 0, lines)
                self.assertEqual(lines.count("    GpuBenchmarkOpenCL: malloc failed"), 2, lines)
                self.assertIn("    #0 : Gpu Usage:      10 %", lines)
                self.assertEqual(run.report.live, {})


if __name__ == "__main__":
    qz.main()
