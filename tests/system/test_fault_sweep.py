"""Every entry point of every vendor table, failing at its first, second and last call and always, with the codes
that the vendor publishes, in every run mode. What each run has to say, to answer and to leave behind is worked out
by an oracle (sweep_oracle.py), line by line and call by call.

The usual run takes every entry point, mode and call with one code, and every code once. QZ_SWEEP=full takes
the whole product, and some benchmarks on buffers of the real size; QZ_SWEEP=5 every fifth combination of the
usual run."""

import contextlib
import itertools
import os
import re
import signal
import tempfile
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass, replace
from typing import Tuple

import simulated
import sweep_machine
import vendor_codes
from simulated import BUILD, PROGRAM, SimulatedCase
from sweep_benchmark import CL_INVALID_COMMAND_QUEUE
from sweep_machine import ALWAYS, Fault, Libraries
from sweep_oracle import Oracle

SWEEP = os.environ.get("QZ_SWEEP", "1")
SMALL_BENCHMARK = BUILD / "tests/harness/smallBenchmark"

MODES = {"single": ("-single", "-v"), "queryNvCuda": ("-queryNvCuda",), "queryNvOptix": ("-queryNvOptix",),
         "queryAmdRt": ("-queryAmdRt",), "queryGPU": ("-queryGPU",),
         "returnGPS": ("-returnGPS", "-benchShort", "-v"), "bench": ("-single", "-benchShort", "-v"),
         "continuous": ("-v",), "continuous bench": ("-benchShort", "-v")}
CYCLES = 2
END_OF_A_CYCLE = "\nUpdated shared memory block\n"

# The CUDA runtimes of a machine, and whether the driver's own library is there.
BOTH_WAYS, PLAIN_RUNTIME, DRIVER_ALONE = ((12, 11), True), ((13,), False), ((), True)
# Functions that must fail for this one to be called.
REASONS = {"nvmlErrorString": (Fault("nvmlInit_v2", 9),), "clGetProgramBuildInfo": (Fault("clBuildProgram", -11),)}
# A code that means more than "failed" to the program.
REMARKABLE = {"clFinish": CL_INVALID_COMMAND_QUEUE}

# These take longer on a busy machine: a figure and its tolerance.
CLOCKED = re.compile(r"warmup avg|performance|: Speed: ")
NUMBER = re.compile(r"\d+\.\d+")


@dataclass(frozen=True)
class Combination:
    """One run of the sweep: a mode, a machine, and its failing or missing functions."""

    mode: str
    machine: Tuple[Tuple[int, ...], bool]
    faults: Tuple[Fault, ...] = ()
    omitted: Tuple[Tuple[str, str], ...] = ()
    real_buffers: bool = False

    @property
    def continuous(self):
        return self.mode.startswith("continuous")

    @property
    def benchmarks(self):
        return "-benchShort" in MODES[self.mode]

    def fault_lines(self):
        return ([fault.line() for fault in self.faults] +
                [f"{library} = omit {function}" for library, function in self.omitted])

    def expected(self, cycles=CYCLES):
        """The oracle, after its run, and its libraries."""
        libraries = Libraries(*self.machine, self.faults, frozenset(self.omitted))
        return Oracle(libraries, MODES[self.mode], cycles if self.continuous else 1), libraries

    def __str__(self):
        return f"{self.mode}, CUDA {self.machine}: " + ("; ".join(self.fault_lines()) or "nothing fails")


def codes_of(function):
    if function == "nvmlErrorString":
        return [1]  # it has no code: failing, it gives no text
    for codes, begin in ((vendor_codes.NVML, "nvml"), (vendor_codes.CUDA_RUNTIME, "cuda"),
                         (vendor_codes.OPENCL, "cl")):
        if function.startswith(begin):
            return codes
    return vendor_codes.CUDA_DRIVER


def entry_points():
    """Every one with the machine on which it is called."""
    for function in (*sweep_machine.NVML, *sweep_machine.OPENCL, "cudaGetDeviceCount", "cudaGetDeviceProperties_v2"):
        yield function, BOTH_WAYS
    yield "cudaGetDeviceProperties", PLAIN_RUNTIME
    for function in sweep_machine.CUDA_DRIVER:
        yield function, DRIVER_ALONE


def calls_that_fail(function, machine, mode):
    """First and last failing call: the first, the second, the last one, and all of them; none where the function is
    not called in that mode."""
    _, libraries = Combination(mode, machine, REASONS.get(function, ())).expected()
    count = libraries.calls[function]
    if count == 0:
        return []
    single = dict.fromkeys(call for call in (1, 2, count) if call <= count)
    return [(call, call) for call in single] + [(1, ALWAYS)]


def product():
    """Every combination but for the codes: the function, and the run with its fault's code still open."""
    for (function, machine), mode in itertools.product(entry_points(), MODES):
        for first, last in calls_that_fail(function, machine, mode):
            yield function, Combination(mode, machine, (*REASONS.get(function, ()), Fault(function, 0, first, last)))


def with_code(combination, code):
    return replace(combination, faults=(*combination.faults[:-1], replace(combination.faults[-1], code=code)))


def usual_combinations():
    """Each function, mode and call with a different code, and then the function's other codes, going round the calls
    of a mode in which it matters."""
    by_function = {}
    for function, combination in product():
        by_function.setdefault(function, []).append(combination)
    for function, combinations in by_function.items():
        codes = codes_of(function)
        for number, combination in enumerate(combinations):
            yield with_code(combination, codes[number * 7 % len(codes)])
            if function in REMARKABLE:
                yield with_code(combination, REMARKABLE[function])
        quick = [each for each in combinations if each.mode == "single"]
        quick = itertools.cycle(quick or [each for each in combinations if each.mode == "bench"])
        yield from (with_code(next(quick), code) for code in codes)


def full_combinations():
    for function, combination in product():
        for code in codes_of(function):
            yield with_code(combination, code)


def combinations_without_a_symbol():
    libraries = [(sweep_machine.NVML_LIBRARY, sweep_machine.NVML, BOTH_WAYS),
                 (sweep_machine.OPENCL_LIBRARY, sweep_machine.OPENCL, BOTH_WAYS),
                 (sweep_machine.DRIVER_LIBRARY, sweep_machine.CUDA_DRIVER, DRIVER_ALONE)]
    for version, machine in ((12, BOTH_WAYS), (11, ((11,), True)), (13, PLAIN_RUNTIME)):
        functions = dict.fromkeys(("cudaGetDeviceCount", sweep_machine.PROPERTIES[version], "cudaGetDeviceProperties"))
        libraries.append((sweep_machine.RUNTIME_LIBRARY[version], functions, machine))
    for library, functions, machine in libraries:
        for function in functions:
            reasons = REASONS.get(function, ())
            yield Combination("bench", machine, reasons, ((library, function),))


def same_line(expected, seen):
    if expected == seen or (expected.endswith("VERSION") and seen.startswith(expected[:-len("VERSION")])):
        return True
    if not CLOCKED.search(expected) or NUMBER.sub("", expected).split() != NUMBER.sub("", seen).split():
        return False
    pairs = zip(NUMBER.findall(expected), NUMBER.findall(seen))
    return all(abs(float(one) - float(other)) <= 0.15 * float(one) for one, other in pairs)


def text_of(file):
    return os.pread(file, os.fstat(file).st_size, 0).decode("utf-8", "backslashreplace")


class Stage:
    """The machines of the sweep, each laid out once, and the runs on them."""

    def __init__(self, case):
        self._case = case
        self._machines = {}
        self._lock = threading.Lock()

    def run(self, combination):
        """The differences of a run from the oracle; empty if there are none."""
        # A file, since cycles that take no time fill a pipe faster than it is read, and a companion drops lines then.
        with self._lock, tempfile.TemporaryFile() as output:
            simulation = self._machine(combination)
            simulation.faults = combination.fault_lines()
            run = simulation.start(*MODES[combination.mode], stdout=output)
            written = os.dup(output.fileno())
        try:
            if combination.continuous:
                deadline = time.monotonic() + 120
                while run.is_running and time.monotonic() < deadline and text_of(written).count(END_OF_A_CYCLE) < CYCLES:
                    time.sleep(0.005)
                with contextlib.suppress(ProcessLookupError):  # what is missing is a difference
                    run.send(signal.SIGTERM)
            run.wait(120)
            return differences(combination, run, text_of(written))
        finally:
            os.close(written)
            with self._lock:
                simulation.forget(run)

    def _machine(self, combination):
        key = (combination.machine, combination.omitted, combination.benchmarks and not combination.real_buffers)
        if key not in self._machines:
            omitted = [f"{library} = omit {function}" for library, function in combination.omitted]
            self._machines[key] = self._case.described(sweep_machine.description(*combination.machine), omitted,
                                                       program=SMALL_BENCHMARK if key[2] else PROGRAM)
        return self._machines[key]


def differences(combination, run, output):
    """Of a run from what the oracle says."""
    lines = output.split("\n")
    oracle, libraries = combination.expected(sum("update current usage" in line for line in lines))
    oracle.lines.append("")
    wrong = []
    for number, (expected, seen) in enumerate(itertools.zip_longest(oracle.lines, lines)):
        if expected is None or seen is None or not same_line(expected, seen):
            wrong.append(f"line {number + 1} is {seen!r}, not {expected!r}")
            break
    report = run.report
    facts = (("exit code", run.exit_code, oracle.exit_code), ("standard error", run.errors, ""),
             ("live objects", report.live, {kind: count for kind, count in libraries.live.items() if count}),
             ("misuse", report.misuse, {}), ("libraries closed", report.closes, dict(libraries.closes)),
             ("calls", {name: count for name, count in report.calls.items() if "#" not in name},
              dict(libraries.calls)))
    return wrong + [f"{name}: {only(seen, expected)!r}, not {only(expected, seen)!r}"
                    for name, seen, expected in facts if seen != expected]


def only(one, other):
    """Of two counts by name, the differing ones of the first; anything else unchanged."""
    return {name: one.get(name, 0) for name in {**one, **other}
            if one.get(name) != other.get(name)} if isinstance(one, dict) else one


class FaultSweep(SimulatedCase):
    # A machine that stalls for milliseconds in the middle of a round makes the benchmark see another time than
    # the script says. Such a run is repeated, and counted.
    def setUp(self):
        self.stage = Stage(self)
        self.repeated = 0

    def wrong(self, combination):
        found = self.stage.run(combination)
        attempts = 1
        while found and combination.benchmarks and attempts < 3:
            attempts += 1
            self.repeated += 1
            found = self.stage.run(combination)
        return found

    def sweep(self, combinations):
        """Runs them all; those that mostly wait for the timer side by side, the others a few at a time, and those that
        take a gibibyte two at a time."""
        begin = time.monotonic()
        combinations = list(dict.fromkeys(combinations))
        patient = [each for each in combinations if each.continuous]
        quick = [each for each in combinations if not each.continuous]
        bad = []

        def check(combination):
            if len(bad) >= 10:
                return
            found = self.wrong(combination)
            if found:
                bad.append(f"{combination}\n    " + "\n    ".join(found))

        many, few = (96 if SWEEP == "full" else 32), 2 * (os.cpu_count() or 1)
        few = 2 if any(each.real_buffers for each in combinations) else few
        with ThreadPoolExecutor(many) as waiting, ThreadPoolExecutor(few) as busy:
            checks = [pool.submit(check, each) for pool, runs in ((waiting, patient), (busy, quick)) for each in runs]
            for each in checks:
                each.result()
        print(f"{self.id().rpartition('.')[2]}: {len(combinations)} combinations tried in "
              f"{time.monotonic() - begin:.0f} s, {self.repeated} runs repeated", flush=True)
        if bad:
            self.fail("\n" + "\n".join(bad))

    def test_nothing_fails(self):
        self.sweep(Combination(mode, machine) for mode in MODES
                   for machine in (BOTH_WAYS, PLAIN_RUNTIME, DRIVER_ALONE))

    def test_every_entry_point_fails(self):
        if SWEEP == "full":
            self.sweep(full_combinations())
        else:
            self.sweep(itertools.islice(usual_combinations(), 0, None, int(SWEEP)))

    def test_every_symbol_is_missing(self):
        self.sweep(combinations_without_a_symbol())

    def test_on_buffers_of_the_real_size(self):
        chosen = [with_code(replace(combination, real_buffers=True), codes_of(function)[0])
                  for function, combination in product() if combination.mode == "bench" and function.startswith("cl")]
        if SWEEP != "full":
            chosen = chosen[::len(chosen) // 2 + 1]
        self.sweep(chosen)


if __name__ == "__main__":
    simulated.main()
