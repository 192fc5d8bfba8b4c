"""The demonstration: a companion on a simulated machine and the live view of it, in one terminal."""

import json
import os
import pty
import select
import signal
import subprocess
import tempfile
import time
from pathlib import Path

import simulated
from qz import wait_until
from simulated import BUILD, SOURCE, SimulatedCase

DEMO = [str(SOURCE / "simulator/demo"), "--build", str(BUILD)]
MACHINE = SOURCE / "simulator/machines/demo.machine"


def processes_in(folder):
    """Those whose command line or environment names the folder."""
    found = []
    for entry in filter(str.isdigit, os.listdir("/proc")):
        try:
            text = Path(f"/proc/{entry}/cmdline").read_bytes() + Path(f"/proc/{entry}/environ").read_bytes()
        except OSError:
            continue
        if os.fsencode(folder) in text and int(entry) != os.getpid():
            found.append(int(entry))
    return found


class OnATerminal:
    """The demonstration on a terminal of its own, its temporary files in a folder of its own."""

    def __init__(self, folder, *arguments):
        self.output = b""
        self.pid, self.master = pty.fork()
        if self.pid == 0:
            os.environ.update(TERM="xterm", TMPDIR=folder)
            os.execv(DEMO[0], [*DEMO, *arguments])

    def read(self, seconds):
        """Takes in what comes within the time; False at the end of the output."""
        if not select.select([self.master], [], [], seconds)[0]:
            return True
        try:
            data = os.read(self.master, 65536)
        except OSError:
            data = b""
        self.output += data
        return data != b""

    def wait_for(self, *words, seconds=30):
        deadline = time.monotonic() + seconds
        while not all(word in self.output for word in words):
            assert self.read(0.2) and time.monotonic() < deadline, self.output[:2000]

    def end(self):
        deadline = time.monotonic() + 30
        while self.read(0.2):
            assert time.monotonic() < deadline, self.output
        _, status = os.waitpid(self.pid, 0)
        self.pid = 0
        return os.waitstatus_to_exitcode(status)

    def close(self):
        if self.pid:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
        os.close(self.master)


class Demonstration(SimulatedCase):
    def setUp(self):
        self.simulation("no-gpu").close()
        folder = tempfile.TemporaryDirectory(prefix="qzsim-test-demo-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def shown(self, *arguments):
        terminal = OnATerminal(self.folder, *arguments)
        self.addCleanup(terminal.close)
        return terminal

    def assert_nothing_is_left(self):
        self.assertEqual(os.listdir(self.folder), [])
        wait_until(lambda: not processes_in(self.folder))

    def test_all_gpus_are_shown_and_ctrl_c_ends_everything(self):
        terminal = self.shown()
        terminal.wait_for(b"L40S", b"RTX A5000", b"A40", b"L4", b"W7900", b"RX 7800 XT")
        # The view, the companion, and what lays the machine around it.
        self.assertGreater(len(processes_in(self.folder)), 2)
        self.assertEqual(len(os.listdir(self.folder)), 2)
        os.write(terminal.master, b"\x03")
        self.assertEqual(terminal.end(), 0)
        self.assert_nothing_is_left()

    def test_q_ends_everything(self):
        terminal = self.shown("workstation")
        terminal.wait_for(b"Cuda-0")
        os.write(terminal.master, b"q")
        self.assertEqual(terminal.end(), 0)
        self.assert_nothing_is_left()

    def test_a_signal_to_it_alone(self):
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            with self.subTest(number=number):
                terminal = self.shown("workstation")
                terminal.wait_for(b"Cuda-0")
                os.kill(terminal.pid, number)
                self.assertEqual(terminal.end(), 0)
                self.assert_nothing_is_left()

    def test_a_reader_that_goes_away(self):
        """The view's output cannot be written any more, which ends it, and everything with it."""
        process = subprocess.Popen([*DEMO, "workstation"], env={**os.environ, "TMPDIR": self.folder},
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        with process:
            self.assertIn(b"RTX 4090", process.stdout.readline())
            process.stdout.close()
            self.assertNotEqual(process.wait(30), 125)
            self.assertNotIn(b"Traceback", process.stderr.read())
        self.assert_nothing_is_left()

    def test_what_cannot_be_simulated(self):
        run = subprocess.run([*DEMO, "no-such-machine"], capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual((run.returncode, run.stdout), (125, ""))
        self.assertIn("demo: no-such-machine: neither a file nor one of the machines", run.stderr)

    def test_its_machine(self):
        """One GPU runs hot; another is lost at the sixteenth reading, a minute after the first."""
        text = MACHINE.read_text("utf-8")
        [faults] = text.split("[faults]\n")[1:]
        self.assertEqual({line.split(" = ")[1] for line in faults.splitlines()}, {"fail 15 from 16"})
        sooner = text.replace("from 16", "from 2")
        shared = Path(self.folder) / "shm"
        run = self.described(sooner, shm=shared).start()

        def temperatures():
            shown = subprocess.run([BUILD / "qzGpuStatus", "--json", "--directory", shared, "--wait", "30"],
                                   capture_output=True, text=True, timeout=60, check=False)
            return {gpu["name"].split()[-1]: gpu["temperatureCelsius"] for gpu in json.loads(shown.stdout)["gpus"]}
        first = temperatures()
        self.assertEqual((len(first), first["L4"]), (6, 68))
        wait_until(lambda: temperatures()["L4"] is None)
        later = temperatures()
        self.assertEqual([name for name, value in later.items() if value is None], ["L4"])
        self.assertGreater(max(value for value in later.values() if value is not None), 80)
        run.stop()


if __name__ == "__main__":
    simulated.main()
