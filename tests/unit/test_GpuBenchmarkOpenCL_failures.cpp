// Failing runs of the benchmark: the message, the calls that are not checked, and that nothing is leaked.
#include <functional>

#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <QFile>
#include <QTest>

#include "opencl/errorName.h"
#include "tests/unit/BenchmarkRun.h"
#include "tests/unit/ChildProcess.h"
#include "tests/unit/testRows.h"

// Two tests ask for more memory than there is.
extern "C" const char* __asan_default_options() { // NOLINT(bugprone-reserved-identifier)
    return "allocator_may_return_null=1";
}

namespace {

// Arrays of 256 KiB: large enough to stand out in the heap's figures.
constexpr BenchmarkGeometry arrays = {{256, 256}, {256, 1}};

// More than any machine has.
constexpr BenchmarkGeometry tooLarge = {{std::size_t(1) << 40, 1024}, {256, 1}};

/// A short run, which measures one round.
Outcome attempt(const BenchmarkGeometry& geometry = arrays) {
    return run(0.005, geometry);
}

/// A run that fails with this message.
void fails(const QByteArray& message, const BenchmarkGeometry& geometry = arrays) {
    const Outcome outcome = attempt(geometry);
    QCOMPARE(outcome.printed, message);
    QCOMPARE(outcome.score, 0.0F);
}

/// Bytes on the process's heap; 0 under a sanitizer, which looks for leaks itself.
std::size_t heapBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

const QStringList releases = {"clReleaseMemObject", "clReleaseKernel", "clReleaseProgram",
                              "clReleaseCommandQueue", "clReleaseContext"};

} // namespace

Q_DECLARE_METATYPE(std::function<void()>)

class TestGpuBenchmarkOpenCL_failures : public QObject {
    Q_OBJECT

  private slots:
    void init() { prepareBenchmark(1); }

    void cleanup() { checkNothingIsLeft(); }

    void failingCall_data() {
        testColumns<QString, int, int, bool, QByteArray>("call", "nth", "status", "givesObject", "text");
        const auto rows = [](const QString& call, int nth, const QByteArray& text) {
            for (int status : {-1, -4, -5, -6, -36, -59, -9999, 1})
                for (bool givesObject : {false, true})
                    QTest::addRow("%s %d: %d%s", qPrintable(call), nth, status, givesObject ? ", object" : "")
                        << call << nth << status << givesObject
                        << benchmarkLine(QByteArray(text).replace("%1", errorName(status)));
        };
        rows("clCreateContext", 1, "clCreateContext failed: %1");
        rows("clCreateCommandQueue", 1, "clCreateCommandQueue failed: %1");
        rows("clCreateBuffer", 1, "clCreateBuffer A failed: %1");
        rows("clCreateBuffer", 2, "clCreateBuffer B failed: %1");
        rows("clCreateBuffer", 3, "clCreateBuffer Out failed: %1");
        for (int nth : {1, 2}) {
            rows("clCreateProgramWithSource", nth, "clCreateProgramWithSource failed: %1");
            rows("clBuildProgram", nth, "OpenCL build error:no such type");
            rows("clCreateKernel", nth, "clCreateKernel failed: %1");
        }
        rows("clEnqueueNDRangeKernel", 1, "warmup failed: %1 / CL_SUCCESS");
        rows("clEnqueueReadBuffer", 1, "warmup produced zero results, kernel likely failed");
        rows("clEnqueueReadBuffer", 2, "results are zero after benchmark, kernel likely failed");
    }

    void failingCall() {
        QFETCH(QString, call);
        QFETCH(int, nth);
        QFETCH(int, status);
        QFETCH(bool, givesObject);
        FakeCalls::fail(call, status, nth);
        if (givesObject && call.startsWith("clCreate"))
            FakeCalls::setAnswers(call, true);
        QFETCH(QByteArray, text);
        const std::size_t before = heapBytes();
        fails(text);
        FakeOpenCL::install({{"p", {FakeClDevice()}}}); // its copies of the data are gone
        QVERIFY2(heapBytes() < before + (64U << 10), "host memory is leaked");
    }

    void releases_data() {
        const auto row = testColumns<QString, int, QStringList>("call", "nth", "released");
        const auto buffers = [](int count) {
            QStringList calls;
            for (int i = 1; i <= count; ++i)
                calls.append(QStringLiteral("clReleaseMemObject(buffer%1)").arg(i));
            return calls;
        };
        const QStringList kernel = {"clReleaseKernel(kernel1)"};
        const QStringList program = {"clReleaseProgram(program1)"};
        const QStringList queue = {"clReleaseCommandQueue(queue1)", "clReleaseContext(context1)"};
        row("context", "clCreateContext", 1, QStringList());
        row("queue", "clCreateCommandQueue", 1, {"clReleaseContext(context1)"});
        row("buffer A", "clCreateBuffer", 1, queue);
        row("buffer B", "clCreateBuffer", 2, buffers(1) + queue);
        row("buffer Out", "clCreateBuffer", 3, buffers(2) + queue);
        row("program", "clCreateProgramWithSource", 1, buffers(3) + queue);
        row("build", "clBuildProgram", 1, buffers(3) + program + queue);
        row("kernel", "clCreateKernel", 1, buffers(3) + program + queue);
        row("enqueue", "clEnqueueNDRangeKernel", 1, buffers(3) + kernel + program + queue);
        row("read", "clEnqueueReadBuffer", 1, buffers(3) + kernel + program + queue);
        row("program again", "clCreateProgramWithSource", 2, kernel + program + buffers(3) + queue);
    }

    void releases() {
        QFETCH(QString, call);
        QFETCH(int, nth);
        FakeCalls::fail(call, -5, nth);
        attempt();
        QTEST(FakeCalls::of(::releases), "released");
    }

    // A driver may still be reading the arrays.
    void hostArraysOutliveTheBuffers() {
        if (heapBytes() == 0)
            QSKIP("a sanitizer keeps the heap's figures to itself");
        std::vector<std::size_t> atRelease;
        FakeCalls::during("clReleaseMemObject", [&] { atRelease.push_back(heapBytes()); });
        attempt();
        QCOMPARE(atRelease.size(), std::size_t(3));
        for (const std::size_t bytes : atRelease)
            QVERIFY(bytes > heapBytes() + arrays.bytes()); // more than one of the two
    }

    void warmupFails_data() {
        const auto row = testColumns<int, int, bool>("enqueued", "finished", "queueReleased");
        row("enqueue", -54, 0, true);
        row("enqueue: the queue is invalid", -36, 0, true);
        row("finish", 0, -5, true);
        row("finish: the queue is invalid", 0, -36, false);
        row("both", -5, -6, true);
        row("both, the queue is invalid", -36, -36, false);
        row("finish: its neighbours", 0, -35, true);
        row("finish: and", 0, -37, true);
        row("finish: positive", 0, 36, true);
    }

    void warmupFails() {
        QFETCH(int, enqueued);
        QFETCH(int, finished);
        QFETCH(bool, queueReleased);
        FakeCalls::fail("clEnqueueNDRangeKernel", enqueued);
        FakeCalls::fail("clFinish", finished);
        fails(
            benchmarkLine(QByteArray("warmup failed: ") + errorName(enqueued) + " / " + errorName(finished)));
        QCOMPARE(FakeCalls::count("clFinish"), 1); // called even when nothing was enqueued
        QCOMPARE(FakeCalls::count("clReleaseCommandQueue"), queueReleased ? 1 : 0);
        QCOMPARE(FakeCalls::count("clReleaseMemObject"), 3);
        QCOMPARE(FakeCalls::count("clReleaseContext"), 1);
        if (!queueReleased) {
            QCOMPARE(FakeOpenCL::liveObjects(), QStringList("queue1"));
            FakeOpenCL::install({}); // the driver has lost it, so there is nothing to release
        }
    }

    void zeroResults_data() {
        testColumns<float, int, QByteArray>("zero", "read", "text");
        for (float zero : {0.0F, -0.0F}) {
            QTest::addRow("warm-up %g", zero)
                << zero << 0 << benchmarkLine("warmup produced zero results, kernel likely failed");
            QTest::addRow("end %g", zero)
                << zero << 1 << benchmarkLine("results are zero after benchmark, kernel likely failed");
        }
    }

    void zeroResults() {
        QFETCH(float, zero);
        QFETCH(int, read);
        auto& results = FakeOpenCL::script().results;
        results = {{1.0F, 2.0F, 3.0F, 4.0F}, {1.0F, 2.0F, 3.0F, 4.0F}};
        results[static_cast<std::size_t>(read)].assign(4, zero);
        QFETCH(QByteArray, text);
        fails(text);
    }

    void warmupTooFast_data() {
        const auto row = testColumns<double, QByteArray>("roundMs", "average");
        row("a quarter", 0.25, "0.25");
        row("two decimals", 0.333, "0.31"); // 4 ms / 13
        row("just below", 0.999, "0.80");   // 4 ms / 5
        row("next to nothing", 0.001, "0.00");
    }

    void warmupTooFast() {
        QFETCH(double, roundMs);
        QFETCH(QByteArray, average);
        FakeOpenCL::script().roundMs = {roundMs};
        fails(benchmarkLine("warmup avg round time < 1ms (" + average +
                            "ms), kernel likely not running correctly"));
        QCOMPARE(FakeCalls::count("clEnqueueReadBuffer"), 1); // the results are checked first
    }

    void roundTooFast_data() {
        const auto row = testColumns<double>("roundMs");
        row("none", 0.0);
        row("just below", 0.999);
    }

    void roundTooFast() {
        QFETCH(double, roundMs);
        FakeOpenCL::script().roundMs = {10.0, 1.0, roundMs}; // one millisecond is enough
        fails(benchmarkLine("round time < 1ms, kernel likely not running correctly"));
        QCOMPARE(FakeCalls::count("clFinish"), 3);
        QCOMPARE(FakeCalls::count("clEnqueueReadBuffer"), 1);
    }

    void levels_data() {
        QTest::addColumn<std::function<void()>>("spoil");
        QTest::addColumn<bool>("noMemory");
        const auto row = [](const char* name, const std::function<void()>& spoil, bool noMemory = false) {
            QTest::newRow(name) << spoil << noMemory;
        };
        row("no memory", [] {}, true);
        for (int nth : {1, 2, 3})
            row(qPrintable(QString("buffer %1").arg(nth)),
                [nth] { FakeCalls::fail("clCreateBuffer", -4, nth); });
        row("warm-up fails", [] { FakeCalls::fail("clFinish", -5); });
        row("zero results of the warm-up", [] { FakeCalls::fail("clEnqueueReadBuffer", -5, 1); });
        row("warm-up too fast", [] { FakeOpenCL::script().roundMs = {0.25}; });
        row("round too fast", [] { FakeOpenCL::script().roundMs = {10.0, 0.0}; });
        row("zero results", [] { FakeCalls::fail("clEnqueueReadBuffer", -5, 2); });
    }

    void levels() {
        QFETCH(std::function<void()>, spoil);
        QFETCH(bool, noMemory);
        for (int level : {0, 1}) {
            init();
            spoil();
            logLevel = level;
            const Outcome outcome = attempt(noMemory ? tooLarge : arrays);
            QCOMPARE(outcome.printed.count('\n'), level);
            QCOMPARE(outcome.score, 0.0F);
        }
    }

    void noMemory() {
        fails(benchmarkLine("malloc failed"), tooLarge);
        QCOMPARE(FakeCalls::all(),
                 QStringList({"clCreateContext(null, 1, device0.0, null, null)",
                              "clCreateCommandQueue(context1, device0.0, 0)", "clReleaseCommandQueue(queue1)",
                              "clReleaseContext(context1)"}));
    }

    // A process that may allocate 700 MiB, and asks for 512 MiB twice.
    void noMemoryForTheSecondArray() {
#ifdef __SANITIZE_ADDRESS__
        QSKIP("the sanitizer's own memory does not fit under a limit");
#else
        ChildProcess child([] {
            QFile statm("/proc/self/statm");
            statm.open(QIODevice::ReadOnly);
            const rlim_t now =
                statm.readAll().split(' ').first().toULongLong() * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
            const rlimit limit = {now + (rlim_t(700) << 20), now + (rlim_t(700) << 20)};
            setrlimit(RLIMIT_AS, &limit);
            const Outcome outcome = attempt(BenchmarkGeometry());
            return outcome.score == 0.0F && outcome.printed == benchmarkLine("malloc failed") &&
                           FakeOpenCL::liveObjects().isEmpty()
                       ? 0
                       : 1;
        });
        QCOMPARE(child.result(), 0);
#endif
    }

    void nextRunIsUnaffected() {
        for (const char* failing : {"clCreateBuffer", "clBuildProgram", "clFinish"}) {
            FakeCalls::fail(failing, -4, 1);
            QCOMPARE(attempt().score, 0.0F);
            FakeCalls::heal();
            QVERIFY(attempt().score > 0.0F);
        }
    }

    void measuringFailuresAreIgnored() {
        logLevel = 5;
        for (const char* call : {"clEnqueueWriteBuffer", "clSetKernelArg"})
            FakeCalls::fail(call, -5);
        FakeCalls::fail("clEnqueueNDRangeKernel", -5, 2); // the first is the warm-up's
        FakeCalls::fail("clFinish", -36, 2);
        for (const char* call : {"clReleaseMemObject", "clReleaseKernel", "clReleaseCommandQueue"})
            FakeCalls::fail(call, -5);
        const Outcome outcome = attempt();
        QVERIFY(outcome.score > 0.0F);
        QCOMPARE(outcome.printed.count("failed"), 0);
        QCOMPARE(FakeCalls::count("clReleaseCommandQueue"), 1);
    }
};

QTEST_APPLESS_MAIN(TestGpuBenchmarkOpenCL_failures)
#include "test_GpuBenchmarkOpenCL_failures.moc"
