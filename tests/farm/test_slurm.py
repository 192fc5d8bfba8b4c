"""From a simulated machine's GPUs to a real Slurm: companions publish, slurmd runs farm/slurm/health-check, and jobs go to
the nodes that have what they ask for, wait while those are drained, and go on when they are resumed."""

import signal
import subprocess
import tempfile
from pathlib import Path

import simulated
from companion import CompanionCase
from prometheus_server import listening_sockets
from qz import BUILD, wait_until
from slurm_cluster import USER, Cluster, missing_programs

NVIDIA = """
[nvidia]
name = NVIDIA GeForce RTX 4090
compute = 8.9
memory_total = 24564MiB
[opencl]
mode = scripted
[platform]
name = Everything
[device]
name = first
nv_bus = 0x01
"""
AMD = """
[card card1]
address = 0000:83:00.0
vendor = 0x1002
product_name = Radeon Pro W7900
mem_info_vram_total = 46068MiB
mem_info_vram_used = 4096MiB
gpu_busy_percent = 10
hwmon = hwmon5
hwmon5/temp1_input = 55000
[opencl]
mode = scripted
[platform]
name = Everything
[device]
name = gfx1100
amd_topology_bus = 0x83
extensions = cl_khr_ray_tracing
"""
NO_GPU = "[opencl]\nmode = scripted\n"
LIVE_FIGURES = ("mem_info_vram_used", "gpu_busy_percent", "hwmon/hwmon5/temp1_input")
GBS = (2, 4, 6, 8, 10, 12, 16, 20, 24, 32, 40, 48)
FEATURES = {
    "q1": ("qz_gpu", "qz_nvcuda", "qz_optix", "qz_model_rtx4090", *(f"qz_vram_{size}g" for size in GBS[:9])),
    "q2": ("qz_gpu", "qz_amdrt", "qz_model_w7900", *(f"qz_vram_{size}g" for size in GBS)),
    "q3": (),
}
PATIENCE = 90  # seconds; a busy machine is slow


class Farm(CompanionCase):
    """Three nodes: one with an NVIDIA GPU, one with an AMD GPU, one without."""

    def setUp(self):
        missing = missing_programs()
        if missing:
            self.skipTest("not on this machine: " + ", ".join(missing))
        self.shm = {node: self.shm_folder() for node in FEATURES}
        self.machines = {node: self.described(machine, shm=self.shm[node])
                         for node, machine in zip(FEATURES, (NVIDIA, AMD, NO_GPU))}
        self.runs = {node: self.start(node) for node in FEATURES}
        folder = tempfile.TemporaryDirectory(prefix="qzTest-")
        self.addCleanup(folder.cleanup)
        self.cluster = Cluster(Path(folder.name), self.shm, BUILD)
        self.addCleanup(self.cluster.close)
        for node, features in FEATURES.items():
            self.wait_for(node, "IDLE", features=features)

    def start(self, node):
        return self.machines[node].start(stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def wait_for(self, node, state, reason="", features=None):
        """Waits for a node's state and reason, and for its features (unless given, all of them)."""
        wanted = (state, reason, (f"site_{node}", *(FEATURES[node] if features is None else features)))
        seen = None

        def has_it():
            nonlocal seen
            seen = self.cluster.node(node)
            return seen == wanted
        try:
            wait_until(has_it, PATIENCE)
        except AssertionError:
            self.fail(f"{node} is {seen}, not {wanted}\n{self.cluster.errors()}")

    def wait_for_checks(self, node, count):
        target = len(self.cluster.log(node)) + count
        wait_until(lambda: len(self.cluster.log(node)) >= target, PATIENCE, "the next health checks")

    def submit(self, constraint):
        job = self.cluster.submit(constraint)
        self.addCleanup(job.communicate)
        self.addCleanup(job.kill)
        return job

    def expect_on(self, node, job):
        output, errors = job.communicate(timeout=PATIENCE)
        self.assertEqual((job.returncode, output), (0, f"{node}\n"), errors)

    def expect_waiting(self, job, constraint):
        wait_until(lambda: self.cluster.job_state(constraint).startswith("PENDING ReqNodeNotAvail"), PATIENCE,
                   f"a waiting job for {constraint}")
        self.assertIsNone(job.poll())


class Jobs(Farm):
    def test_a_job_runs_where_its_feature_is(self):
        for constraint, node in (("qz_optix", "q1"), ("qz_amdrt", "q2"), ("qz_gpu&qz_vram_40g", "q2"),
                                 ("qz_model_rtx4090", "q1")):
            self.expect_on(node, self.submit(constraint))
        _, errors = self.submit("qz_vram_64g").communicate(timeout=PATIENCE)
        self.assertIn("Invalid feature specification", errors)

    def test_a_gpu_that_dies_and_comes_back(self):
        card = Path(self.machines["q2"].layout.card("card1"))
        figures = {name: (card / name).read_bytes() for name in LIVE_FIGURES}
        for name in figures:
            (card / name).unlink()
        self.wait_for("q2", "IDLE+DRAIN", "qzgpuinfo: lost 1 of 1 GPUs")
        job = self.submit("qz_amdrt")
        self.expect_waiting(job, "qz_amdrt")
        self.expect_on("q1", self.submit("qz_gpu"))

        for name, figure in figures.items():
            (card / name).write_bytes(figure)
        self.wait_for("q2", "IDLE")
        self.expect_on("q2", job)

    def test_a_companion_that_is_killed(self):
        self.runs["q1"].stop(signal.SIGKILL)
        reason = f"qzgpuinfo: the GPU list of {USER} is stale"
        self.wait_for("q1", "IDLE+DRAIN", reason)
        job = self.submit("qz_optix")
        self.expect_waiting(job, "qz_optix")
        self.runs["q1"] = self.start("q1")
        self.expect_on("q1", job)
        self.wait_for("q1", "IDLE")
        self.assertEqual(self.cluster.errors(), "")

    def test_a_node_that_somebody_else_drained(self):
        self.cluster.scontrol("update", "NodeName=q1", "State=DRAIN", "Reason=new fan")
        self.runs["q1"].stop(signal.SIGKILL)
        self.wait_for_checks("q1", 3)
        self.wait_for("q1", "IDLE+DRAIN", "new fan")
        self.start("q1")
        self.wait_for_checks("q1", 3)
        self.wait_for("q1", "IDLE+DRAIN", "new fan")

class LostFeatures(Farm):
    """slurmctld forgets what its configuration file does not have."""

    def expect_back(self, lose):
        nodes = ("q1", "q2")
        logs = {node: len(self.cluster.log(node)) for node in nodes}
        lose()
        for node in nodes:
            def new_lines(node=node):
                return self.cluster.log(node)[logs[node]:]
            wait_until(lambda: new_lines()[-1:] not in ([], ["check"]), PATIENCE, f"an update of {node}")
            # One check may have been on its way when they were lost. The next brings them back.
            self.assertLessEqual(new_lines().index(f"update NodeName={node} " + " ".join(
                f"{which}Features=site_{node},{','.join(FEATURES[node])}" for which in ("Available", "Active"))), 2)
            self.wait_for(node, "IDLE")

    def test_by_a_reconfiguration(self):
        self.expect_back(lambda: self.cluster.scontrol("reconfigure"))

    def test_by_a_restart(self):
        def restart():
            self.cluster.stop_controller()
            self.cluster.start_controller()
        self.expect_back(restart)


class Loopback(Farm):
    def test_nothing_listens_to_the_outside(self):
        for name, process in self.cluster.processes().items():
            addresses = {address for address, _ in listening_sockets(process)}
            self.assertEqual(addresses, set() if name == "munged" else {"127.0.0.1"}, name)


if __name__ == "__main__":
    simulated.main()
