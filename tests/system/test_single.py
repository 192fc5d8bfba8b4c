"""Single runs on a machine without GPUs: what they print, how they end, and that they leave /dev/shm alone."""

import itertools
import os
import shutil
import signal
import sys
import unittest

import qz
from qz import (CONTINUOUS, CREATED, INIT, LONG_BANNER, NO_GPU, NO_GPU_REPORT, NO_GPU_VERBOSE, SHORT_BANNER, SINGLE,
                VERBOSE)

DRIVERS = qz.BUILD / "tests/system/drivers"
PLAIN = SHORT_BANNER + INIT + NO_GPU + SINGLE
WHOLE = SHORT_BANNER + VERBOSE + INIT + NO_GPU_VERBOSE + SINGLE + NO_GPU_REPORT
QUERIES = ["-queryNvCuda", "-queryNvOptix", "-queryAmdRt", "-queryGPU"]


class Options(qz.SandboxCase):
    def test_plain_output(self):
        for arguments in (["-single"], ["-single", "-bench"], ["-benchShort", "-single"], ["-returnGPS"],
                          *([query] for query in QUERIES), QUERIES, [*QUERIES, "-returnGPS"],
                          ["-queryGPU", "-bench"]):
            with self.subTest(arguments):
                self.assertEqual(self.sandbox().run(*arguments), (0, PLAIN))

    def test_verbose_output(self):
        for arguments in (["-v", "-single"], ["-single", "-debug"], ["-v", "-debug", "-v", "-single"],
                          ["-queryGPU", "-v"], ["-debug", "-returnGPS"]):
            with self.subTest(arguments):
                self.assertEqual(self.sandbox().run(*arguments), (0, WHOLE))

    def test_what_is_no_option_is_ignored(self):
        for argument in ("-V", "-verbose", "--v", "-", "--help", "-h", "-singl", "-singlex", "-Single", "-querygpu",
                         "-\u00e4", "-%s%n", "-" + "x" * 9999, "-v" + "x" * 9998, "-single" + "x" * 94):
            with self.subTest(argument[:20]):
                self.assertEqual(self.sandbox().run(argument, "-single"), (0, PLAIN))

    def test_what_qt_takes_away_is_no_argument(self):
        run = self.sandbox().start("-qmljsdebugger=port:1")
        run.wait_for(CONTINUOUS)
        self.assertEqual(run.stop(), (0, LONG_BANNER + INIT + CREATED + NO_GPU + CONTINUOUS))

    def test_a_name_changes_nothing_in_a_single_run(self):
        for names in (["render"], [""], ["render", "other"], ["n" * 10000]):
            with self.subTest(names[0][:20]):
                self.assertEqual(self.sandbox().run(*names, "-v", "-single"), (0, WHOLE))

    def test_nothing_goes_to_standard_error(self):
        run = self.sandbox().start("-v", "-single")
        run.end()
        self.assertEqual(run.errors, "")

    def test_no_argument_vector_at_all(self):
        sandbox = self.sandbox()
        call = ("import ctypes, os; e = (ctypes.c_char_p * 1)(None); "
                f"ctypes.CDLL(None).execve({qz.PROGRAM.encode()!r}, e, e)")
        run = sandbox.start(command=[sys.executable, "-c", call])
        run.wait_for(CONTINUOUS)
        self.assertEqual(run.stop(), (0, LONG_BANNER + INIT + CREATED + NO_GPU + CONTINUOUS))


class Segment(qz.SandboxCase):
    def test_it_is_left_alone(self):
        for arguments in (["-single"], ["-returnGPS"], *([query] for query in QUERIES)):
            with self.subTest(arguments):
                sandbox = self.sandbox()
                sandbox.plant(b"not ours", 0o640)
                os.utime(sandbox.segment, ns=(1, 1))
                before = sandbox.segment.stat()
                self.assertEqual(sandbox.run(*arguments), (0, PLAIN))
                after = sandbox.segment.stat()
                self.assertEqual((after.st_ctime_ns, after.st_atime_ns, after.st_mode, after.st_ino),
                                 (before.st_ctime_ns, 1, before.st_mode, before.st_ino))
                self.assertEqual(os.listdir(sandbox.folder), [qz.NAME])

    def test_it_is_not_made(self):
        sandbox = self.sandbox()
        sandbox.run("-queryGPU")
        self.assertEqual(os.listdir(sandbox.folder), [])

    def test_none_is_needed(self):
        for shm in ("none", 4096, "read-only"):
            with self.subTest(shm):
                self.assertEqual(self.sandbox(shm=shm).run("-v", "-single"), (0, WHOLE))

    @unittest.skipUnless(shutil.which("strace"), "strace is not installed")
    def test_it_is_not_even_looked_for(self):
        sandbox = self.sandbox()
        trace = sandbox.outside / "trace"
        sandbox.run("-queryGPU", shell=f'exec strace -f -o {trace} "$0" "$@"')
        text = trace.read_text("utf-8", "replace")
        if "+++ exited" not in text:
            self.skipTest("nothing can be traced here")
        self.assertIn("/sys/class/drm", text)
        self.assertNotIn("/dev/shm", text)


class Order(qz.SandboxCase):
    """What is flushed, when events are processed, how timers are set and objects connected; a library that sits between
    writes it down."""

    FLUSHED = "[output flushed]\n[errors flushed]\n"
    EVENTS = "[events]\n"
    NO_OPENCL = "OpenCL: required functions not found\n"
    CONNECTED = "[connected]\n"  # by the automatic type
    QUIT = "[quit]\n"
    WATCHING = 2 * CONNECTED + "[timer 5000 precise]\n" + EVENTS
    WATCHING_ENDED = "[timer 5000 destroyed]\n"
    UPDATING = "[timer 4000 precise]\n"
    ENDED = "driver ends\n"  # the shut-down of NVIDIA's library
    DESTROYED = "[timer 4000 destroyed]\n"
    NEVER_STARTED = "[timer 0 destroyed]\n"
    DETECTED = INIT + NO_OPENCL + FLUSHED + qz.NO_AMD + FLUSHED

    def start(self, *arguments, sandbox=None, **environment):
        library = DRIVERS / "tellsOrder/libtellsOrder.so.1"
        # The sanitizers' library must come first.
        command = f'exec env LD_PRELOAD={library} ASAN_OPTIONS=verify_asan_link_order=0 "$0" "$@"'
        # Without a real OpenCL, which may act at exit.
        libraries = f"{DRIVERS / 'slowEnd'}:{DRIVERS / 'incompleteOpenCL'}"
        sandbox = sandbox or self.sandbox()
        return sandbox.start(*arguments, shell=command, LD_LIBRARY_PATH=libraries, **environment)

    def expect(self, ended, expected, exit_code=0):
        """The advice on OpenCL left out."""
        code, output = ended
        lines = set(expected.splitlines(keepends=True))
        self.assertEqual((code, "".join(line for line in output.splitlines(keepends=True) if line in lines)),
                         (exit_code, expected))

    def test_of_a_single_run(self):
        ran = (SHORT_BANNER + self.CONNECTED + self.FLUSHED + self.DETECTED + SINGLE + 2 * self.FLUSHED + self.EVENTS +
               self.QUIT + self.EVENTS + self.ENDED)
        for arguments, watching, watched in ((["-single"], "", ""),
                                             (["render", "-single"], self.WATCHING, self.WATCHING_ENDED)):
            with self.subTest(arguments):
                self.expect(self.start(*arguments).end(),
                            watching + ran + watched + self.FLUSHED + self.NEVER_STARTED)

    STARTED = (SHORT_BANNER + 3 * CONNECTED + FLUSHED + INIT + CREATED + DETECTED[len(INIT):] + CONTINUOUS + FLUSHED +
               UPDATING + EVENTS)

    def test_of_a_continuous_run(self):
        run = self.start("-bench")
        run.wait_for(self.EVENTS)
        self.expect(run.stop(), self.STARTED + self.QUIT + self.FLUSHED + self.ENDED + self.DESTROYED)

    def test_of_a_watching_run(self):
        run = self.start("qzNobody")
        nobody = "Process 'qzNobody' does  not exist, closing...\n"
        self.expect(run.end(), self.WATCHING + self.STARTED + nobody + self.QUIT + self.WATCHING_ENDED + self.FLUSHED +
                    self.ENDED + self.DESTROYED)

    def test_of_a_failed_start(self):
        run = self.start("render", sandbox=self.sandbox(shm="none"))
        self.expect(run.end(), self.WATCHING + SHORT_BANNER + 3 * self.CONNECTED + self.FLUSHED + INIT +
                    self.WATCHING_ENDED + self.FLUSHED + self.NEVER_STARTED, exit_code=1)

    def test_the_event_loops_result_is_the_exit_code(self):
        self.assertEqual(self.start("-bench", QZ_TEST_EXIT="5").end()[0], 5)


class Streams(qz.SandboxCase):
    def test_closed_in_every_combination(self):
        streams = ("<&-", ">&-", "2>&-")
        for count in range(1, 4):
            for closed in itertools.combinations(streams, count):
                for null in (True, False):
                    with self.subTest(closed, null=null):
                        code, output = self.sandbox(null=null).run("-v", "-single",
                                                                   shell=f'exec "$0" "$@" {" ".join(closed)}')
                        self.assertEqual((code, output), (0, "" if ">&-" in closed else WHOLE))

    def test_full(self):
        self.assertEqual(self.sandbox().run("-v", "-single", shell='exec "$0" "$@" > /dev/full')[0], 0)

    def test_a_file_that_reaches_the_size_limit(self):
        sandbox = self.sandbox()
        written = sandbox.outside / "output"
        self.assertEqual(sandbox.run("-v", "-single", shell=f'ulimit -f 0; exec "$0" "$@" > {written}')[0], 0)
        self.assertEqual(written.read_text("utf-8"), "")

    def test_reader_that_is_gone(self):
        reading, writing = os.pipe()
        os.close(reading)
        run = self.sandbox().start("-v", "-single", stdout=writing)
        os.close(writing)
        self.assertEqual(run.end(), (0, ""))


class Vendors(qz.SandboxCase):
    def card(self):
        """The folder of one AMD card."""
        drm = self.sandbox().outside
        device = drm / "card0" / "device"
        device.mkdir(parents=True)
        for name, text in (("vendor", "0x1002"), ("product_name", "A Card"), ("mem_info_vram_total", str(8 << 30))):
            (device / name).write_text(text + "\n")
        return drm

    def test_a_text_file_is_no_library(self):
        sandbox = self.sandbox()
        for name in ("libnvidia-ml.so.1", "libnvidia-ml.so"):
            (sandbox.outside / name).write_text("INPUT(libnvidia-ml.so.1)\n")
        self.assertEqual(sandbox.run("-v", "-single", LD_LIBRARY_PATH=str(sandbox.outside)), (0, WHOLE))

    def test_a_library_that_lacks_an_entry_point(self):
        code, output = self.sandbox().run("-v", "-single", LD_LIBRARY_PATH=str(DRIVERS / "incompleteNvml"))
        lacking = "GpuNvml_Loader: required functions not found\n[closed]\n"  # printed before the library's code runs
        self.assertEqual((code, output), (0, WHOLE.replace(qz.NO_NVML, lacking)))

    def test_what_is_no_opencl(self):
        texts = self.sandbox().outside
        for name in ("libOpenCL.so.1", "libOpenCL.so"):
            (texts / name).write_text("text\n")
        for path, line in ((texts, "OpenCL library not found\n"),
                           (DRIVERS / "incompleteOpenCL", "OpenCL: required functions not found\n")):
            with self.subTest(line):
                code, output = self.sandbox(drm=self.card()).run("-queryGPU", LD_LIBRARY_PATH=str(path))
                self.assertEqual(code, 1)
                self.assertTrue(output.startswith(SHORT_BANNER + INIT + qz.NO_NVML + line + "\n"), output)
                self.assertTrue(output.endswith("1 AMD GPU(s) found (no OpenCL, no benchmark)\n" + SINGLE), output)

    def test_a_signal_ends_a_single_run_at_once(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number):
                sandbox = self.sandbox()
                run = sandbox.start("-single", LD_LIBRARY_PATH=str(DRIVERS / "slow"),
                                    QZ_TEST_GO=str(sandbox.outside / "go"))
                run.wait_for("driver starts\n")
                self.assertEqual(run.stop(number), (128 + number, SHORT_BANNER + INIT + "driver starts\n"))


if __name__ == "__main__":
    qz.main()
