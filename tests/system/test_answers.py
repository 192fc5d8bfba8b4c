"""The program's answers on simulated machines: the exit codes of its queries, and the score it returns."""

import re

import simulated
from simulated import MACHINES, Expected, SimulatedCase, description

QUERIES = ("queryGPU", "queryNvCuda", "queryNvOptix", "queryAmdRt")

SCORE = re.compile(r"    GpuBenchmarkOpenCL: (\d+) rounds, avg ([0-9.]+) ms/round, performance ([0-9.]+) GPS")
SCALE = re.compile(r"    GpuBenchmarkOpenCL: warmup avg ([0-9.]+) ms/round, GLOBAL_Iteratons_mod set to ([0-9.]+)")

NVIDIA = """
[os-release]
id = debian
[nvidia]
name = NVIDIA One
bus = 0x01
compute = {compute}
utilisation = 10
temperature = 40
memory_total = 8GiB
memory_used = 1GiB
[opencl]
mode = scripted
[platform]
name = NVIDIA CUDA
[device]
name = NVIDIA One
nv_bus = 0x01
"""


class Queries(SimulatedCase):
    def test_each_query_on_each_machine(self):
        for machine in MACHINES:
            simulation = self.simulation(machine)
            expected = Expected(machine)
            self.assertLessEqual(expected.queries, set(QUERIES))
            for query in QUERIES:
                with self.subTest(machine=machine, query=query):
                    run = simulation.run("-" + query)
                    self.assertEqual((run.exit_code, run.report.live, run.report.misuse),
                                     (int(query in expected.queries), expected.left_over, {}))

    def test_several_queries_answer_together(self):
        simulation = self.simulation("amd-card")
        self.assertEqual(simulation.run("-queryNvCuda", "-queryNvOptix").exit_code, 0)
        self.assertEqual(simulation.run("-queryNvCuda", "-queryAmdRt").exit_code, 1)
        self.assertEqual(simulation.run("-queryNvCuda", "-queryGPU").exit_code, 1)

    def test_optix_begins_with_compute_capability_7_5(self):
        for compute, answer in (("6.9", 0), ("7.0", 0), ("7.4", 0), ("7.5", 1), ("8.0", 1), ("12.0", 1)):
            with self.subTest(compute):
                run = self.described(NVIDIA.format(compute=compute)).run("-queryNvOptix")
                self.assertEqual(run.exit_code, answer)

    def test_a_query_does_not_benchmark(self):
        run = self.simulation("scripted").run("-queryGPU", "-bench", "-v")
        self.assertEqual(run.exit_code, 1)
        self.assertNotIn("Benchmark", run.output)
        self.assertNotIn("clCreateContext", run.report.calls)

    def test_a_query_with_the_score_asked_for_benchmarks_and_answers_the_query(self):
        run = self.simulation("scripted").run("-queryNvOptix", "-returnGPS", "-benchShort", "-v")
        self.assertEqual(run.exit_code, 1)
        self.assertEqual(len(SCORE.findall(run.output)), 2)


class Scores(SimulatedCase):
    """With rounds of a scripted length the score can be computed."""

    def test_the_score_of_the_first_gpu_is_the_exit_code(self):
        # Warm-up 50 ms: scale 2000 / (50 * 10) = 4. Rounds of 2000 ms: 0.06409515 * (4 * (2^27 / 2000)) / 1000.
        expected = 0.06409515220941284 * ((4.0 * (134217728.0 / 2000.0)) / 1000.0)
        run = self.simulation("scripted").run("-returnGPS", "-benchShort", "-v")
        text = run.output
        self.assertIn("  NVIDIA Scripted: running 6s Benchmark(openCL) ...\n", text)
        self.assertIn("  Radeon Scripted: running 6s Benchmark(openCL) ...\n", text)
        self.assertEqual(SCALE.findall(text), [("50.0", "4.00")] * 2)
        self.assertEqual(SCORE.findall(text), [("3", "2000.00", f"{expected:.3f}")] * 2)
        self.assertEqual(run.exit_code, int(expected + 0.5))
        self.assertEqual((run.report.live, run.report.misuse), ({}, {}))

    def test_the_long_benchmark_lasts_25_seconds(self):
        run = self.simulation("scripted").run("-single", "-bench", "-v")
        text = run.output
        self.assertIn("  NVIDIA Scripted: running 25s Benchmark(openCL) ...\n", text)
        self.assertEqual([rounds for rounds, _, _ in SCORE.findall(text)], ["13", "13"])

    def test_the_short_benchmark_warms_up_for_a_shorter_time(self):
        # A warm-up round of 3 ms is past the limit of 1 ms, and before the limit of 4 ms, where one of 2000 ms follows.
        # A busy machine makes rounds a little longer.
        machine = description("scripted").replace("50, 2000", "3, 2000")
        for option, shortest, longest in (("-benchShort", 3.0, 100.0), ("-bench", 1001.5, 1100.0)):
            run = self.described(machine).run("-single", "-v", option)
            averages = [float(average) for average, _ in SCALE.findall(run.output)]
            self.assertEqual(len(averages), 2)
            for average in averages:
                self.assertTrue(shortest <= average < longest, (option, averages))

    def test_the_program_of_each_build(self):
        run = self.simulation("scripted").run("-single", "-benchShort")
        bounds = [re.search(r"i < (\S+); i\+\+", kernel)[1] for kernel in run.kernels]
        self.assertEqual(bounds, ["883.3", "35332"] * 2)
        self.assertEqual({len(kernel) for kernel in run.kernels}, {347 - len("%1") + len("883.3")})

    def test_no_score_without_an_opencl_device(self):
        run = self.simulation("no-opencl").run("-returnGPS", "-benchShort")
        self.assertEqual(run.exit_code, 0)
        self.assertIn("unable to run Benchmark(openCL), device_HardwareID is NULL", run.output)

    def test_each_gpu_without_a_device_is_named(self):
        lines = self.lines(self.simulation("no-opencl").run("-single", "-bench"))
        self.assertEqual([line for line in lines if "unable" in line],
                         ["  Tesla T4 Other-0: unable to run Benchmark(openCL), device_HardwareID is NULL",
                          "  AMD Instinct MI210 AMD-0: unable to run Benchmark(openCL), device_HardwareID is NULL"])

    def test_a_kernel_that_is_really_compiled_and_run(self):
        run = self.simulation("workstation").run("-single", "-benchShort", "-v", timeout=170)
        scores = SCORE.findall(run.output)
        self.assertEqual(len(scores), 1, run.output)
        rounds, average, score = scores[0]
        self.assertGreaterEqual(int(rounds) * float(average), 6000)
        self.assertGreater(float(score), 0)
        self.assertEqual((run.exit_code, run.report.live, run.report.misuse), (0, {}, {}))


if __name__ == "__main__":
    simulated.main()
