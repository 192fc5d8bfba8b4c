"""The simulator itself: what it shows a program, what it hides, and what it reports."""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import textwrap
import time
from pathlib import Path
from unittest import mock

import simulated
from simulated import BUILD, LAUNCHER, PROGRAM, SimulatedCase, Simulation

CARD = """
[os-release]
text = "ID=test\\n"
[card card7]
address = 0000:0c:00.0
vendor = 0x1002
label = @dangling
product_name = @directory
mem_info_vram_total = @missing
gpu_busy_percent = @fails EBUSY
mem_info_vram_used = 10, 20, ...
hwmon = hwmon3, hwmon4
hwmon4/temp1_input = "4\\x005\\n"
connectors = DP-1
[drm]
entries = renderD128
"""

# Runs inside, as the simulated program: opens files and libraries as qzGpuInfo would, and says what it found.
PROBE = """#!{python}
import ctypes, os, sys
for line in sys.argv[1:]:
    try:
        print(repr(eval(line)), flush=True)
    except OSError as error:
        print(error.errno, flush=True)
"""


class Probing(SimulatedCase):
    """Looks around on a machine with a probe program."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="qzsim-probe-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.probe = self.folder / "probe"
        self.probe.write_text(PROBE.format(python=os.path.realpath(sys.executable)), encoding="utf-8")
        self.probe.chmod(0o755)

    def look(self, simulation, *expressions):
        """The value of each expression inside; an errno if it fails."""
        run = simulation.run(*expressions)
        self.assertEqual((run.exit_code, run.errors), (0, ""))
        return [eval(line) for line in run.output.splitlines()], run


class Surroundings(Probing):
    def test_sys(self):
        simulation = self.described(CARD, program=self.probe)
        card = "/sys/class/drm/card7/device/"
        seen, _ = self.look(
            simulation, "os.listdir('/sys/class/drm')", "os.path.realpath('/sys/class/drm/card7/device')",
            f"os.listdir('{card}hwmon/hwmon3')", f"open('{card}hwmon/hwmon4/temp1_input', 'rb').read()",
            f"open('{card}vendor').read()", f"open('{card}label')", f"open('{card}mem_info_vram_total')",
            f"open('{card}product_name')", "os.path.exists('/sys/devices/system/cpu')")
        self.assertEqual(seen, [["card7", "version", "renderD128", "card7-DP-1"],
                                "/sys/devices/pci0000:00/0000:0c:00.0", [], b"4\x005\n", "0x1002\n", 2, 2, 21, True])

    def test_failing_and_changing_files(self):
        simulation = self.described(CARD, faults=["card7/vendor = refuse EACCES at 2"], program=self.probe)
        card = "/sys/class/drm/card7/device/"
        used = f"open('{card}mem_info_vram_used').read()"
        seen, run = self.look(simulation, f"os.read(os.open('{card}gpu_busy_percent', 0), 9)", used, used, used,
                              f"open('{card}vendor').read()", f"open('{card}vendor').read()")
        self.assertEqual(seen, [16, "10\n", "20\n", "10\n", "0x1002\n", 13])
        self.assertEqual(run.report.opens[card + "mem_info_vram_used"], 3)
        self.assertEqual(run.report.opens[card + "gpu_busy_percent"], 1)

    def test_files_that_answer_otherwise(self):
        simulation = self.described(CARD, faults=['card7/vendor = answer "0x10de\\n" at 2'], program=self.probe)
        vendor = "open('/sys/class/drm/card7/device/vendor').read()"
        seen, _ = self.look(simulation, vendor, vendor, vendor)
        self.assertEqual(seen, ["0x1002\n", "0x10de\n", "0x1002\n"])

    def test_cards_come_in_the_order_of_the_description(self):
        cards = ["card9", "card10", "card1", "card0", "card5"]
        simulation = self.described("".join(f"[card {card}]\nvendor = 1\nconnectors = DP-1\n" for card in cards),
                                    program=self.probe)
        seen, _ = self.look(simulation, "os.listdir('/sys/class/drm')")
        self.assertEqual([entry for entry in seen[0] if entry in cards], cards)
        self.assertEqual(sorted(seen[0]), sorted([*cards, *(f"{card}-DP-1" for card in cards), "version"]))

    def test_files_that_the_test_changes(self):
        simulation = self.described(CARD, program=self.probe)
        (simulation.layout.card("card7") / "vendor").write_text("0x10de\n")
        shutil.rmtree(simulation.layout.card("card7") / "hwmon")
        seen, _ = self.look(simulation, "open('/sys/class/drm/card7/device/vendor').read()",
                            "os.listdir('/sys/class/drm/card7/device/hwmon')")
        self.assertEqual(seen, ["0x10de\n", 2])

    def test_device_entries(self):
        for form, link, exists in (("directory", False, True), ("dangling", True, False), ("missing", False, False)):
            with self.subTest(form=form):
                simulation = self.described(f"[card card0]\nvendor = 1\ndevice_entry = {form}\n", program=self.probe)
                seen, _ = self.look(simulation, "os.path.islink('/sys/class/drm/card0/device')",
                                    "os.path.exists('/sys/class/drm/card0/device')")
                self.assertEqual(seen, [link, exists])

    def test_pci_bus(self):
        simulation = self.described("[nvidia]\nbus = 0x41\n[card card0]\naddress = 0000:42:00.0\nvendor = 0x1002\n"
                                    "[pci 0000:43:00.0]\nvendor = 0x1a03\ndriver = none\n./power/control = on\n",
                                    program=self.probe)
        bus = "/sys/bus/pci/devices"
        link = "os.path.realpath('{}/0000:{}:00.0/driver')"
        seen, _ = self.look(simulation, f"sorted(os.listdir('{bus}'))", link.format(bus, 41), link.format(bus, 42),
                            f"os.path.lexists('{bus}/0000:43:00.0/driver')",
                            *(f"open('{bus}/0000:41:00.0/{name}').read()" for name in ("class", "vendor", "device")),
                            f"open('{bus}/0000:43:00.0/power/control').read()",
                            f"os.path.samefile('{bus}/0000:42:00.0', '/sys/class/drm/card0/device')",
                            "sorted(os.listdir('/sys/module'))")
        self.assertEqual(seen, [["0000:41:00.0", "0000:42:00.0", "0000:43:00.0"], "/sys/bus/pci/drivers/nvidia",
                                "/sys/bus/pci/drivers/amdgpu", False, "0x030000\n", "0x10de\n", "0x2684\n", "on\n", True,
                                ["amdgpu", "nvidia", "nvidia_drm", "nvidia_modeset", "nvidia_uvm"]])

    def test_device_nodes_and_proc(self):
        simulation = self.described("[nvidia]\n[card card3]\nvendor = 0x1002\naddress = 0000:09:00.0\n"
                                    "[node /dev/nvidiactl]\nmode = 0000\n[node /dev/kfd]\nmissing = yes\n"
                                    "[proc]\nversion = Some other kernel\n", program=self.probe)
        seen, _ = self.look(simulation, "[name for name in sorted(os.listdir('/dev')) if name[:2] in ('nv', 'kf')]",
                            "sorted(os.listdir('/dev/dri'))",
                            "[os.stat('/dev/' + name).st_mode & 0o777 for name in ('nvidia0', 'nvidiactl')]",
                            "os.access('/dev/nvidia0', os.W_OK)", "os.path.exists('/dev/shm')",
                            "open('/proc/version').read()",
                            "open('/proc/driver/nvidia/version').readline().split()[7]")
        self.assertEqual(seen, [["nvidia-uvm", "nvidia0", "nvidiactl"], ["card3", "renderD128"], [0o666, 0], True, True,
                                "Some other kernel\n", "550.54.14"])
        seen, _ = self.look(self.simulation("no-gpu", program=self.probe), "os.listdir('/proc/driver')",
                            "os.path.exists('/dev/dri')", "os.listdir('/sys/bus/pci/devices')")
        self.assertEqual(seen, [[], False, []])

    def test_os_release(self):
        simulation = self.described(CARD, program=self.probe)
        self.assertEqual(self.look(simulation, "open('/etc/os-release').read()")[0], ["ID=test\n"])
        simulation = self.described("[os-release]\nmissing = yes\n", program=self.probe)
        self.assertEqual(self.look(simulation, "open('/etc/os-release')", "os.path.exists('/etc/passwd')")[0],
                         [2, True])

    def test_libraries_of_the_host_are_hidden(self):
        simulation = self.simulation("no-gpu", program=self.probe)
        seen, _ = self.look(simulation, *(f"'found' if ctypes.CDLL('{name}') else None" for name in (
            "libc.so.6", "libOpenCL.so.1", "libOpenCL.so", "libcuda.so.1", "libcudart.so", "libcudart.so.13",
            "libcudart.so.12", "libcudart.so.11.0", "libnvidia-ml.so.1", "libnvidia-ml.so")))
        self.assertEqual(seen, ["found"] + [None] * 9)

    def test_libraries_of_the_machine(self):
        simulation = self.described("[nvidia]\ncompute = 8.9\n[libraries]\nnvml = libnvidia-ml.so\ncudart = 11\n"
                                    "cudart_plain = 13\n",
                                    faults=["libcuda.so.1 = other-architecture", "libcudart.so.11.0 = text-file",
                                            "libnvidia-ml.so = omit nvmlErrorString"], program=self.probe)
        seen, _ = self.look(simulation, *(f"'found' if ctypes.CDLL('{name}') else None" for name in (
            "libnvidia-ml.so.1", "libnvidia-ml.so", "libcuda.so.1", "libcudart.so.11.0", "libcudart.so")),
            "hasattr(ctypes.CDLL('libnvidia-ml.so'), 'nvmlErrorString')",
            "hasattr(ctypes.CDLL('libnvidia-ml.so'), 'nvmlInit_v2')")
        self.assertEqual(seen, [None, "found", None, None, "found", False, True])

    def test_other_opencl_drivers_of_the_host_are_left_out(self):
        self.simulation("workstation")
        registered = self.folder / "vendors"
        shutil.copytree("/etc/OpenCL/vendors", registered)
        # It crashes when it is loaded and asked.
        (registered / "another.icd").write_text(f"{BUILD}/tests/system/drivers/brokenIcd/libbrokenIcd.so.1\n")
        platforms = ("(lambda n: (ctypes.CDLL(os.environ['QZSIM_REAL_OPENCL']).clGetPlatformIDs(0, None, ctypes.byref(n)),"
                     " n.value))(ctypes.c_uint())")
        choose = "os.environ.__setitem__('OCL_ICD_VENDORS', os.environ['QZSIM_OPENCL_DRIVERS'])"
        host = ["bwrap", "--bind", "/", "/", "--dev", "/dev", "--ro-bind", str(registered), "/etc/OpenCL/vendors", "--"]
        run = subprocess.run([*host, *LAUNCHER, "--program", str(self.probe), "workstation", choose, platforms],
                             capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual((run.returncode, run.stdout), (0, "None\n(0, 1)\n"), run.stderr)

    TWO_DRIVERS = "[opencl]\nmode = scripted\n[platform]\nname = NVIDIA CUDA\n[platform]\nname = rusticl\n"

    def test_registered_opencl_drivers(self):
        vendors = "/etc/OpenCL/vendors"
        simulation = self.described(self.TWO_DRIVERS + "[icd rusticl.icd]\nmissing = yes\n[os-release]\nmissing = yes\n"
                                    "[icd x.icd]\ntext = libnone.so\n", program=self.probe)
        with mock.patch.dict(os.environ, {"OCL_ICD_VENDORS": "/the/hosts"}):
            seen, _ = self.look(simulation, f"sorted(os.listdir('{vendors}'))", f"open('{vendors}/nvidia.icd').read()",
                                "'OCL_ICD_VENDORS' in os.environ",
                                "'found' if ctypes.CDLL('libRusticlOpenCL.so.1') else None",
                                "os.path.exists('/etc/os-release')")
        self.assertEqual(seen, [["nvidia.icd", "x.icd"], "libnvidia-opencl.so.1\n", False, "found", False])

    def test_platforms_of_the_drivers_that_open(self):
        count = "(lambda n: (ctypes.CDLL('libOpenCL.so.1').clGetPlatformIDs(0, None, ctypes.byref(n)), n.value))(ctypes.c_uint())"
        chosen = self.folder / "chosen"
        chosen.mkdir()
        (chosen / "rusticl.icd").touch()
        for fault, settings, expected in (
                ((), {}, (0, 2)), (["libnvidia-opencl.so.1 = absent"], {}, (0, 1)),
                (["libnvidia-opencl.so.1 = absent", "libRusticlOpenCL.so.1 = text-file"], {}, (-1001, 0)),
                ((), {"OCL_ICD_VENDORS": str(chosen)}, (0, 1)),
                (["libnvidia-opencl.so.1 = crash"], {"OCL_ICD_VENDORS": str(chosen)}, (0, 1)),
                ((), {"OCL_ICD_VENDORS": str(chosen / "rusticl.icd")}, (0, 1))):
            with self.subTest(fault=fault, settings=settings):
                simulation = self.described(self.TWO_DRIVERS, faults=fault, program=self.probe, environment=settings)
                self.assertEqual(self.look(simulation, count)[0], [expected])
        run = self.described(self.TWO_DRIVERS, faults=["libnvidia-opencl.so.1 = crash"], program=self.probe).run(count)
        self.assertEqual(run.exit_code, 128 + signal.SIGSEGV)

    def test_shared_memory(self):
        shared = self.folder / "shm"
        shared.mkdir()
        (shared / "planted").write_text("x")
        write = "open('/dev/shm/written', 'w').write('123')"
        fill = "os.posix_fallocate(os.open('/dev/shm/big', 66), 0, 100000)"
        for setting, listed, written, filled in ((None, [], 3, None), (shared, ["planted"], 3, None),
                                                 (8192, [], 3, 28), ("read-only", [], 30, 30), ("none", 2, 2, 2)):
            with self.subTest(setting=setting):
                simulation = self.simulation("no-gpu", program=self.probe, shm=setting)
                self.assertEqual(self.look(simulation, "os.listdir('/dev/shm')", write, fill)[0],
                                 [listed, written, filled])
        self.assertEqual((shared / "written").read_text(), "123")

    def test_processes(self):
        count = "len([name for name in os.listdir('/proc') if name.isdigit()])"
        mine = f"os.path.exists('/proc/{os.getpid()}/stat') and '{os.getpid()}' in os.listdir('/proc')"
        seen, _ = self.look(self.simulation("no-gpu", program=self.probe), count)
        self.assertLess(seen[0], 6)
        seen, _ = self.look(self.simulation("no-gpu", program=self.probe, share_pids=True), mine)
        self.assertEqual(seen, [True])
        seen, _ = self.look(self.simulation("no-gpu", program=self.probe, no_proc=True), "os.listdir('/proc')")
        self.assertEqual(seen, [[]])

    def test_processes_of_the_machine(self):
        simulation = self.described("[machine]\nprocesses = render client, other\n", program=self.probe)
        seen, run = self.look(simulation, "sorted(open(f'/proc/{n}/cmdline').read().split('\\0')[0] "
                                          "for n in os.listdir('/proc') if n.isdigit())")
        self.assertIn("render client", seen[0])
        self.assertIn("other", seen[0])


class Runs(SimulatedCase):
    CYCLE = textwrap.dedent("""
        [nvidia]
        bus = 1
        compute = 8.9
        utilisation = cycle
        temperature = cycle
        [opencl]
        mode = scripted
        [platform]
        """)

    def test_a_killed_program_leaves_its_counts(self):
        simulation = self.described(self.CYCLE)
        run = simulation.start()
        run.wait_for("Continuous run...\n")
        self.assertEqual(run.stop(signal.SIGKILL)[0], 128 + signal.SIGKILL)
        self.assertEqual(run.report.calls["nvmlInit_v2"], 1)
        self.assertEqual(run.report.live, {"nvml": 1})

    def test_two_programs_share_a_segment(self):
        with tempfile.TemporaryDirectory(prefix="qzsim-shm-") as shm:
            simulation = self.described(self.CYCLE, shm=Path(shm), cycle_start=500)
            first, second = simulation.start(), simulation.start()
            end = time.monotonic() + 20
            while (not all("nvmlInit_v2" in run.report.calls for run in (first, second)) and
                   time.monotonic() < end):
                time.sleep(0.02)
            self.assertTrue(os.path.exists(os.path.join(shm, "qzGpuInfo_v2")))
            for run in (first, second):
                self.assertTrue(run.pid())
                run.kill()
                self.assertEqual(run.report.calls["nvmlInit_v2"], 1)

    def test_cycle_start(self):
        run = self.described(self.CYCLE, cycle_start=70).run("-single", "-v")
        self.assertIn("    #0 : Gpu Usage:      71 %", self.lines(run))
        self.assertIn("    #0 : Temperature:    71 C", self.lines(run))

    def test_a_hanging_call_ends_with_the_simulation(self):
        simulation = self.described(self.CYCLE, faults=["nvmlDeviceGetCount_v2 = hang"])
        run = simulation.start()
        pid = run.pid()
        time.sleep(0.3)
        self.assertIsNone(run.exit_code)
        run.kill()
        self.assertEqual(run.exit_code, 128 + signal.SIGKILL)
        end = time.monotonic() + 5
        while os.path.exists(f"/proc/{pid}") and time.monotonic() < end:
            time.sleep(0.02)
        self.assertFalse(os.path.exists(f"/proc/{pid}"))

    def test_nothing_is_left_behind(self):
        with Simulation("no-gpu", BUILD, program=PROGRAM) as simulation:
            root = simulation.layout.root
            run = simulation.start()
            self.assertTrue(root.exists())
        self.assertFalse(root.exists())
        self.assertIsNotNone(run.exit_code)

    def test_kernels_are_kept(self):
        run = self.simulation("scripted").run("-single", "-benchShort", timeout=60)
        self.assertEqual(run.exit_code, 0)
        self.assertEqual(len(run.kernels), 4)
        self.assertTrue(run.kernels[0].startswith("__kernel void benchmarkKernel("))
        self.assertEqual((run.report.live, run.report.misuse), ({}, {}))

    def test_a_kernel_is_really_run(self):
        # A share of nothing still runs one row of work-groups, the one whose results are looked at.
        workstation = simulated.description("workstation")
        machine = self.described(workstation.replace("share = 0.0003", "share = 0"))
        run = machine.run("-single", "-benchShort", "-v", timeout=120)
        self.assertEqual(run.exit_code, 0, run.output)
        self.assertRegex(run.output, r"performance \d+\.\d{3} GPS")
        self.assertEqual((run.report.live, run.report.misuse), ({}, {}))
        self.assertEqual(run.report.notes["range 32768x4096 local 256x1 offset none"],
                         run.report.calls["clEnqueueNDRangeKernel"])


if __name__ == "__main__":
    simulated.main()
