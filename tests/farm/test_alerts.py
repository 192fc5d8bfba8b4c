"""Each alert for real: a simulated machine with a fault, its companion, the file for node_exporter, Prometheus, and the
alert that fires. All faults are in one farm, and the rules' durations are a sixtieth."""

import re
import time
import unittest
from concurrent.futures import ThreadPoolExecutor

import qz
from prometheus_server import missing_programs
from qz import wait_until
from simulated_farm import RULES, Farm

FACTOR = 60
MODEL = "NVIDIA Scripted"


def machine(temperature=50, gpus=2, compute="8.9", round_ms=50, name=MODEL):
    """A node with NVIDIA GPUs whose benchmark's rounds take that long."""
    return f"""
[machine]
fast_random = yes
[nvidia]
count = {gpus}
name = {name}
bus = 0x01
compute = {compute}
utilisation = 10
temperature = {temperature}
memory_total = 8GiB
memory_used = 1GiB
[opencl]
mode = scripted
round_ms = {round_ms}, {round_ms}, ...
sleep = no
results = 1.5, 2.5, 3.5, 4.5
[platform]
name = Scripted OpenCL
[device]
count = {gpus}
name = {name}
nv_bus = 0x01
"""


# The bus has the card, and no driver has made its entries.
DRIVERLESS = """
[card card0]
address = 0000:83:00.0
vendor = 0x1002
"""
LOST = [f"nvmlDeviceGet{what}#1 = fail 15 from 2" for what in ("UtilizationRates", "Temperature", "MemoryInfo")]
MACHINES = {
    "calm": machine(), "restarted": machine(), "third": machine(), "dead": machine(), "hung": machine(),
    "lost": machine(), "fewer": machine(), "hot": machine(temperature="50, 50, 50, 95"), "slow": machine(round_ms=80),
    "old": machine(), "incapable": machine(), "driverless": DRIVERLESS,
}
SCORED = ("calm", "restarted", "third", "slow")
EXPECTED = {
    ("QzGpuInfoNoCompanion", "dead"), ("QzGpuInfoCompanionHangs", "hung"), ("QzGpuInfoGpuLost", "lost"),
    ("QzGpuInfoFewerGpus", "fewer"), ("QzGpuInfoTooHot", "hot"), ("QzGpuInfoSlow", "slow"), ("QzGpuInfoFileOld", "old"),
    ("QzGpuInfoCapabilityLost", "incapable"), ("QzGpuInfoNotListed", "driverless"),
}


class EachAlert(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        missing = missing_programs()
        if missing:
            raise unittest.SkipTest("not on this machine: " + ", ".join(missing))
        cls.began = time.monotonic()
        cls.farm = Farm(MACHINES, FACTOR, seconds=0.5)
        cls.addClassCleanup(cls.farm.close)

    def test_each_fires_on_its_node_and_on_no_other(self):
        farm, nodes = self.farm, self.farm.nodes
        for node in nodes.values():
            faults = LOST if node.name == "lost" else ["nvmlDeviceGetTemperature = hang at 7"] if node.name == "hung" else []
            node.start(faults=faults)
        farm.start()
        with ThreadPoolExecutor() as pool:
            tasks = [pool.submit(nodes[name].measure) for name in SCORED]
            tasks += [pool.submit(nodes[name].examine) for name in ("calm", "driverless")]
        for task in tasks:
            task.result()
        # What the alerts that look back compare with.
        wait_until(lambda: len(farm.query("qzgpuinfo:gpus:max_10m == 2")) >= len(MACHINES) - 3, 100, "a history")
        wait_until(lambda: len(farm.query('qzgpuinfo:node_capability:max_10m{capability="optix"}')) >= len(MACHINES) - 3,
                   100, "a history of capabilities")
        nodes["dead"].kill()
        nodes["old"].writes = False
        for name in ("restarted", "fewer", "incapable"):
            nodes[name].stop()
        nodes["restarted"].start()
        nodes["fewer"].start(machine=machine(gpus=1))
        nodes["incapable"].start(machine=machine(compute="7.0"))

        seen = set()
        deadline = self.began + 240
        while not seen >= EXPECTED and time.monotonic() < deadline:
            seen |= farm.firing()
            time.sleep(0.5)
        self.assertEqual(EXPECTED - seen, set())
        self.check_texts()
        ever = {(labels["alertname"], labels["instance"]) for labels, _ in farm.query(
            'count by (alertname, instance) (count_over_time(ALERTS{alertstate="firing"}[10m]))')}
        # A machine that was too busy to write a file in time has shown that alert rightly.
        if farm.longest_gap > 1.5:
            ever = {pair for pair in ever if pair[0] != "QzGpuInfoFileOld" or pair in EXPECTED}
        # A start takes as long as ever, and five minutes are five seconds here.
        ever -= {(f"QzGpuInfo{alert}", name) for alert in ("CompanionHangs", "NoCompanion")
                 for name in ("restarted", "fewer", "incapable")}
        self.assertEqual(ever, EXPECTED)

        # What was repaired no longer fires.
        nodes["dead"].start()
        nodes["old"].writes = True
        repaired = {pair for pair in EXPECTED if pair[1] in ("dead", "old")}
        wait_until(lambda: not repaired & farm.firing(), 60, "the end of what was repaired")
        self.assertLess(time.monotonic() - self.began, 300)

    def check_texts(self):
        """Every summary names its node and has its figures."""
        told = {}
        for alert in self.farm.alerts():
            if alert["state"] == "firing":
                told[alert["labels"]["alertname"]] = alert["annotations"]
                self.assertNotIn("error", alert["annotations"]["summary"].lower())
                self.assertIn(alert["labels"]["instance"], alert["annotations"]["summary"])
        for name, figure in (("Slow", r"39\.\d+% of"), ("TooHot", "is at 95 degrees"), ("FewerGpus", ": 1 GPUs"),
                             ("GpuLost", r"GPU 1 \(Cuda-1\)"), ("NotListed", "1 AMD"), ("CapabilityLost", "optix")):
            self.assertRegex(told["QzGpuInfo" + name]["summary"], figure)

    def test_rules_are_those_that_are_installed(self):
        self.assertEqual(sorted({name for name, _ in EXPECTED}), sorted(set(
            re.findall(r"- alert: (\w+)", (RULES / "qzgpuinfo.yml").read_text(encoding="utf-8")))))


if __name__ == "__main__":
    qz.main()
