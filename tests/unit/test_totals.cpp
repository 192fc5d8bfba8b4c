// The machine's figures: means and sums over the GPUs that have them.
#include <climits>

#include <QTest>

#include "StatusReports.h"
#include "reader/status/totals.h"

class TestTotals : public QObject {
    Q_OBJECT

  private slots:
    void nothingIsKnown() {
        for (const auto& gpus : {std::vector<GpuView>{}, {silentGpu()}, {silentGpu(), silentGpu()}}) {
            const Totals totals = totalsOf(gpus);
            QVERIFY(!totals.meanUsagePercent);
            QVERIFY(!totals.totalMemoryMiB);
            QVERIFY(!totals.usedMemoryMiB);
            QVERIFY(!totals.hottestCelsius);
        }
    }

    /// A GPU without a figure neither lowers the mean nor counts as 0.
    void onlyGpusWithTheFigureCount() {
        const Totals totals = totalsOf({amdGpu(), busyGpu(), silentGpu()});
        QCOMPARE(totals.meanUsagePercent.value_or(-1), 45.0);
        QCOMPARE(totals.totalMemoryMiB.value_or(-1), std::int64_t{16384 + 24576});
        QCOMPARE(totals.usedMemoryMiB.value_or(-1), std::int64_t{1024});
        QCOMPARE(totals.hottestCelsius.value_or(-1), 60);
    }

    void zeroIsAReading() {
        const Totals totals = totalsOf({idleGpu(), busyGpu()});
        QCOMPARE(totals.meanUsagePercent.value_or(-1), 22.5);
        QCOMPARE(totalsOf({idleGpu()}).usedMemoryMiB.value_or(-1), std::int64_t{0});
        QCOMPARE(totalsOf({idleGpu()}).hottestCelsius.value_or(-1), 0);
    }

    void belowZero() {
        const auto cold = with(idleGpu(), [](GpuView& gpu) { gpu.temperatureCelsius = -12; });
        QCOMPARE(totalsOf({cold}).hottestCelsius.value_or(99), -12);
        QCOMPARE(totalsOf({cold, idleGpu()}).hottestCelsius.value_or(99), 0);
    }

    void beyond32Bits() {
        const auto large = with(busyGpu(), [](GpuView& gpu) {
            gpu.usagePercent = INT_MAX;
            gpu.memoryTotalMiB = INT_MAX;
            gpu.memoryUsedMiB = INT_MAX;
        });
        const Totals totals = totalsOf({large, large, large});
        QCOMPARE(totals.meanUsagePercent.value_or(-1), static_cast<double>(INT_MAX));
        QCOMPARE(totals.totalMemoryMiB.value_or(-1), 3 * std::int64_t{INT_MAX});
        QCOMPARE(totals.usedMemoryMiB.value_or(-1), 3 * std::int64_t{INT_MAX});
    }
};

QTEST_GUILESS_MAIN(TestTotals)
#include "test_totals.moc"
