"""The table, the JSON object and the metrics that `qzGpuStatus` prints for a segment."""

import json
import unicodedata
import unittest

import exposition
from segment_bytes import MEASURING, NAME, WRITER, Segment, block, record
from status_command import run

RTX = record(b"NVIDIA GeForce RTX 4090", usage=45, temperature=60, total=24576, memory=(1024, 23552), speed=123.45,
             optix=1, cl_device=0xdeadbeef)
IDLE = record(b"NVIDIA Tesla", index=1, usage=0, temperature=0, total=8192, memory=(0, 8192), speed=0.0)
NAVI = record(b"Navi 31", kind=2, index=0, ray_tracing=1, total=16384)
BARE = record(b"Bare", kind=0, index=-1)
SUMMARY = record(b"Summary", kind=4, index=99, usage=45, temperature=60, total=8192, memory=(1024, 8192), speed=123.45)

# Bytes that a name may hold, and the text that is shown for them.
ODD_NAMES = [
    b'quotes " and \' and \\ backslash \\n',
    b"line\nbreak\r\ttab",
    b"\x1b[31mred\x1b[0m \x07 bell",
    b"\xff\xfe no UTF-8 \xc3(",
    b"cut \xe2\x82",
    b"over-long \xc0\xaf surrogate \xed\xa0\x80 beyond \xf4\x90\x80\x80 five \xf8\x88\x80\x80\x80",
    "größer 日本語 😀 ½".encode(),
    b"C1 \xc2\x9b31m, right to left \xe2\x80\xae, combining e\xcc\x81",
    b"%1 %s %n {} ${x} `id` <b>&amp;",
    b"",
    b"x" * 63,
    b"y" * 64,
    b"\x7f\x01\x02",
    b"\xe0\x80\xaf \xf0\x80\x80\xaf \xf1\x80\x80 \xe1\x80",
]


def shown(name):
    return name[:63].decode("utf-8", "replace")


def odd_block():
    return block([record(name, index=i, usage=i) for i, name in enumerate(ODD_NAMES)])


class Table(unittest.TestCase):
    def table(self, data, **options):
        with Segment(data, **options) as segment:
            return run(directory=segment.directory).stdout.decode()

    def test_whole(self):
        lines = self.table(block([RTX, IDLE], [NAVI], [BARE], SUMMARY)).splitlines()
        self.assertRegex(lines[0], r"\A4 GPUs, published \d\.\d s ago\Z")
        self.assertEqual(lines[1:], [
            "# KIND     NAME                         LOAD TEMP         MEMORY  SPEED FEATURES",
            "0 Cuda-0   NVIDIA GeForce RTX 4090       45%  60C 1024/24576 MiB 123.45 OpenCL OptiX",
            "1 Cuda-1   NVIDIA Tesla                   0%   0C     0/8192 MiB   0.00 -",
            "2 AMD-0    Navi 31                 no answer    -    -/16384 MiB      - RT",
            "3 Other--1 Bare                    no answer    -              -      - -",
        ])

    def test_one_gpu(self):
        self.assertRegex(self.table(block([RTX])), r"\A1 GPU, published")

    def test_no_gpu(self):
        self.assertRegex(self.table(block()), r"\A0 GPUs, published \d\.\d s ago\n\Z")

    def test_measuring(self):
        text = self.table(block([RTX]), age=100, flags=(*WRITER, MEASURING))
        self.assertRegex(text, r"\A1 GPU, published 10\d\.\d s ago, measuring\n")

    def test_no_figure_of_an_earlier_cycle(self):
        old = record(b"gone", valid=0, usage=45, temperature=60, total=24576, memory=(1, 2), speed=1.0)
        self.assertRegex(self.table(block([old, RTX])), r"\n0 Cuda-0 gone +no answer +- +- +- -\n")

    def test_an_unknown_kind(self):
        self.assertIn("\n0 unknown(7)-3 ", self.table(block([record(b"x", kind=7, index=3)])))
        self.assertIn("\n0 Metal-3 ", self.table(block(metal=[record(b"x", kind=3, index=3)])))

    def test_only_cuda(self):
        text = self.table(block([RTX], [NAVI], only_cuda=1))
        self.assertIn("RTX 4090", text)
        self.assertNotIn("Navi", text)

    def test_odd_names_keep_line_and_columns(self):
        text = self.table(odd_block())
        lines = text.splitlines()
        self.assertEqual(len(lines), 2 + len(ODD_NAMES))
        for character in text:
            self.assertTrue(character == "\n" or character.isprintable(), repr(character))
        column = lines[1].index("LOAD")
        for i, line in enumerate(lines[2:]):
            if i == 6:  # wide characters: fewer characters than columns
                self.assertIn("größer 日本語 😀 ½ ", line)
                continue
            self.assertEqual(line[column - 1:column + 5].strip(), f"{i}%", line)

    def test_wide_characters_count_two_columns(self):
        lines = self.table(block([record("日本".encode(), usage=1), record(b"abcd", usage=2)])).splitlines()
        self.assertEqual(lines[2].index("1%") + 2, lines[3].index("2%"))


class Json(unittest.TestCase):
    def report(self, data, **options):
        with Segment(data, **options) as segment:
            report = json.loads(run("--json", directory=segment.directory).stdout)
            self.assertEqual(report["segment"], f"{segment.directory}/{NAME}")
            return report

    def test_whole(self):
        report = self.report(block([RTX], [NAVI], summary=SUMMARY))
        self.assertEqual(list(report), ["formatVersion", "state", "message", "segment", "writerAttached", "published",
                                        "measuring", "ageSeconds", "publishedAt", "gpus", "summary", "totals"])
        self.assertEqual((report["formatVersion"], report["state"], report["writerAttached"]), (1, "ok", True))
        self.assertEqual(report["gpus"], [
            {"index": 0, "name": "NVIDIA GeForce RTX 4090", "kind": "Cuda", "kindCode": 1, "deviceIndex": 0,
             "listed": True, "figuresValid": True, "openclMatched": True, "optixCapable": True, "amdRayTracing": False,
             "usagePercent": 45, "temperatureCelsius": 60, "memoryTotalMiB": 24576, "memoryUsedMiB": 1024,
             "memoryFreeMiB": 23552, "speedGps": 123.45},
            {"index": 1, "name": "Navi 31", "kind": "AMD", "kindCode": 2, "deviceIndex": 0, "listed": True, "figuresValid": False,
             "openclMatched": False, "optixCapable": False, "amdRayTracing": True, "usagePercent": None,
             "temperatureCelsius": None, "memoryTotalMiB": 16384, "memoryUsedMiB": None, "memoryFreeMiB": None,
             "speedGps": None}])
        self.assertEqual(report["summary"], {
            "usagePercent": 45, "temperatureCelsius": 60, "memoryTotalMiB": 8192, "memoryUsedMiB": 1024,
            "memoryFreeMiB": 8192, "speedGps": 123.45})

    def test_zero_is_a_reading(self):
        gpu = self.report(block([IDLE]))["gpus"][0]
        self.assertEqual([gpu[name] for name in ("usagePercent", "temperatureCelsius", "memoryUsedMiB", "speedGps")],
                         [0, 0, 0, 0])

    def test_summary_markers_that_no_gpu_stands_behind(self):
        summary = self.report(block([record(b"x", usage=1)], summary=SUMMARY))["summary"]
        self.assertEqual({name for name, value in summary.items() if value is not None}, {"usagePercent"})

    def test_numbers_at_their_ends(self):
        gpu = self.report(block([record(b"x", usage=-2**31, temperature=2**31 - 1, total=-1, memory=(-5, 2**31 - 1),
                                        speed=3.4028234663852886e38, index=-7)]))["gpus"][0]
        self.assertEqual((gpu["usagePercent"], gpu["temperatureCelsius"], gpu["memoryTotalMiB"], gpu["deviceIndex"]),
                         (-2**31, 2**31 - 1, -1, -7))
        self.assertAlmostEqual(gpu["speedGps"] / 3.4028234663852886e38, 1.0, places=6)

    def test_scores_that_are_no_numbers(self):
        for speed in (float("nan"), float("inf"), float("-inf")):
            self.assertIsNone(self.report(block([record(b"x", speed=speed)]))["gpus"][0]["speedGps"])

    def test_odd_names(self):
        report = self.report(odd_block())
        self.assertEqual([gpu["name"] for gpu in report["gpus"]], [shown(name) for name in ODD_NAMES])

    def test_totals_are_not_the_summary(self):
        report = self.report(block([RTX, IDLE], [NAVI], [BARE], summary=SUMMARY))
        self.assertEqual(report["totals"], {"meanUsagePercent": 22.5, "totalMemoryMiB": 24576 + 8192 + 16384,
                                            "usedMemoryMiB": 1024, "hottestCelsius": 60})
        self.assertEqual(self.report(block([BARE]))["totals"], {
            "meanUsagePercent": None, "totalMemoryMiB": None, "usedMemoryMiB": None, "hottestCelsius": None})
        self.assertIsNone(self.report(block())["totals"])

    def test_no_control_character_is_left_raw(self):
        with Segment(odd_block()) as segment:
            for arguments in (["--json"], ["--prometheus"]):
                text = run(*arguments, directory=segment.directory).stdout.decode()
                self.assertEqual({character for character in text if unicodedata.category(character) == "Cc"}, {"\n"})

    def test_every_byte(self):
        names = [bytes([byte]) + b"z" for byte in range(1, 256)]
        for start in range(0, len(names), 16):
            part = names[start:start + 16]
            report = self.report(block([record(name) for name in part]))
            self.assertEqual([gpu["name"] for gpu in report["gpus"]], [shown(name) for name in part])

    def test_a_directory_with_an_odd_name(self):
        report = json.loads(run("--json", directory='/no "such\\\n\xff').stdout)
        self.assertEqual(report["segment"], f'/no "such\\\n\xff/{NAME}')


class Prometheus(unittest.TestCase):
    def families(self, data, **options):
        with Segment(data, **options) as segment:
            text = run("--prometheus", directory=segment.directory).stdout
        families = exposition.parse(text)
        self.assertEqual({family["type"] for family in families.values()}, {"gauge"})
        return families

    def value(self, families, name, gpu=None):
        found = [value for labels, value in families[name]["series"] if labels.get("gpu") == gpu]
        self.assertEqual(len(found), 1)
        return found[0]

    def test_whole(self):
        families = self.families(block([RTX, IDLE], [NAVI], summary=SUMMARY))
        self.assertEqual(list(families), [
            "qzgpuinfo_build_info", "qzgpuinfo_up", "qzgpuinfo_writer_attached", "qzgpuinfo_measuring",
            "qzgpuinfo_data_age_seconds", "qzgpuinfo_data_timestamp_seconds", "qzgpuinfo_gpus", "qzgpuinfo_gpu_info", "qzgpuinfo_gpu_figures_valid",
            "qzgpuinfo_gpu_opencl_matched", "qzgpuinfo_gpu_optix_capable", "qzgpuinfo_gpu_amd_ray_tracing",
            "qzgpuinfo_gpu_usage_ratio", "qzgpuinfo_gpu_temperature_celsius", "qzgpuinfo_gpu_memory_total_bytes",
            "qzgpuinfo_gpu_memory_used_bytes", "qzgpuinfo_gpu_memory_free_bytes", "qzgpuinfo_gpu_benchmark_score"])
        for name, gpu, value in (
                ("up", None, 1), ("writer_attached", None, 1), ("measuring", None, 0), ("gpus", None, 3), ("gpu_usage_ratio", "0", 0.45),
                ("gpu_usage_ratio", "1", 0), ("gpu_temperature_celsius", "0", 60), ("gpu_benchmark_score", "0", 123.45),
                ("gpu_memory_total_bytes", "0", 24576 * 2**20), ("gpu_memory_total_bytes", "2", 16384 * 2**20),
                ("gpu_memory_used_bytes", "0", 1024 * 2**20), ("gpu_memory_free_bytes", "0", 23552 * 2**20),
                ("gpu_optix_capable", "0", 1), ("gpu_optix_capable", "1", 0), ("gpu_amd_ray_tracing", "2", 1),
                ("gpu_amd_ray_tracing", "0", 0), ("gpu_opencl_matched", "0", 1), ("gpu_opencl_matched", "2", 0),
                ("gpu_figures_valid", "1", 1), ("gpu_info", "2", 1)):
            self.assertEqual(self.value(families, "qzgpuinfo_" + name, gpu), value, name)
        self.assertEqual(families["qzgpuinfo_gpu_info"]["series"][2][0],
                         {"gpu": "2", "kind": "AMD", "device": "0", "name": "Navi 31"})
        for name, absent in (("usage_ratio", "2"), ("temperature_celsius", "2"), ("memory_used_bytes", "2"),
                             ("benchmark_score", "2")):
            labels = [labels["gpu"] for labels, _ in families["qzgpuinfo_gpu_" + name]["series"]]
            self.assertNotIn(absent, labels)

    def test_the_datas_age(self):
        families = self.families(block([RTX]), age=100, flags=(*WRITER, MEASURING))
        self.assertAlmostEqual(self.value(families, "qzgpuinfo_data_age_seconds"), 100, delta=5)
        self.assertEqual([self.value(families, "qzgpuinfo_" + name) for name in ("up", "measuring")], [1, 1])

    def test_a_gpu_that_did_not_answer(self):
        families = self.families(block([record(b"x", valid=0, usage=5)]))
        self.assertEqual(self.value(families, "qzgpuinfo_gpu_figures_valid", "0"), 0)
        self.assertNotIn("qzgpuinfo_gpu_usage_ratio", families)

    def test_a_listed_gpu_that_did_not_answer(self):
        for figures, answers in (({}, 0), ({"total": 5, "speed": 1.0}, 0), ({"usage": 0}, 1), ({"temperature": 0}, 1),
                                 ({"memory": (0, 5)}, 1)):
            families = self.families(block([record(b"x", **figures)]))
            self.assertEqual(self.value(families, "qzgpuinfo_gpu_figures_valid", "0"), answers, figures)

    def test_memory_beyond_32_bits_of_bytes_and_below_zero(self):
        families = self.families(block([record(b"x", total=2**31 - 1, memory=(-1, 0))]))
        self.assertEqual(self.value(families, "qzgpuinfo_gpu_memory_total_bytes", "0"), (2**31 - 1) * 2**20)
        self.assertEqual(self.value(families, "qzgpuinfo_gpu_memory_used_bytes", "0"), -2**20)

    def test_an_unknown_kind(self):
        families = self.families(block([record(b"x", kind=200)]))
        self.assertEqual(families["qzgpuinfo_gpu_info"]["series"][0][0]["kind"], "unknown(200)")

    def test_no_gpu_series_while_the_data_are_not_fresh(self):
        cases = ((block([RTX]), {"flags": ()}, True), (block([RTX]), {"age": 4000}, True),
                 (block([RTX], ready=0), {}, True), (block([RTX], version=1), {}, True), (None, {}, False))
        for data, options, opened in cases:
            families = self.families(data, **options)
            self.assertEqual(self.value(families, "qzgpuinfo_up"), 0)
            self.assertFalse([name for name in families if name.startswith("qzgpuinfo_gpu")])
            self.assertEqual("qzgpuinfo_data_age_seconds" in families, opened)

    def test_odd_names(self):
        families = self.families(odd_block())
        self.assertEqual([labels["name"] for labels, _ in families["qzgpuinfo_gpu_info"]["series"]],
                         ["".join("\uFFFD" if unicodedata.category(character) == "Cc" else character
                                  for character in shown(name)) for name in ODD_NAMES])


if __name__ == "__main__":
    unittest.main(verbosity=2)
