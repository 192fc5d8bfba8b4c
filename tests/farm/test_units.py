"""systemd's units for a farm: systemd accepts them, and their command lines do what they are for. systemd itself does
not run here."""

import getpass
import re
import shlex
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

import exposition
import qz
import simulated
from qz import BUILD, SOURCE
from simulated import SimulatedCase
from test_alerts import machine

UNITS = SOURCE / "packaging/units"
LIBEXEC = "/usr/libexec/qzgpuinfo"
USER = getpass.getuser()
FILES = {"qzgpuinfo.prom": "qzGpuStatus-textfile@.service", "qzgpuinfo-doctor.prom": "qzGpuDoctor-textfile@.service",
         "qzgpuinfo-score.prom": "qzGpuInfo-score@.service"}


def values(unit, key):
    """The values of a key, in the order of the unit's file."""
    return re.findall(rf"^{key}=(.*)$", (UNITS / unit).read_text(encoding="utf-8"), re.MULTILINE)


class Accepted(unittest.TestCase):
    def test_by_systemd(self):
        if shutil.which("systemd-analyze") is None:
            self.skipTest("not on this machine: systemd-analyze")
        with tempfile.TemporaryDirectory(prefix="qzTest-") as folder:
            root = Path(folder)
            for program in ("/usr/bin/qzGpuInfo", "/usr/bin/qzGpuStatus", "/usr/bin/qzGpuDoctor", LIBEXEC + "/score", "/bin/sh"):
                path = root / program[1:]
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text("#!/bin/sh\n", encoding="ascii")
                path.chmod(0o755)
            system = root / "usr/lib/systemd/system"
            system.mkdir(parents=True)
            host = Path("/usr/lib/systemd/system")
            for name in ("basic", "sysinit", "shutdown", "timers", "multi-user", "time-set", "time-sync", "nss-user-lookup"):
                shutil.copy(host / f"{name}.target", system)
            for path in UNITS.iterdir():
                text = path.read_text(encoding="utf-8").replace("@QZGPUINFO_LIBEXEC_DIR@", LIBEXEC)
                (system / path.name).write_text(text, encoding="utf-8")
            for path in sorted(UNITS.iterdir()):
                with self.subTest(path.name):
                    done = subprocess.run(
                        ["systemd-analyze", f"--root={root}", "--man=no", "--recursive-errors=no", "verify",
                         path.name.replace("@", "@render")], capture_output=True, text=True, timeout=60, check=False)
                    self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""))

    def test_calendars(self):
        if shutil.which("systemd-analyze") is None:
            self.skipTest("not on this machine: systemd-analyze")
        for timer, seconds in (("qzGpuStatus-textfile@.timer", 15), ("qzGpuDoctor-textfile@.timer", 86400)):
            calendar, = values(timer, "OnCalendar")
            done = subprocess.run(["systemd-analyze", "calendar", "--iterations=3", "--base-time=2026-01-01 12:00 UTC", calendar],
                                  capture_output=True, text=True, timeout=60, check=True, env={"TZ": "UTC", "PATH": "/usr/bin:/bin"})
            hours = [sum(int(part) * factor for part, factor in zip(time.split(":"), (3600, 60, 1))) for time in
                     re.findall(r"(?:Next elapse|Iteration #\d|Iter\. #\d): \w+ \S+ (\S+) UTC", done.stdout)]
            self.assertEqual({(later - earlier) % 86400 for earlier, later in zip(hours, hours[1:])}, {seconds % 86400},
                             done.stdout)

    def test_off_quiet_and_confined(self):
        for name, unit in FILES.items():
            with self.subTest(unit):
                self.assertEqual(values(unit, "Environment")[0], "QZGPUINFO_TEXTFILES=/var/lib/prometheus/node-exporter")
                self.assertEqual(values(unit, "ReadWritePaths"), ["/var/lib/prometheus/node-exporter"])
                self.assertEqual(values(unit, "ProtectSystem"), ["strict"])
                self.assertIn("CAP_DAC_READ_SEARCH", values(unit, "CapabilityBoundingSet")[0].split())
                self.assertEqual(values(unit, "User"), [], name)
        self.assertEqual(values("qzGpuStatus-textfile@.service", "CapabilityBoundingSet"), ["CAP_DAC_READ_SEARCH"])
        # systemd's own lines about a unit's runs have the level "info".
        self.assertEqual(values("qzGpuStatus-textfile@.service", "LogLevelMax"), ["notice"])
        self.assertEqual(values("qzGpuStatus-textfile@.timer", "AccuracySec"), ["1s"])
        self.assertEqual(values("qzGpuInfo-score@.service", "TemporaryFileSystem"), ["/dev/shm:mode=1777"])


class CommandLines(SimulatedCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="qzTest-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        shm = tempfile.TemporaryDirectory(prefix="qzTest-", dir="/dev/shm")
        self.addCleanup(shm.cleanup)
        self.shm = Path(shm.name)

    def run_line(self, unit, key="ExecStart", shm=None):
        """Runs a unit's command as systemd would; its exit code. Without `shm`, in a /dev/shm of its own."""
        line, = values(unit, key)
        line = (line.replace("%i", USER).replace("${QZGPUINFO_TEXTFILES}", str(self.folder))
                .replace("@QZGPUINFO_LIBEXEC_DIR@/score", str(SOURCE / "packaging/score")))
        program, *arguments = shlex.split(line)
        run = self.described(machine(), program=program if "/" in program else BUILD / program, shm=shm).run(*arguments, timeout=100)
        self.assertEqual((run.output, run.errors), ("", ""))
        return run.exit_code

    def families(self, name):
        return exposition.parse((self.folder / name).read_bytes())

    def test_each_writes_its_file_and_no_metric_is_in_two(self):
        companion = self.described(machine(), shm=self.shm).start()
        qz.wait_until(lambda: self.run_line(FILES["qzgpuinfo.prom"], shm=self.shm) == 0, 60, "a list")
        self.assertIn(self.run_line(FILES["qzgpuinfo-doctor.prom"], shm=self.shm), (0, 1, 2))
        self.assertEqual(self.run_line(FILES["qzgpuinfo-score.prom"]), 0)
        self.assertTrue(companion.is_running)
        self.assertEqual({path.name for path in self.folder.iterdir()}, set(FILES))
        every = [name for file in FILES for name in self.families(file)]
        self.assertEqual(len(every), len(set(every)))
        for file in FILES:
            self.assertEqual((self.folder / file).stat().st_mode & 0o777, 0o644)
            if shutil.which("promtool"):
                done = subprocess.run(["promtool", "check", "metrics"], input=(self.folder / file).read_bytes(),
                                      capture_output=True, timeout=60, check=False)
                self.assertEqual((done.returncode, done.stdout, done.stderr), (0, b"", b""), file)
        scores = self.families("qzgpuinfo-score.prom")
        self.assertEqual([labels["gpu"] + labels["name"] for labels, _ in scores["qzgpuinfo_score_gps"]["series"]],
                         ["0NVIDIA Scripted", "1NVIDIA Scripted"])
        self.assertGreater(scores["qzgpuinfo_score_timestamp_seconds"]["series"][0][1], 1.7e9)
        self.assertEqual(self.families("qzgpuinfo.prom")["qzgpuinfo_up"]["series"], [({}, 1)])

    def test_without_a_companion(self):
        code = self.run_line(FILES["qzgpuinfo.prom"])
        self.assertIn(str(code), values(FILES["qzgpuinfo.prom"], "SuccessExitStatus")[0].split())
        self.assertEqual(self.families("qzgpuinfo.prom")["qzgpuinfo_up"]["series"], [({}, 0)])

    def test_no_examination_while_a_companion_measures(self):
        unit = FILES["qzgpuinfo-doctor.prom"]
        self.assertEqual(self.run_line(unit, "ExecCondition"), 0)
        # Its first round takes so long that it measures until the end of the test.
        self.described(machine().replace("sleep = no\n", ""), shm=self.shm).start("-bench")
        qz.wait_until(lambda: self.run_line(unit, "ExecCondition", shm=self.shm) == 1, 60, "a measuring companion")

    def test_a_score_of_a_companion_that_ends(self):
        line = [str(SOURCE / "packaging/score"), USER, str(self.folder)]
        run = self.described(machine(), ["nvmlInit_v2 = crash"], program=line[0]).run(*line[1:], timeout=60)
        self.assertEqual((run.exit_code, run.errors.splitlines()[-1]), (1, "score: the companion ended without a list"))
        self.assertEqual(list(self.folder.iterdir()), [])


if __name__ == "__main__":
    simulated.main()
