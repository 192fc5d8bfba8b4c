// The table for people: its columns, their content, and what is dropped on a narrow terminal.
#include <clocale>

#include <QTest>

#include "StatusReports.h"
#include "reader/status/forms.h"
#include "tests/unit/testRows.h"

namespace {

constexpr int noLimit = 0;

QString table(const StatusReport& report, int width = noLimit, bool bars = false) {
    return QString::fromStdString(tableForm(report, width, bars));
}

/// The table's lines: the headline, the titles, one line a GPU.
QStringList linesOf(const StatusReport& report, int width = noLimit, bool bars = false) {
    return table(report, width, bars).split('\n');
}

} // namespace

class TestTableForm : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase() { QVERIFY(std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr); }

    void tables_data() {
        const auto row = testColumns<StatusReport, bool, QString>("report", "bars", "text");
        row("four GPUs", mixedReport(), false, R"(4 GPUs, published 1.2 s ago
# KIND     NAME                         LOAD TEMP         MEMORY  SPEED FEATURES
0 Cuda-0   NVIDIA GeForce RTX 4090       45%  60C 1024/24576 MiB 123.45 OpenCL OptiX
1 Cuda-1   NVIDIA Tesla                   0%   0C     0/8192 MiB   0.00 -
2 AMD-0    Navi 31                 no answer    -    -/16384 MiB      - RT
3 Other--1 Bare                    no answer    -              -      - -
)");
        row("with bars", mixedReport(), true, R"(4 GPUs, published 1.2 s ago
# KIND     NAME                         LOAD              TEMP         MEMORY               SPEED FEATURES
0 Cuda-0   NVIDIA GeForce RTX 4090       45% [#####     ]  60C 1024/24576 MiB [          ] 123.45 OpenCL OptiX
1 Cuda-1   NVIDIA Tesla                   0% [          ]   0C     0/8192 MiB [          ]   0.00 -
2 AMD-0    Navi 31                 no answer                 -    -/16384 MiB                   - RT
3 Other--1 Bare                    no answer                 -              -                   - -
)");
        row("bars of nothing", freshReport({amdGpu()}), true, R"(1 GPU, published 1.2 s ago
# KIND  NAME         LOAD TEMP      MEMORY SPEED FEATURES
0 AMD-0 Navi 31 no answer    - -/16384 MiB     - RT
)");
        row("no GPU", freshReport(), true, "0 GPUs, published 1.2 s ago\n");
        row("measuring", measuringReport(), true, "0 GPUs, published 100.0 s ago, measuring\n");
        row("of unknown age", with(freshReport(), [](StatusReport& report) { report.ageSeconds.reset(); }),
            true, "0 GPUs, published 0.0 s ago\n");
        row("stale", staleReport(), false, R"(STALE: no companion keeps the list fresh
# KIND  NAME         LOAD TEMP      MEMORY SPEED FEATURES
0 AMD-0 Navi 31 no answer    - -/16384 MiB     - RT
)");
        row("no segment", missingReport(), false, "there is no segment\n");
    }
    void tables() {
        QFETCH(StatusReport, report);
        QFETCH(bool, bars);
        QTEST(table(report, noLimit, bars), "text");
    }

    void cells_data() {
        QTest::addColumn<StatusReport>("report");
        QTest::addColumn<QString>("line");
        const auto row = [](const char* name, const auto& edit, const char* line) {
            QTest::newRow(name) << freshReport({with(amdGpu(), edit)}) << QString::fromUtf8(line);
        };
        row(
            "all features",
            [](GpuView& gpu) { gpu.openclMatched = gpu.optixCapable = gpu.amdRayTracing = true; },
            "0 AMD-0 Navi 31 no answer    - -/16384 MiB     - OpenCL OptiX RT");
        row(
            "memory of unknown size",
            [](GpuView& gpu) {
                gpu.memoryTotalMiB.reset();
                gpu.memoryUsedMiB = 5;
            },
            "0 AMD-0 Navi 31 no answer    - 5/- MiB     - RT");
        row(
            "a score is rounded", [](GpuView& gpu) { gpu.speedGps = 1.006F; },
            "0 AMD-0 Navi 31 no answer    - -/16384 MiB  1.01 RT");
        row(
            "frost", [](GpuView& gpu) { gpu.temperatureCelsius = -5; },
            "0 AMD-0 Navi 31 no answer  -5C -/16384 MiB     - RT");
        row(
            "wide characters", [](GpuView& gpu) { gpu.name = "日本"; },
            "0 AMD-0 日本 no answer    - -/16384 MiB     - RT");
        row(
            "control characters", [](GpuView& gpu) { gpu.name = "\x1b[31m"; },
            "0 AMD-0 \uFFFD[31m no answer    - -/16384 MiB     - RT");
        row(
            "no name", [](GpuView& gpu) { gpu.name = ""; },
            "0 AMD-0      no answer    - -/16384 MiB     - RT");
    }
    void cells() {
        QFETCH(StatusReport, report);
        QTEST(linesOf(report).value(2), "line");
    }

    void loadBars_data() {
        const auto row = testColumns<int, QString>("percent", "bar");
        row("below zero", -50, "[          ]");
        row("rounded down", 4, "[          ]");
        row("rounded up", 5, "[#         ]");
        row("nearly full", 94, "[######### ]");
        row("full", 100, "[##########]");
        row("above full", 1000, "[##########]");
    }
    void loadBars() {
        QFETCH(int, percent);
        QFETCH(QString, bar);
        const StatusReport report =
            freshReport({with(busyGpu(), [&](GpuView& gpu) { gpu.usagePercent = percent; })});
        const QString line = linesOf(report, noLimit, true).value(2);
        QVERIFY2(line.contains("% " + bar + "  60C 1024/24576 MiB"), qPrintable(line));
    }

    /// The memory bar is drawn if used and total are known.
    void memoryBar() {
        StatusReport report =
            freshReport({with(amdGpu(), [](GpuView& gpu) { gpu.memoryUsedMiB = 4 * 1024; })});
        QVERIFY(linesOf(report, noLimit, true).value(2).contains("4096/16384 MiB [###       ]"));
        report.gpus[0].memoryTotalMiB.reset();
        QVERIFY(!linesOf(report, noLimit, true).value(2).contains('['));
    }

    /// The columns in the order in which they are dropped. A name keeps 16 columns before another one is
    /// dropped, or 8 where all that is left matters more than a readable name.
    void narrowing_data() {
        QTest::addColumn<int>("width");
        QTest::addColumn<QString>("line");
        const auto row = [](int width, const char* line) {
            QTest::newRow(std::to_string(width).c_str()) << width << QString::fromUtf8(line);
        };
        row(103, "0 Cuda-0 NVIDIA GeForce RTX 4090  45% [#####     ]  60C 1024/24576 MiB [          ] 123.45 "
                 "OpenCL OptiX");
        row(102, "0 Cuda-0 NVIDIA GeForce RTX 40…  45% [#####     ]  60C 1024/24576 MiB [          ] 123.45 "
                 "OpenCL OptiX");
        row(96, "0 Cuda-0 NVIDIA GeForce …  45% [#####     ]  60C 1024/24576 MiB [          ] 123.45 OpenCL "
                "OptiX");
        row(95, "0 Cuda-0 NVIDIA GeForce RTX 4090  45% [#####     ]  60C 1024/24576 MiB [          ] 123.45");
        row(83, "0 Cuda-0 NVIDIA GeForce …  45% [#####     ]  60C 1024/24576 MiB [          ] 123.45");
        row(82, "0 Cuda-0 NVIDIA GeForce RTX 40…  45% [#####     ]  60C 1024/24576 MiB [          ]");
        row(76, "0 Cuda-0 NVIDIA GeForce …  45% [#####     ]  60C 1024/24576 MiB [          ]");
        row(75, "0 NVIDIA GeForce RTX 40…  45% [#####     ]  60C 1024/24576 MiB [          ]");
        row(69, "0 NVIDIA GeForce …  45% [#####     ]  60C 1024/24576 MiB [          ]");
        row(68, "0 NVIDIA GeForce RTX 4090  45% [#####     ]  60C 1024/24576 MiB");
        row(56, "0 NVIDIA GeForce …  45% [#####     ]  60C 1024/24576 MiB");
        row(55, "0 NVIDIA GeForce RTX 4090  45%  60C 1024/24576 MiB");
        row(43, "0 NVIDIA GeForce …  45%  60C 1024/24576 MiB");
        row(42, "0 NVIDIA GeForce RTX 4090  45%  60C");
        row(20, "0 NVIDIA …  45%  60C");
        row(19, "0 NVIDIA GeFo…  45%");
        row(15, "0 NVIDIA …  45%");
        row(14, "0 NVIDIA GeFo…");
        row(10, "0 NVIDIA …");
        row(9, "NVIDIA G…");
        row(1, "…");
    }
    void narrowing() {
        QFETCH(int, width);
        QTEST(linesOf(freshReport({busyGpu()}), width, true).value(2), "line");
    }

    void headlineIsShortened() {
        QCOMPARE(linesOf(freshReport(), 26).value(0), QStringLiteral("0 GPUs, published 1.2 s a…"));
    }
};

QTEST_GUILESS_MAIN(TestTableForm)
#include "test_tableForm.moc"
