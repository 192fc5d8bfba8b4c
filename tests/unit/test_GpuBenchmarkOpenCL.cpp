// A complete run of the benchmark: its calls, their arguments and its result.
#include <cmath>

#include <QTest>

#include "tests/unit/BenchmarkRun.h"
#include "tests/unit/testRows.h"

class TestGpuBenchmarkOpenCL : public QObject {
    Q_OBJECT

  private slots:
    void init() { prepareBenchmark(); }

    void cleanup() { checkNothingIsLeft(); }

    void geometry() {
        const BenchmarkGeometry& real = benchmarkGeometry;
        QCOMPARE(real.global[0], std::size_t(32768));
        QCOMPARE(real.global[1], std::size_t(4096));
        QCOMPARE(real.local[0], std::size_t(256));
        QCOMPARE(real.local[1], std::size_t(1));
        QCOMPARE(real.elements(), std::size_t(134217728));
        QCOMPARE(real.bytes(), std::size_t(536870912));
    }

    void wholeRun() {
        FakeOpenCL::script().roundMs = {12, 30};
        const Outcome outcome = run(0.02); // one warm-up round, one measured
        const QStringList round = {
            "clEnqueueNDRangeKernel(queue1, kernel%1, 2, null, {256, 2}, {256, 1}, 0, null, null)",
            "clFinish(queue1)"};
        const QStringList read = {"clEnqueueReadBuffer(queue1, buffer3, 1, 0, 16, 0, null, null)"};
        const auto build = [](const QString& n) {
            return QStringList{"clCreateProgramWithSource(context1, 1, null)",
                               "clBuildProgram(program" + n + ", 1, device0.0, null, null, null)",
                               "clCreateKernel(program" + n + ", benchmarkKernel)",
                               "clSetKernelArg(kernel" + n + ", 0, 8, buffer1)",
                               "clSetKernelArg(kernel" + n + ", 1, 8, buffer2)",
                               "clSetKernelArg(kernel" + n + ", 2, 8, buffer3)"};
        };
        const QStringList expected =
            QStringList{"clCreateContext(null, 1, device0.0, null, null)",
                        "clCreateCommandQueue(context1, device0.0, 0)",
                        "clCreateBuffer(context1, 4, 2048, null)", // read only
                        "clCreateBuffer(context1, 4, 2048, null)",
                        "clCreateBuffer(context1, 2, 2048, null)", // write only
                        "clEnqueueWriteBuffer(queue1, buffer1, 1, 0, 2048, 0, null, null)",
                        "clEnqueueWriteBuffer(queue1, buffer2, 1, 0, 2048, 0, null, null)"} +
            build("1") + QStringList(round).replaceInStrings("%1", "1") + read +
            QStringList{"clReleaseKernel(kernel1)", "clReleaseProgram(program1)"} + build("2") +
            QStringList(round).replaceInStrings("%1", "2") + read +
            QStringList{"clReleaseMemObject(buffer1)", "clReleaseMemObject(buffer2)",
                        "clReleaseMemObject(buffer3)", "clReleaseKernel(kernel2)",
                        "clReleaseProgram(program2)",  "clReleaseCommandQueue(queue1)",
                        "clReleaseContext(context1)"};
        QCOMPARE(FakeCalls::all(), expected);
        QVERIFY(outcome.score > 0.0F);
        QCOMPARE(outcome.printed.count('\n'), 2);
    }

    void notLoaded() {
        GpuOpenCL_Loader::unload();
        FakeCalls::reset();
        GpuBenchmarkOpenCL_Context context;
        auto* mark = reinterpret_cast<cl_context>(std::uintptr_t(0x77));
        context.context = mark;
        const Outcome outcome = run(0.02, context);
        QCOMPARE(outcome.score, 0.0F);
        QCOMPARE(outcome.printed, QByteArray());
        QCOMPARE(FakeCalls::all(), QStringList());
        QVERIFY(context.context == mark && context.device == nullptr);
        QCOMPARE(GLOBAL_Iteratons_mod, 1.0F);
        context.context = nullptr;
    }

    void leftoversAreReleasedFirst() {
        GpuBenchmarkOpenCL_Context context;
        GpuBenchmarkOpenCL::createContext(context, FakeOpenCL::device(0, 0));
        GpuBenchmarkOpenCL::buildKernel(context);
        FakeCalls::reset();
        QVERIFY(run(0.01, context).score > 0.0F);
        QCOMPARE(FakeCalls::all().mid(0, 5),
                 QStringList({"clReleaseKernel(kernel1)", "clReleaseProgram(program1)",
                              "clReleaseCommandQueue(queue1)", "clReleaseContext(context1)",
                              "clCreateContext(null, 1, device0.0, null, null)"}));
        QVERIFY(context.context == nullptr && context.queue == nullptr && context.program == nullptr &&
                context.kernel == nullptr);
    }

    void inputData() {
        run(0.01);
        const std::vector<float>& a = FakeOpenCL::written(0);
        const std::vector<float>& b = FakeOpenCL::written(1);
        QCOMPARE(a.size(), small.elements());
        QCOMPARE(b.size(), small.elements());
        std::srand(123);
        for (std::size_t i = 0; i < small.elements(); ++i) {
            QCOMPARE(a[i], static_cast<float>(std::rand()) / 2147483648.0F);
            QCOMPARE(b[i], static_cast<float>(std::rand()) / 2147483648.0F);
        }
#ifdef __GLIBC__
        // What the GNU C library's generator gives for this seed, so that a change of seed or generator
        // shows.
        QCOMPARE(a[0], static_cast<float>(128959393) / 2147483648.0F);
        QCOMPARE(b[0], static_cast<float>(1692901013) / 2147483648.0F);
#endif
        QVERIFY(std::all_of(a.begin(), a.end(), [](float value) { return value >= 0.0F && value <= 1.0F; }));
    }

    void sameDataInEveryRun() {
        run(0.01);
        run(0.01);
        QCOMPARE(FakeOpenCL::written(0), FakeOpenCL::written(2));
        QCOMPARE(FakeOpenCL::written(1), FakeOpenCL::written(3));
        QVERIFY(FakeOpenCL::written(0) != FakeOpenCL::written(1));
    }

    void scaleIsKeptBetweenRuns() {
        run(0.01);
        const float calibrated = GLOBAL_Iteratons_mod;
        QVERIFY(calibrated > 0.1F);
        FakeCalls::fail("clCreateBuffer", -4);
        run(0.01); // ends before the scale is set again
        QCOMPARE(GLOBAL_Iteratons_mod, calibrated);
        FakeCalls::heal();
        FakeCalls::fail("clBuildProgram", -11);
        run(0.01); // ends after that
        QCOMPARE(GLOBAL_Iteratons_mod, 0.1F);
    }

    void warmupRounds_data() {
        const auto row = testColumns<int, double, int, QByteArray>("limitMs", "roundMs", "rounds", "average");
        row("one is longer than the limit", 4, 5.0, 1, "5.0");
        row("one ends at the limit", 4, 4.0, 1, "4.0");
        row("two", 4, 3.0, 2, "3.0");
        row("four of the shortest", 4, 1.0, 4, "1.0");
        row("short limit", 1, 1.0, 1, "1.0");
        row("long limit", 50, 20.9, 3, "20.7"); // 62 ms / 3
    }

    // The limit is checked before each round.
    void warmupRounds() {
        QFETCH(int, limitMs);
        QFETCH(double, roundMs);
        QFETCH(QByteArray, average);
        benchmarkWarmupMs = limitMs;
        FakeOpenCL::script().roundMs = {roundMs};
        const Outcome outcome = run(0.0);
        QTEST(FakeCalls::count("clFinish"), "rounds");
        QVERIFY2(outcome.printed.startsWith("    GpuBenchmarkOpenCL: warmup avg " + average + " ms/round, "),
                 outcome.printed.constData());
    }

    void noWarmupRound() {
        benchmarkWarmupMs = 0;
        const Outcome outcome = run(0.02);
        QStringList calls = FakeCalls::of({"clFinish", "clEnqueueReadBuffer"});
        QVERIFY(
            calls.first().startsWith("clEnqueueReadBuffer")); // no round before the results are first read
        QVERIFY2(outcome.printed.startsWith(
                     "    GpuBenchmarkOpenCL: warmup avg nan ms/round, GLOBAL_Iteratons_mod set to nan\n"),
                 outcome.printed.constData());
        QVERIFY(std::isnan(GLOBAL_Iteratons_mod));
        QVERIFY(FakeOpenCL::sources().at(1).contains("i < nan;"));
        QVERIFY(std::isnan(outcome.score));
    }

    // The process is delayed between the timer's start and its first reading.
    void noWarmupRoundInSomeTime() {
        VirtualTime::passAtReadings(5.0);
        FakeCalls::during("clEnqueueReadBuffer", [] { VirtualTime::passAtReadings(0.0); });
        const Outcome outcome = run(0.02);
        QVERIFY(
            FakeCalls::of({"clFinish", "clEnqueueReadBuffer"}).value(0).startsWith("clEnqueueReadBuffer"));
        QVERIFY2(outcome.printed.startsWith(
                     "    GpuBenchmarkOpenCL: warmup avg inf ms/round, GLOBAL_Iteratons_mod set to 0.00\n"),
                 outcome.printed.constData());
        QCOMPARE(GLOBAL_Iteratons_mod, 0.0F);
        QVERIFY(FakeOpenCL::sources().at(1).contains("i < 0;"));
        QCOMPARE(outcome.lastLine(), QByteArray("2 rounds, avg 10.00 ms/round, performance 0.000 GPS"));
        QCOMPARE(outcome.score, 0.0F);
    }

    void readingTheResultsIsNotTimed() {
        FakeOpenCL::script().roundMs = {20.0, 25.0};
        FakeCalls::during("clEnqueueReadBuffer", [] { VirtualTime::pass(1000.0); });
        const Outcome outcome = run(0.1);
        QVERIFY2(outcome.printed.startsWith("    GpuBenchmarkOpenCL: warmup avg 20.0 ms/round, "),
                 outcome.printed.constData());
        QVERIFY2(outcome.lastLine().startsWith("4 rounds, avg 25.00 ms/round, "),
                 outcome.printed.constData());
    }

    void durationIsTruncated_data() {
        // rounds: of 20 ms
        const auto row = testColumns<double, int>("seconds", "rounds");
        row("zero", 0.0, 0);
        row("less than a millisecond", 0.000999, 0);
        row("a millisecond", 0.001, 1);
        row("two rounds' time", 0.04, 2);
        row("and less than a millisecond", 0.0409, 2);
        row("and a millisecond", 0.041, 3);
        row("the long run", 25.0, 1250);
        row("negative", -5.0, 0);
    }

    void durationIsTruncated() {
        QFETCH(double, seconds);
        FakeOpenCL::script().roundMs = {20};
        const Outcome outcome = run(seconds);
        QTEST(FakeCalls::count("clFinish") - 1, "rounds"); // all but the one of the warm-up
        if (FakeCalls::count("clFinish") == 1)
            QVERIFY(std::isnan(outcome.score)); // no time and no round: no number
    }

    void lastRoundMayEndLate() {
        FakeOpenCL::script().roundMs = {20.0, 2000.0};
        const Outcome outcome = run(6.0);
        QCOMPARE(outcome.lastLine(), QByteArray("3 rounds, avg 2000.00 ms/round, performance 43.014 GPS"));
        FakeCalls::reset();
        QVERIFY(run(5.0).printed.contains("3 rounds, avg 2000.00 ms/round"));
    }

    void levels_data() {
        const auto row = testColumns<int, int>("level", "lines");
        row("4", 4, 2);
        row("3", 3, 0);
    }

    void levels() {
        QFETCH(int, level);
        logLevel = level;
        QTEST(static_cast<int>(run(0.005).printed.count('\n')), "lines");
    }
};

QTEST_APPLESS_MAIN(TestGpuBenchmarkOpenCL)
#include "test_GpuBenchmarkOpenCL.moc"
