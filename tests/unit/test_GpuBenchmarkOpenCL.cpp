// The benchmark's run where every call succeeds: what is called, with what, and what comes out.
#include <cmath>
#include <cstring>
#include <limits>

#include <QtTest>

#include "app/log/logLine.h"
#include "opencl/GpuBenchmarkOpenCL.h"
#include "opencl/GpuOpenCL_Loader.h"
#include "opencl/benchmarkSettings.h"
#include "tests/unit/CaptureStdout.h"
#include "tests/unit/FakeCalls.h"
#include "tests/unit/FakeOpenCL.h"

using GpuBenchmarkOpenCL::Geometry;

namespace {

constexpr Geometry small = {{256, 2}, {256, 1}};

/// One run and what came of it.
struct Outcome {
    float score = -1.0F;
    QByteArray printed;

    /// The capture groups of the one line that fits `pattern` wholly; nothing when there is none.
    QStringList figures(const QString& pattern) const {
        const QRegularExpression whole("^    GpuBenchmarkOpenCL: " + pattern + "$",
                                       QRegularExpression::MultilineOption);
        return whole.match(QString::fromUtf8(printed)).capturedTexts().mid(1);
    }
};

Outcome run(double seconds, GpuBenchmarkOpenCL_Context& context) {
    Outcome outcome;
    outcome.printed = printedBy(
        [&] { outcome.score = GpuBenchmarkOpenCL::run(context, FakeOpenCL::device(0, 0), seconds, small); });
    return outcome;
}

Outcome run(double seconds) {
    GpuBenchmarkOpenCL_Context context;
    return run(seconds, context);
}

const QString warmupLine = "warmup avg (.*) ms/round, GLOBAL_Iteratons_mod set to (.*)";
const QString resultLine = "(.*) rounds, avg (.*) ms/round, performance (.*) GPS";

} // namespace

Q_DECLARE_METATYPE(std::vector<int>)

class TestGpuBenchmarkOpenCL : public QObject {
    Q_OBJECT

  private slots:
    void init();
    void cleanup();
    void geometry();
    void wholeRun();
    void notLoaded();
    void leftoversAreReleasedFirst();
    void inputData();
    void sameDataInEveryRun();
    void calibration();
    void scaleIsKeptBetweenRuns();
    void warmupRounds();
    void noWarmupRound();
    void durationIsTruncated_data();
    void durationIsTruncated();
    void lastRoundMayEndLate();
    void score_data();
    void score();
    void measuringFailuresAreNotLookedAt();
    void levels_data();
    void levels();
    void notANumberIsAResult_data();
    void notANumberIsAResult();
};

void TestGpuBenchmarkOpenCL::init() {
    logLevel = 5;
    benchmarkWarmupMs = 4;
    GLOBAL_Iteratons_mod = 1.0F;
    GpuOpenCL_Loader::unload();
    FakeLoader::reset();
    FakeOpenCL::install({{"p", {FakeClDevice()}}});
    GpuOpenCL_Loader::load(FakeLoader::functions());
    FakeCalls::reset();
}

void TestGpuBenchmarkOpenCL::cleanup() {
    QCOMPARE(FakeOpenCL::liveObjects(), QStringList());
    QCOMPARE(FakeOpenCL::misuses(), QStringList());
}

void TestGpuBenchmarkOpenCL::geometry() {
    const Geometry real;
    QCOMPARE(real.global[0], std::size_t(32768));
    QCOMPARE(real.global[1], std::size_t(4096));
    QCOMPARE(real.local[0], std::size_t(256));
    QCOMPARE(real.local[1], std::size_t(1));
    QCOMPARE(real.elements(), std::size_t(134217728));
    QCOMPARE(real.bytes(), std::size_t(536870912));
}

void TestGpuBenchmarkOpenCL::wholeRun() {
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

void TestGpuBenchmarkOpenCL::notLoaded() {
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

void TestGpuBenchmarkOpenCL::leftoversAreReleasedFirst() {
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

void TestGpuBenchmarkOpenCL::inputData() {
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
    // What the GNU C library's generator gives for this seed, so that a change of seed or generator shows.
    QCOMPARE(a[0], static_cast<float>(128959393) / 2147483648.0F);
    QCOMPARE(b[0], static_cast<float>(1692901013) / 2147483648.0F);
#endif
    QVERIFY(std::all_of(a.begin(), a.end(), [](float value) { return value >= 0.0F && value <= 1.0F; }));
}

void TestGpuBenchmarkOpenCL::sameDataInEveryRun() {
    run(0.01);
    run(0.01);
    QCOMPARE(FakeOpenCL::written(0), FakeOpenCL::written(2));
    QCOMPARE(FakeOpenCL::written(1), FakeOpenCL::written(3));
    QVERIFY(FakeOpenCL::written(0) != FakeOpenCL::written(1));
}

void TestGpuBenchmarkOpenCL::calibration() {
    FakeOpenCL::script().roundMs = {25, 10};
    const Outcome outcome = run(0.01);
    const QStringList warmup = outcome.figures(warmupLine);
    QCOMPARE(warmup.size(), 2);
    const double averageMs = warmup[0].toDouble(); // of one round: a whole number
    QVERIFY2(averageMs >= 25.0 && averageMs < 2000.0, outcome.printed.constData());
    QCOMPARE(warmup[0], QString::number(averageMs, 'f', 1));
    QCOMPARE(GLOBAL_Iteratons_mod, static_cast<float>(2000.0 / (averageMs * 10.0)));
    QCOMPARE(warmup[1], QString::number(static_cast<double>(GLOBAL_Iteratons_mod), 'f', 2));
    const std::vector<QByteArray> sources = {GpuBenchmarkOpenCL::kernelSource(0.1F),
                                             GpuBenchmarkOpenCL::kernelSource(GLOBAL_Iteratons_mod)};
    QCOMPARE(FakeOpenCL::sources(), sources);
}

void TestGpuBenchmarkOpenCL::scaleIsKeptBetweenRuns() {
    run(0.01);
    const float calibrated = GLOBAL_Iteratons_mod;
    QVERIFY(calibrated > 0.1F);
    FakeCalls::fail("clCreateBuffer", -4);
    run(0.01); // ends before the scale is set anew
    QCOMPARE(GLOBAL_Iteratons_mod, calibrated);
    FakeCalls::heal();
    FakeCalls::fail("clBuildProgram", -11);
    run(0.01); // ends after that
    QCOMPARE(GLOBAL_Iteratons_mod, 0.1F);
}

// The limit is looked at before each round.
void TestGpuBenchmarkOpenCL::warmupRounds() {
    benchmarkWarmupMs = 50;
    FakeOpenCL::script().roundMs = {20};
    const Outcome outcome = run(0.0);
    const int rounds = FakeCalls::count("clFinish");
    QVERIFY2(rounds >= 2 && rounds <= 3, QByteArray::number(rounds));
    const double averageMs = outcome.figures(warmupLine).value(0).toDouble();
    QVERIFY2(averageMs >= 20.0 && averageMs * rounds >= 50.0, outcome.printed.constData());
}

void TestGpuBenchmarkOpenCL::noWarmupRound() {
    benchmarkWarmupMs = 0;
    const Outcome outcome = run(0.02);
    QStringList calls = FakeCalls::of({"clFinish", "clEnqueueReadBuffer"});
    QVERIFY(calls.first().startsWith("clEnqueueReadBuffer")); // no round before the first look at the results
    QVERIFY2(outcome.printed.startsWith(
                 "    GpuBenchmarkOpenCL: warmup avg nan ms/round, GLOBAL_Iteratons_mod set to nan\n"),
             outcome.printed.constData());
    QVERIFY(std::isnan(GLOBAL_Iteratons_mod));
    QVERIFY(FakeOpenCL::sources().at(1).contains("i < nan;"));
    QVERIFY(std::isnan(outcome.score));
}

void TestGpuBenchmarkOpenCL::durationIsTruncated_data() {
    QTest::addColumn<double>("seconds");
    QTest::addColumn<int>("rounds"); // of 20 ms
    QTest::newRow("zero") << 0.0 << 0;
    QTest::newRow("less than a millisecond") << 0.000999 << 0;
    QTest::newRow("long enough for one") << 0.0099 << 1;
    QTest::newRow("negative") << -5.0 << 0;
}

void TestGpuBenchmarkOpenCL::durationIsTruncated() {
    QFETCH(double, seconds);
    FakeOpenCL::script().roundMs = {20};
    const Outcome outcome = run(seconds);
    QTEST(FakeCalls::count("clFinish") - 1, "rounds"); // all but the one of the warm-up
    if (FakeCalls::count("clFinish") == 1)
        QVERIFY(std::isnan(outcome.score)); // no time and no round: no number
}

void TestGpuBenchmarkOpenCL::lastRoundMayEndLate() {
    FakeOpenCL::script().roundMs = {20, 100};
    const Outcome outcome = run(0.15); // 0 and 100 are below it, 200 is not
    QCOMPARE(FakeCalls::count("clFinish") - 1, 2);
    QCOMPARE(outcome.figures(resultLine).value(0), QString("2"));
}

void TestGpuBenchmarkOpenCL::score_data() {
    QTest::addColumn<std::vector<int>>("roundMs");
    QTest::addColumn<double>("seconds");
    QTest::newRow("uneven rounds") << std::vector<int>{20, 30, 35, 41} << 0.1;
    // A score of about a million, whose three decimals show the formula's last digits.
    QTest::newRow("short rounds") << std::vector<int>{4, 1} << 0.02;
}

void TestGpuBenchmarkOpenCL::score() {
    QFETCH(double, seconds);
    QFETCH(std::vector<int>, roundMs);
    FakeOpenCL::script().roundMs = roundMs;
    const Outcome outcome = run(seconds);
    const QStringList result = outcome.figures(resultLine);
    QCOMPARE(result.size(), 3);
    const double rounds = result[0].toDouble();
    QCOMPARE(rounds, static_cast<double>(FakeCalls::count("clFinish") - 1));
    // The total is a whole number of milliseconds, so the rounded average tells it.
    const double totalMs = std::round(result[1].toDouble() * rounds);
    const double averageMs = totalMs / rounds;
    QCOMPARE(result[1], QString::number(averageMs, 'f', 2));
    QVERIFY2(totalMs >= 1000.0 * seconds && averageMs >= roundMs[1], outcome.printed.constData());
    const double gps = 0.06409515220941284 *
                       ((static_cast<double>(GLOBAL_Iteratons_mod) * (134217728.0 / averageMs)) / 1000.0);
    const auto expected = static_cast<float>(gps);
    QVERIFY2(std::memcmp(&expected, &outcome.score, sizeof expected) == 0, outcome.printed.constData());
    QCOMPARE(result[2], QString::number(gps, 'f', 3));
}

void TestGpuBenchmarkOpenCL::measuringFailuresAreNotLookedAt() {
    for (const char* call : {"clEnqueueWriteBuffer", "clSetKernelArg"})
        FakeCalls::fail(call, -5);
    FakeCalls::fail("clEnqueueNDRangeKernel", -5, 2); // the first is the warm-up's
    FakeCalls::fail("clFinish", -36, 2);
    for (const char* call : {"clReleaseMemObject", "clReleaseKernel", "clReleaseCommandQueue"})
        FakeCalls::fail(call, -5);
    const Outcome outcome = run(0.005);
    QVERIFY(outcome.score > 0.0F);
    QCOMPARE(outcome.printed.count("failed"), 0);
    QCOMPARE(FakeCalls::count("clReleaseCommandQueue"), 1);
}

void TestGpuBenchmarkOpenCL::levels_data() {
    QTest::addColumn<int>("level");
    QTest::addColumn<int>("lines");
    QTest::newRow("4") << 4 << 2;
    QTest::newRow("3") << 3 << 0;
}

void TestGpuBenchmarkOpenCL::levels() {
    QFETCH(int, level);
    logLevel = level;
    QTEST(static_cast<int>(run(0.005).printed.count('\n')), "lines");
}

void TestGpuBenchmarkOpenCL::notANumberIsAResult_data() {
    QTest::addColumn<int>("place");
    QTest::addColumn<float>("value");
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (int place = 0; place < 4; ++place) {
        QTest::addRow("NaN at %d", place) << place << nan;
        QTest::addRow("tiny at %d", place) << place << std::numeric_limits<float>::denorm_min();
    }
}

void TestGpuBenchmarkOpenCL::notANumberIsAResult() {
    QFETCH(int, place);
    QFETCH(float, value);
    std::vector<float> results(4, 0.0F);
    results[static_cast<std::size_t>(place)] = value;
    FakeOpenCL::script().results = {results};
    QVERIFY(run(0.005).score > 0.0F);
}

QTEST_APPLESS_MAIN(TestGpuBenchmarkOpenCL)
#include "test_GpuBenchmarkOpenCL.moc"
