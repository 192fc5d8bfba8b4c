"""A real Prometheus that scrapes a real node_exporter, which serves the files of one folder. Both listen on the
loopback interface alone, at ports that the system chooses, and keep what they write in a folder of the test's own:
whatever else of theirs runs on this machine is not touched."""

import http.client
import json
import os
import shutil
import socket
import subprocess
import urllib.parse
from pathlib import Path

from qz import wait_until

PROGRAMS = ("prometheus", "prometheus-node-exporter", "promtool")
CONFIGURATION = """
global: {{scrape_interval: 1s, scrape_timeout: 1s}}
scrape_configs:
  - job_name: node
    static_configs: [{{targets: ["127.0.0.1:{port}"]}}]
"""


def missing_programs():
    return [program for program in PROGRAMS if shutil.which(program) is None]


def listening_sockets(pid):
    """Address and port of each TCP socket at which a process listens."""
    sockets = set()
    for descriptor in Path(f"/proc/{pid}/fd").iterdir():
        try:
            sockets.add(os.readlink(descriptor))
        except FileNotFoundError:  # closed meanwhile
            continue
    for line in Path(f"/proc/{pid}/net/tcp").read_text(encoding="ascii").splitlines()[1:]:
        _, local, _, state, *_, inode = line.split()[:10]
        if state == "0A" and f"socket:[{inode}]" in sockets:
            address, port = local.split(":")
            yield socket.inet_ntoa(bytes.fromhex(address)[::-1]), int(port, 16)


def listening_port(pid):
    """The TCP port at which a process listens; None while there is none."""
    return next((port for _, port in listening_sockets(pid)), None)


class Server:
    """A program that serves HTTP on the loopback interface, at a port that the system chooses; it ends
    with this object, or with the test when that is killed."""

    def __init__(self, log, *command):
        self._log = log
        with log.open("wb") as output:
            # pylint: disable-next=consider-using-with
            self._process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", *command, "--web.listen-address=127.0.0.1:0"],
                stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT, cwd=log.parent,
                # A Ctrl-C at the terminal is for the caller.
                start_new_session=True)
        try:
            self.port = wait_until(self._port, 30, f"a port of {command[0]}")
        except BaseException:
            self.end()
            raise

    def _port(self):
        if self._process.poll() is not None:
            raise AssertionError(f"ended with {self._process.returncode}: {self._log.read_text('utf-8')}")
        return listening_port(self._process.pid)

    @property
    def pid(self):
        return self._process.pid

    def get(self, path):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=10)
        try:
            connection.request("GET", path)
            answer = connection.getresponse()
            return answer.status, answer.read().decode("utf-8")
        finally:
            connection.close()

    def end(self):
        self._process.terminate()
        try:
            self._process.wait(10)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()


class Monitoring:
    """Both servers. The content of FOLDER/textfiles/NAME.prom can be queried a second or two later."""

    def __init__(self, folder):
        self.textfiles = folder / "textfiles"
        self.textfiles.mkdir()
        self._servers = []
        exporter = self._start(folder / "node_exporter.log", "prometheus-node-exporter", "--collector.disable-defaults",
                               "--collector.textfile", f"--collector.textfile.directory={self.textfiles}")
        configuration = folder / "prometheus.yml"
        configuration.write_text(CONFIGURATION.format(port=exporter.port), encoding="utf-8")
        self._prometheus = self._start(folder / "prometheus.log", "prometheus", f"--config.file={configuration}",
                                       f"--storage.tsdb.path={folder / 'data'}")

    def _start(self, log, *command):
        try:
            self._servers.append(Server(log, *command))
        except BaseException:
            self.close()
            raise
        return self._servers[-1]

    def query(self, expression):
        """What Prometheus has for it at this moment: [(labels, value), ...], in the order of the label `gpu`. An
        error while it has only just started."""
        status, text = self._prometheus.get("/api/v1/query?" + urllib.parse.urlencode({"query": expression}))
        if status != 200:
            raise ValueError(f"{expression}: {status} {text}")
        series = [({name: label for name, label in sample["metric"].items() if name not in ("instance", "job")},
                   float(sample["value"][1])) for sample in json.loads(text)["data"]["result"]]
        return sorted(series, key=lambda sample: int(sample[0].get("gpu", -1)))

    def value(self, expression):
        """The one value of an expression; None while there is none."""
        series = self.query(expression)
        assert len(series) < 2, series
        return series[0][1] if series else None

    def is_ready(self):
        return self._prometheus.get("/-/ready")[0] == 200

    def close(self):
        for server in reversed(self._servers):
            server.end()
