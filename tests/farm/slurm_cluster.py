"""A real Slurm: munged, slurmctld and a slurmd for each node, all on this machine and on the loopback interface alone.
What they need and write is in one folder, and they end with the test."""

import os
import pwd
import re
import shutil
import socket
import subprocess
from contextlib import ExitStack
from pathlib import Path

from qz import SOURCE, wait_until

os.environ["PATH"] += ":/usr/sbin"  # where Debian has the daemons
PROGRAMS = ("munged", "slurmctld", "slurmd", "scontrol", "srun", "squeue")
USER = pwd.getpwuid(os.geteuid()).pw_name
INTERVAL = 2  # seconds between two health checks
CONFIGURATION = """
ClusterName=qztest
SlurmctldHost=localhost(127.0.0.1)
SlurmctldPort={port}
SlurmUser={user}
SlurmdUser={user}
CommunicationParameters=NoCtldInAddrAny,NoInAddrAny
AuthType=auth/munge
CredType=cred/munge
AuthInfo=socket={folder}/munge.socket
StateSaveLocation={folder}/state
SlurmdSpoolDir={folder}/%n
SlurmctldPidFile={folder}/slurmctld.pid
SlurmdPidFile={folder}/slurmd-%n.pid
ProctrackType=proctrack/pgid
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SwitchType=switch/none
MpiDefault=none
ReturnToService=1
SchedulerParameters=sched_interval=1
HealthCheckProgram={folder}/check
HealthCheckInterval={interval}
{nodes}
PartitionName=all Nodes=ALL Default=YES
"""
NODE = "NodeName={name} NodeAddr=127.0.0.1 NodeHostname=localhost Port={port} CPUs=1 Feature=site_{name}\n"
# slurmd starts a check with its node's name and nothing else in the environment. The log has each check and, by way of
# a scontrol that is found first, each update.
CHECK = """#!/bin/sh
echo "$SLURMD_NODENAME check" >>'{folder}/log'
export SLURM_CONF='{folder}/slurm.conf'
exec '{source}/farm/slurm/health-check' '{folder}'/"$SLURMD_NODENAME".settings 2>>'{folder}/errors'
"""
SCONTROL = """#!/bin/sh
[ "$1" != update ] || echo "$SLURMD_NODENAME $*" >>'{folder}/log'
exec {scontrol} "$@"
"""
SETTINGS = "user = {user}\ncompanion = {companion}\ndirectory = {directory}\nstate = {folder}/run\npath = {folder}:{programs}\n"


def missing_programs():
    return [program for program in PROGRAMS if shutil.which(program) is None]


def free_ports(count):
    """Ports of the loopback interface that nobody listened at a moment ago."""
    with ExitStack() as stack:
        sockets = [stack.enter_context(socket.socket()) for _ in range(count)]
        for opened in sockets:
            opened.bind(("127.0.0.1", 0))
        return [opened.getsockname()[1] for opened in sockets]


class Cluster:
    """`nodes`: the folder in which each node's companion publishes, by the node's name."""

    def __init__(self, folder, nodes, programs):
        self.folder = folder
        folder.chmod(0o755)  # munged asks for that
        port, *ports = free_ports(1 + len(nodes))
        (folder / "state").mkdir()
        self._environment = {**os.environ, "SLURM_CONF": f"{folder}/slurm.conf"}
        self._write("slurm.conf", CONFIGURATION.format(
            folder=folder, port=port, user=USER, interval=INTERVAL,
            nodes="".join(NODE.format(name=name, port=its) for name, its in zip(nodes, ports))))
        self._write("check", CHECK.format(folder=folder, source=SOURCE)).chmod(0o755)
        self._write("scontrol", SCONTROL.format(folder=folder, scontrol=shutil.which("scontrol"))).chmod(0o755)
        for name, directory in nodes.items():
            (folder / name).mkdir()
            self._write(f"{name}.settings", SETTINGS.format(user=USER, companion="optional", directory=directory,
                                                            folder=folder, programs=programs))
        key = folder / "munge.key"
        key.write_bytes(os.urandom(128))
        key.chmod(0o400)
        self._daemons = {}
        try:
            self._start("munged", "munged", "--foreground",
                        *(f"--{kind}={folder}/munge.{suffix}" for kind, suffix in (
                            ("socket", "socket"), ("key-file", "key"), ("pid-file", "pid"), ("log-file", "log"),
                            ("seed-file", "seed"))))
            wait_until((folder / "munge.socket").exists, 30, "munged's socket")
            self.start_controller()
            for name in nodes:
                self._start(name, "slurmd", "-D", "-N", name)
        except BaseException:
            self.close()
            raise

    def _write(self, name, text):
        path = self.folder / name
        path.write_text(text, encoding="utf-8")
        return path

    def _start(self, name, *command):
        with (self.folder / f"{name}.out").open("ab") as output:
            # pylint: disable-next=consider-using-with
            self._daemons[name] = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", *command], env=self._environment, cwd=self.folder,
                stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT)

    def start_controller(self):
        self._start("slurmctld", "slurmctld", "-D")

    def stop_controller(self):
        self._end(self._daemons.pop("slurmctld"))

    @staticmethod
    def _end(daemon):
        daemon.terminate()
        try:
            daemon.wait(30)
        except subprocess.TimeoutExpired:
            daemon.kill()
            daemon.wait()

    def processes(self):
        """The process numbers of the daemons, by their names."""
        return {name: daemon.pid for name, daemon in self._daemons.items()}

    def scontrol(self, *arguments):
        return subprocess.run(["scontrol", *arguments], env=self._environment, capture_output=True, text=True, timeout=60,
                              check=True).stdout

    def node(self, name):
        """A node's state, reason (empty: none) and active features; nothing while slurmctld does not answer."""
        try:
            shown = self.scontrol("--oneliner", "show", "node", name)
        except subprocess.CalledProcessError:
            return None, "", ()
        features = re.search(r" ActiveFeatures=(\S*)", shown)[1].replace("(null)", "")
        reason = re.search(r" Reason=(.*) \[", shown)
        return re.search(r" State=(\S+)", shown)[1], reason[1] if reason else "", tuple(filter(None, features.split(",")))

    def log(self, node):
        """A node's checks and updates, in their order: "check", or the update."""
        path = self.folder / "log"
        lines = path.read_text("utf-8").splitlines() if path.exists() else []
        return [line.removeprefix(f"{node} ") for line in lines if line.startswith(f"{node} ")]

    def errors(self):
        """What health checks wrote to standard error."""
        path = self.folder / "errors"
        return path.read_text("utf-8") if path.exists() else ""

    def submit(self, constraint):
        """A job that prints the name of the node it runs on."""
        return subprocess.Popen(["srun", "--job-name", constraint, "--constraint", constraint, "printenv", "SLURMD_NODENAME"],
                                env=self._environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True)

    def job_state(self, constraint):
        """The state and the reason of the waiting or running jobs of that constraint."""
        return subprocess.run(["squeue", "--noheader", "--name", constraint, "--format", "%T %r"], env=self._environment,
                              capture_output=True, text=True, timeout=60, check=True).stdout.strip()

    def close(self):
        for name in reversed(list(self._daemons)):
            self._end(self._daemons.pop(name))
