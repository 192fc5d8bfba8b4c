// The score that the benchmark computes from its rounds' times.
#include <cmath>
#include <cstring>
#include <limits>

#include <QTest>

#include "tests/unit/BenchmarkRun.h"
#include "tests/unit/testRows.h"

Q_DECLARE_METATYPE(std::vector<double>)

class TestGpuBenchmarkOpenCL_score : public QObject {
    Q_OBJECT

  private slots:
    void init() { prepareBenchmark(); }

    void cleanup() { checkNothingIsLeft(); }

    void calibration_data() {
        const auto row = testColumns<double, float, QByteArray>("roundMs", "scale", "figures");
        row("25 ms", 25.0, 8.0F, "25.0 ms/round, GLOBAL_Iteratons_mod set to 8.00");
        row("whole milliseconds count", 25.9, 8.0F, "25.0 ms/round, GLOBAL_Iteratons_mod set to 8.00");
        row("the target", 200.0, 1.0F, "200.0 ms/round, GLOBAL_Iteratons_mod set to 1.00");
        row("no round number", 7.0, 28.571428F, "7.0 ms/round, GLOBAL_Iteratons_mod set to 28.57");
        row("slow", 12345.0, 0.016200891F, "12345.0 ms/round, GLOBAL_Iteratons_mod set to 0.02");
    }

    void calibration() {
        QFETCH(double, roundMs);
        QFETCH(float, scale);
        QFETCH(QByteArray, figures);
        FakeOpenCL::script().roundMs = {roundMs, 10.0};
        const Outcome outcome = run(0.01);
        QVERIFY2(outcome.printed.startsWith("    GpuBenchmarkOpenCL: warmup avg " + figures + "\n"),
                 outcome.printed.constData());
        QVERIFY2(std::memcmp(&GLOBAL_Iteratons_mod, &scale, sizeof scale) == 0,
                 QByteArray::number(static_cast<double>(GLOBAL_Iteratons_mod), 'g', 12));
        const std::vector<QByteArray> sources = {GpuBenchmarkOpenCL::kernelSource(0.1F),
                                                 GpuBenchmarkOpenCL::kernelSource(scale)};
        QCOMPARE(FakeOpenCL::sources(), sources);
    }

    // 11 ms in 3 rounds, where single precision gives a float with another last bit.
    void calibrationInDoublePrecision() {
        benchmarkWarmupMs = 8;
        FakeOpenCL::script().roundMs = {3.67, 3.67, 3.67, 10.0};
        QVERIFY(run(0.01).printed.startsWith("    GpuBenchmarkOpenCL: warmup avg 3.7 ms/round, "));
        const float scale = 54.5454559F;
        QVERIFY2(std::memcmp(&GLOBAL_Iteratons_mod, &scale, sizeof scale) == 0,
                 QByteArray::number(static_cast<double>(GLOBAL_Iteratons_mod), 'g', 12));
    }

    void score_data() {
        const auto row =
            testColumns<std::vector<double>, double, int, int>("roundMs", "seconds", "totalMs", "rounds");
        row("even rounds", {20, 25}, 0.1, 100, 4);
        row("uneven rounds", {20, 30, 35, 41}, 0.1, 106, 3);
        row("whole milliseconds in all", {20, 30.4}, 0.1, 121, 4);
        // A score of a million, whose three decimals show the formula's last digits.
        row("short rounds", {4, 1}, 0.02, 20, 20);
        row("odd numbers", {7, 1.7}, 0.021, 22, 13);
    }

    void score() {
        QFETCH(double, seconds);
        QFETCH(std::vector<double>, roundMs);
        QFETCH(int, totalMs);
        QFETCH(int, rounds);
        FakeOpenCL::script().roundMs = roundMs;
        const Outcome outcome = run(seconds);
        const double averageMs = static_cast<double>(totalMs) / static_cast<double>(rounds);
        const double gps = 0.06409515220941284 *
                           ((static_cast<double>(GLOBAL_Iteratons_mod) * (134217728.0 / averageMs)) / 1000.0);
        QCOMPARE(QString(outcome.lastLine()),
                 QString("%1 rounds, avg %2 ms/round, performance %3 GPS")
                     .arg(QString::number(rounds), QString::number(averageMs, 'f', 2),
                          QString::number(gps, 'f', 3)));
        const auto expected = static_cast<float>(gps);
        QVERIFY(std::memcmp(&expected, &outcome.score, sizeof expected) == 0);
    }

    // Times for which the third decimal depends on the last bit of the formula's double.
    void orderOfOperations_data() {
        const auto row = testColumns<int, int, QByteArray>("rounds", "totalMs", "score");
        row("the constant last", 12017, 13938, "741704.078");
        row("the division before the product", 9113, 16608, "472040.325");
    }

    void orderOfOperations() {
        QFETCH(int, rounds);
        QFETCH(int, totalMs);
        QFETCH(QByteArray, score);
        // The warm-up's round, then rounds of a millisecond, and a last one that takes the rest.
        std::vector<double> roundMs(static_cast<std::size_t>(rounds) + 1, 1.0);
        roundMs.front() = 2.0;
        roundMs.back() = totalMs - (rounds - 1);
        FakeOpenCL::script().roundMs = roundMs;
        benchmarkWarmupMs = 1;
        const QByteArray line = run((rounds + 0.5) / 1000.0).lastLine();
        QVERIFY2(line.startsWith(QByteArray::number(rounds) + " rounds, ") &&
                     line.endsWith("performance " + score + " GPS"),
                 line.constData());
    }

    void anythingButZeroIsAResult_data() {
        testColumns<int, float>("place", "value");
        const float nan = std::numeric_limits<float>::quiet_NaN();
        for (int place = 0; place < 4; ++place) {
            QTest::addRow("NaN at %d", place) << place << nan;
            QTest::addRow("tiny at %d", place) << place << std::numeric_limits<float>::denorm_min();
            QTest::addRow("negative at %d", place) << place << -1.5F;
        }
    }

    void anythingButZeroIsAResult() {
        QFETCH(int, place);
        QFETCH(float, value);
        std::vector<float> results(4, 0.0F);
        results[static_cast<std::size_t>(place)] = value;
        FakeOpenCL::script().results = {results};
        QVERIFY(run(0.005).score > 0.0F);
    }
};

QTEST_APPLESS_MAIN(TestGpuBenchmarkOpenCL_score)
#include "test_GpuBenchmarkOpenCL_score.moc"
