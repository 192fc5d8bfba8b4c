"""Every byte that the companion publishes on simulated machines, cycle by cycle, decoded by offsets alone."""

import struct
import time

import simulated
from companion import CompanionCase
from segment_bytes import AMD, CUDA, ONLY_CUDA, RECORD_SIZE, SIZE, SUMMARY, VERSION, gone
from segment_bytes import published_block as block
from segment_bytes import published_record as record

CL_DEVICE = 76

# In the second cycle the first NVIDIA GPU fails everything, the second the memory alone, and AMD's load is empty.
MACHINE = """
[os-release]
id = debian
[nvidia]
name = NVIDIA GeForce RTX 4090
bus = 0x01
compute = 8.9
utilisation = 11, 12
temperature = 60, 61
memory_total = 24576MiB
memory_used = 1024MiB, 1025MiB
[nvidia]
name = Tesla V100-SXM2-16GB
bus = 0x81
compute = 7.0
utilisation = 21, 22
temperature = 75, 74
memory_total = 16384MiB
memory_used = 2048MiB
[card card0]
address = 0000:c1:00.0
vendor = 0x1002
product_name = AMD Radeon RX 7900 XTX
mem_info_vram_total = 25753026560
gpu_busy_percent = 31
mem_info_vram_used = 1073741824
hwmon = hwmon4
hwmon4/temp1_input = 45999, 46000
[opencl]
mode = scripted
[platform]
name = Everything
[device]
name = Tesla V100-SXM2-16GB
nv_bus = 0x81
[device]
name = gfx1100
amd_topology_bus = 0xc1
extensions = cl_khr_fp64 cl_khr_ray_tracing
[faults]
nvmlDeviceGetUtilizationRates#0 = fail 15 from 2
nvmlDeviceGetTemperature#0 = fail 15 from 2
nvmlDeviceGetMemoryInfo#0 = fail 15 from 2
nvmlDeviceGetMemoryInfo#1 = fail 3 from 2
"""


class Published(CompanionCase):
    maxDiff = None

    def block_of_cycle(self, folder, earlier=b"", timeout=9):
        """The next block that is published, whole, with the OpenCL devices cut out, and these: (raw, block, devices)."""
        raw = self.published(folder, earlier, timeout)
        data, devices = bytearray(raw), []
        for start in [CUDA + i * RECORD_SIZE for i in range(16)] + [AMD + i * RECORD_SIZE for i in range(16)]:
            devices.append(struct.unpack_from("<Q", data, start + CL_DEVICE)[0])
            data[start + CL_DEVICE:start + CL_DEVICE + 8] = bytes(8)
        return raw, bytes(data), devices

    def assert_same_block(self, seen, expected):
        self.assertEqual(len(seen), SIZE)
        for start in range(20, ONLY_CUDA, RECORD_SIZE):
            with self.subTest(offset=start):
                self.assertEqual(seen[start:start + RECORD_SIZE].hex(), expected[start:start + RECORD_SIZE].hex())
        self.assertEqual(seen, expected)

    def test_two_cycles(self):
        folder, run = self.companion(MACHINE, "-v")
        started = time.monotonic()
        raw, first, devices = self.block_of_cycle(folder)
        self.assertAlmostEqual(time.monotonic() - started, 4.0, delta=1.5)
        self.assertEqual([device != 0 for device in devices], [False, True] + 14 * [False] + [True] + 15 * [False])
        self.assert_same_block(first, block(
            [record(b"NVIDIA GeForce RTX 4090", 1, 0, optix=1, temperature=60, total=24576, memory=(1024, 23552),
                    usage=11),
             record(b"Tesla V100-SXM2-16GB", 1, 1, temperature=75, total=16384, memory=(2048, 14336), usage=21)],
            [record(b"AMD Radeon RX 7900 XTX", 2, 0, ray_tracing=1, temperature=45, total=24560, memory=(1024, 23536),
                    usage=31)],
            record(b"Summary", 4, 99, temperature=75, total=16384, memory=(2048, 14336), usage=63)))
        _, second, _ = self.block_of_cycle(folder, raw)
        self.assert_same_block(second, block(
            # A total once read stays; the others keep their numbers behind markers that are off.
            [record(b"NVIDIA GeForce RTX 4090", 1, 0, optix=1, temperature=gone(60), total=24576,
                    memory=gone(1024, 23552), usage=gone(11)),
             record(b"Tesla V100-SXM2-16GB", 1, 1, temperature=74, total=16384, memory=gone(2048, 14336), usage=22)],
            [record(b"AMD Radeon RX 7900 XTX", 2, 0, ray_tracing=1, temperature=46, total=24560, memory=(1024, 23536),
                    usage=31)],
            record(b"Summary", 4, 99, temperature=74, total=16384, memory=(1024, 23536), usage=53)))
        self.assertEqual(run.stop()[0], 0)
        self.assertEqual((run.report.live, run.report.misuse), ({}, {}))
        # Once a process, not once a cycle.
        self.assertEqual({name: run.report.calls[name] for name in ("nvmlInit_v2", "nvmlShutdown")},
                         {"nvmlInit_v2": 1, "nvmlShutdown": 1})
        self.assertEqual(list(folder.iterdir()), [])
        lines = self.lines(run)
        self.assertEqual(lines.count("Updated shared memory block"), 2)
        self.assertEqual([line for line in lines if line.startswith("---- ")],
                         2 * ["---- #0   Cuda-0  RTX4090 ----", "---- #1   Cuda-1  V100-SXM2-16GB ----",
                              "---- #2    AMD-0  RX7900XTX ----", "---- Summary ----"])

    def test_scores_are_published_and_summed(self):
        folder, run = self.companion(simulated.description("scripted"), "-benchShort")
        # Each benchmark fills a gibibyte first, which takes a busy host its time.
        _, first, _ = self.block_of_cycle(folder, timeout=60)
        score = struct.unpack("<f", struct.pack("<f", 0.06409515220941284 * 4.0 * (134217728.0 / 2000.0) / 1000.0))[0]
        for start, expected in ((CUDA, score), (AMD, score), (SUMMARY, 2 * score)):
            self.assertEqual((first[start + 120], struct.unpack_from("<f", first, start + 124)[0]), (1, expected))
        self.assertEqual(run.stop()[0], 0)

    def test_more_gpus_than_the_block_holds(self):
        folder, run = self.companion(simulated.description("twenty-gpus"))
        _, data, _ = self.block_of_cycle(folder)
        self.assertEqual(struct.unpack_from("<5I", data), (VERSION, 1, 16, 0, 0))
        indices = [struct.unpack_from("<i", data, CUDA + i * RECORD_SIZE + 72)[0] for i in range(16)]
        self.assertEqual(indices, list(range(16)))
        self.assertEqual(data[AMD:], block(summary=data[SUMMARY:ONLY_CUDA])[AMD:])
        self.assertEqual(run.stop()[0], 0)


if __name__ == "__main__":
    simulated.main()
