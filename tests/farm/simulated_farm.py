"""A farm of simulated nodes: on each a companion, what its timers would run, and a real node_exporter; one real
Prometheus scrapes them. Everything is on the loopback interface and in one folder."""

import getpass
import json
import os
import re
import shutil
import subprocess
import tempfile
import threading
import time
import urllib.parse
from pathlib import Path

from prometheus_server import Server
from qz import BUILD, PROGRAM, SOURCE
from qzsim import Simulation

RULES = SOURCE / "farm/prometheus"
UNIT_SECONDS = {"s": 1, "m": 60, "h": 3600, "d": 86400, "w": 604800}
DURATION = re.compile(r"(?<=for: |val: |....\[)(\d+)([smhdw])\b")


def hastened(rules, factor):
    """The text of rules with every duration divided by the factor."""
    return DURATION.sub(lambda found: f"{int(found[1]) * UNIT_SECONDS[found[2]] * 1000 // factor}ms", rules)


class Node:
    """A machine of the farm. `machine` is the text of its description, or the name of one of the simulator's list."""

    def __init__(self, name, machine, folder):
        self.name, self.folder = name, folder
        self.textfiles = folder / "textfiles"
        self.textfiles.mkdir(parents=True)
        self.file = self.textfiles / "qzgpuinfo.prom"
        self._shm = Path(tempfile.mkdtemp(prefix=f"qzFarm-{os.getpid()}-", dir="/dev/shm"))
        self._simulations = []
        self._machine, self._count = machine, 0
        self.writes = True
        self.companion = None
        self.exporter = Server(folder / "node_exporter.log", "prometheus-node-exporter", "--collector.disable-defaults",
                               "--collector.textfile", f"--collector.textfile.directory={self.textfiles}")

    def _simulation(self, program, shm, faults=(), machine=None):
        text = machine or self._machine
        if "\n" in text:
            self._count += 1
            path = self.folder / f"{self._count}.machine"
            path.write_text(text, encoding="utf-8")
            text = str(path)
        self._simulations.append(Simulation(text, BUILD, program=program, shm=shm, faults=faults))
        return self._simulations[-1]

    def start(self, *arguments, faults=(), machine=None):
        """Starts the companion, or another one on a machine that has changed."""
        if machine:
            self._machine = machine
        log = (self.folder / "companion.log").open("ab")
        self.companion = self._simulation(PROGRAM, self._shm, faults).start(*arguments, stdout=log, stderr=log)
        log.close()

    def stop(self):
        self.companion.stop()

    def kill(self):
        self.companion.kill()

    def write(self):
        """What the timer of qzGpuStatus-textfile@ runs."""
        return subprocess.run([str(BUILD / "qzGpuStatus"), "--directory", str(self._shm), "--prometheus", "--output",
                               str(self.file)], stdin=subprocess.DEVNULL, timeout=60, check=False).returncode

    def examine(self):
        """What the timer of qzGpuDoctor-textfile@ runs."""
        run = self._simulation(BUILD / "qzGpuDoctor", None).run("--prometheus", timeout=120)
        (self.textfiles / "qzgpuinfo-doctor.prom").write_text(run.output, encoding="utf-8")

    def measure(self):
        """What qzGpuInfo-score@ runs, in a /dev/shm of its own."""
        run = self._simulation(SOURCE / "packaging/score", None).run(getpass.getuser(), str(self.textfiles), timeout=120)
        if run.exit_code != 0:
            raise AssertionError(f"score ended with {run.exit_code}: {run.output}{run.errors}")

    def close(self):
        for simulation in self._simulations:
            simulation.close()
        self.exporter.end()
        shutil.rmtree(self._shm, ignore_errors=True)


class Farm:
    """`machines`: {node: machine}. Use it as a context manager. `factor` divides the rules' durations; `seconds` lie
    between two scrapes, evaluations and writings of a node's file."""

    def __init__(self, machines, factor=1, seconds=1.0):
        self._folder = Path(tempfile.mkdtemp(prefix="qzFarm-"))
        self._seconds = seconds
        self.nodes, self._prometheus, self._writer = {}, None, None
        self._ending = threading.Event()
        self.longest_gap = 0.0
        try:
            for name, machine in machines.items():
                self.nodes[name] = Node(name, machine, self._folder / name)
            self._prometheus = self._start_prometheus(factor)
        except BaseException:
            self.close()
            raise

    def _start_prometheus(self, factor):
        for path in RULES.glob("*.yml"):
            (self._folder / path.name).write_text(hastened(path.read_text("utf-8"), factor), encoding="utf-8")
        step = f"{int(self._seconds * 1000)}ms"
        configuration = {
            "global": {"scrape_interval": step, "scrape_timeout": step, "evaluation_interval": step},
            "rule_files": ["qzgpuinfo.yml", "qzgpuinfo-limits.yml"],
            "scrape_configs": [{"job_name": "node", "static_configs": [
                {"targets": [f"127.0.0.1:{node.exporter.port}"], "labels": {"instance": name}}
                for name, node in self.nodes.items()]}]}
        path = self._folder / "prometheus.yml"
        path.write_text(json.dumps(configuration), encoding="utf-8")
        return Server(self._folder / "prometheus.log", "prometheus", f"--config.file={path}",
                      f"--storage.tsdb.path={self._folder / 'data'}", f"--web.console.templates={RULES / 'consoles'}",
                      f"--web.console.libraries={self._folder}")

    @property
    def port(self):
        return self._prometheus.port

    def start(self):
        """Starts the nodes' timers."""
        self._writer = threading.Thread(target=self._write)
        self._writer.start()

    def _write(self):
        last = time.monotonic()
        while not self._ending.wait(max(0.05, last + self._seconds - time.monotonic())):
            self.longest_gap = max(self.longest_gap, time.monotonic() - last)
            last = time.monotonic()
            for node in self.nodes.values():
                if node.writes:
                    node.write()

    def get(self, path, **parameters):
        """The text of a page of Prometheus'."""
        status, text = self._prometheus.get(path + ("?" + urllib.parse.urlencode(parameters) if parameters else ""))
        if status != 200:
            raise ValueError(f"{path}: {status} {text}")
        return text

    def query(self, expression):
        """[(labels, value), ...]; an error where the expression is none."""
        answer = json.loads(self.get("/api/v1/query", query=expression))
        return [(sample["metric"], float(sample["value"][1])) for sample in answer["data"]["result"]]

    def firing(self):
        """{(alert, node), ...} of this moment."""
        return {(labels["alertname"], labels["instance"]) for labels, _ in self.query('ALERTS{alertstate="firing"}')}

    def alerts(self):
        return json.loads(self.get("/api/v1/alerts"))["data"]["alerts"]

    def close(self):
        self._ending.set()
        if self._writer is not None:
            self._writer.join()
        if self._prometheus is not None:
            self._prometheus.end()
        for node in self.nodes.values():
            node.close()
        shutil.rmtree(self._folder, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
