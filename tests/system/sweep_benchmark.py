"""What one benchmark must do and print, whatever call fails: the rules of the run, step by step, as an oracle
for the fault sweep. Written from the rules, and on purpose not after the program."""

from sweep_machine import BUILD_LOG, ROUND_MS, WARM_UP_MS
from vendor_codes import opencl_name

CL_INVALID_COMMAND_QUEUE = -36
DURATION_MS = 6000
SCORE_FACTOR = 0.06409515220941284
LINE = "    GpuBenchmarkOpenCL: "


class BenchmarkOracle:
    """One run. Only the script's rounds advance the clock."""

    def __init__(self, libraries, log):
        self._libraries = libraries
        self._log = log
        self._now = 0
        self._pending = 0
        self._launched = 0
        self._objects = []
        self._buffers = 0

    def run(self):
        """The score; 0.0 for a run that failed."""
        score = 0.0
        if self._create("clCreateContext", "context") and self._create("clCreateCommandQueue", "queue"):
            score = self._measured()
            for _ in range(self._buffers):
                self._libraries.release("clReleaseMemObject", "buffer")
        for kind in ("kernel", "program", "queue", "context"):
            self._release(kind)
        return score

    def _measured(self):
        for name in ("A", "B", "Out"):
            if not self._created("clCreateBuffer", "buffer", f"clCreateBuffer {name}"):
                return 0.0
            self._buffers += 1
        self._libraries.call("clEnqueueWriteBuffer")
        self._libraries.call("clEnqueueWriteBuffer")
        if not self._build() or not self._warm_up():
            return 0.0
        scale = 2000.0 / (self._now * 10.0)
        self._log(4, f"{LINE}warmup avg {self._now:.1f} ms/round, GLOBAL_Iteratons_mod set to {scale:.2f}")
        return self._measure(scale) if self._build() else 0.0

    def _warm_up(self):
        enqueued, finished = self._round()
        if enqueued or finished:
            self._log(1, f"{LINE}warmup failed: {opencl_name(enqueued)} / {opencl_name(finished)}")
            if finished == CL_INVALID_COMMAND_QUEUE:
                # The driver has already discarded it.
                self._objects.remove("queue")
            return False
        return self._has_results("warmup produced zero results, kernel likely failed")

    def _measure(self, scale):
        rounds, begin = 0, self._now
        while self._now - begin < DURATION_MS:
            rounds, before = rounds + 1, self._now
            self._round()
            if self._now - before < 1:
                self._log(1, f"{LINE}round time < 1ms, kernel likely not running correctly")
                return 0.0
        average = (self._now - begin) / rounds
        if not self._has_results("results are zero after benchmark, kernel likely failed"):
            return 0.0
        score = SCORE_FACTOR * (scale * (134217728.0 / average)) / 1000.0
        self._log(4, f"{LINE}{rounds} rounds, avg {average:.2f} ms/round, performance {score:.3f} GPS")
        return score

    def _round(self):
        enqueued = self._libraries.call("clEnqueueNDRangeKernel")
        if enqueued == 0:
            self._launched += 1
            self._pending += WARM_UP_MS if self._launched == 1 else ROUND_MS
        finished = self._libraries.call("clFinish")
        if finished == 0:
            self._now += self._pending
            self._pending = 0
        return enqueued, finished

    def _has_results(self, message):
        read = self._libraries.call("clEnqueueReadBuffer") == 0
        if not read:
            self._log(1, LINE + message)
        return read

    def _build(self):
        self._release("kernel")
        self._release("program")
        if not self._create("clCreateProgramWithSource", "program"):
            return False
        if self._libraries.call("clBuildProgram") != 0:
            sized = self._libraries.call("clGetProgramBuildInfo") == 0
            fetched = self._libraries.call("clGetProgramBuildInfo") == 0
            self._log(1, f"{LINE}OpenCL build error:{BUILD_LOG if sized and fetched else ''}")
            return False
        if not self._create("clCreateKernel", "kernel"):
            return False
        for _ in range(3):
            self._libraries.call("clSetKernelArg")
        return True

    def _create(self, function, kind):
        created = self._created(function, kind, function)
        if created:
            self._objects.append(kind)
        return created

    def _created(self, function, kind, shown):
        status = self._libraries.create(function, kind)
        if status != 0:
            self._log(1, f"{LINE}{shown} failed: {opencl_name(status)}")
        return status == 0

    def _release(self, kind):
        function = {"kernel": "clReleaseKernel", "program": "clReleaseProgram", "queue": "clReleaseCommandQueue",
                    "context": "clReleaseContext"}[kind]
        if kind in self._objects:
            self._objects.remove(kind)
            self._libraries.release(function, kind)
