"""`./dev demo farm`: its pages, its alert, and that it leaves nothing behind."""

import os
import re
import signal
import subprocess
import sys
import tempfile
import unittest
import urllib.request
from pathlib import Path

import qz
from prometheus_server import missing_programs

class Demo(unittest.TestCase):
    def setUp(self):
        missing = missing_programs()
        if missing:
            self.skipTest("not on this machine: " + ", ".join(missing))

    def test_from_its_start_to_ctrl_c(self):
        folder = tempfile.TemporaryDirectory(prefix="qzTest-")
        self.addCleanup(folder.cleanup)
        environment = {**os.environ, "QZ_DEMO_SECONDS": "8", "TMPDIR": folder.name}
        # pylint: disable-next=consider-using-with
        demo = subprocess.Popen([sys.executable, str(qz.SOURCE / "tests/farm/demo")], stdout=subprocess.PIPE, text=True,
                                start_new_session=True, env=environment)
        self.addCleanup(demo.stdout.close)
        self.addCleanup(demo.kill)
        address = re.match(r"Open (http://127\.0\.0\.1:\d+/\S+)\n", demo.stdout.readline())[1]
        self.assertIn("In 8 s ", demo.stdout.readline())
        # The first line after the greeting is the alert.
        self.assertEqual(demo.stdout.readline(), "fires: QzGpuInfoGpuLost on node2\n")
        with urllib.request.urlopen(address, timeout=20) as answer:
            page = answer.read().decode("utf-8")
            self.assertEqual(answer.headers.get_content_type(), "text/html")
        self.assertEqual(sorted(re.findall(r"instance=(\w+)\"", page)), [f"node{i}" for i in range(1, 6)])
        self.assertLess(page.index("GpuLost"), page.index("node1"))
        os.killpg(demo.pid, signal.SIGINT)  # as a terminal does
        rest, _ = demo.communicate(timeout=60)
        self.assertEqual((demo.returncode, rest.splitlines()[-1]), (0, "Nothing is left behind."))
        self.assertEqual(list(Path(folder.name).iterdir()), [])
        self.assertEqual(list(Path("/dev/shm").glob(f"qzFarm-{demo.pid}-*")), [])
        running = subprocess.run(["ps", "-eo", "args="], capture_output=True, text=True, check=True).stdout
        self.assertNotIn(folder.name, running)


if __name__ == "__main__":
    qz.main()
