#include <limits>

#include <QTest>

#include "CaptureStdout.h"
#include "app/log/logLine.h"
#include "gpu/printGpuStatus.h"
#include "tests/unit/testRows.h"

namespace {

GpuDevice gpuOf(int type, const char* name, int deviceIndex = 0) {
    GpuDevice gpu;
    gpu.gpuType = static_cast<std::uint8_t>(type);
    gpu.deviceIndex = deviceIndex;
    setGpuName(gpu, name);
    return gpu;
}

GpuDevice withEveryFigure(GpuDevice gpu) {
    gpu.hasUsage = gpu.hasTemperature = gpu.hasMemTotal = gpu.hasMemUsage = gpu.hasSpeed = 1;
    gpu.usagePercent = 7;
    gpu.temperature = 65;
    gpu.memTotalMb = 24576;
    gpu.memUsedMb = 512;
    gpu.memFreeMb = 24064;
    gpu.speedGps = 1234.567F;
    return gpu;
}

QByteArray printed(const GpuDevice& gpu, int index) {
    CaptureStdout output;
    printGpuStatus(gpu, index);
    return output.take();
}

/// One figure at a time: its marker, its number, and no other.
using Set = void (*)(GpuDevice&);

} // namespace

Q_DECLARE_METATYPE(GpuDevice)
Q_DECLARE_METATYPE(Set)

class TestPrintGpuStatus : public QObject {
    Q_OBJECT

  private slots:
    void init() { logLevel = 4; }
    void cleanup() { logLevel = 3; }

    void header_data() {
        const auto row = testColumns<GpuDevice, int, QByteArray>("gpu", "index", "line");
        row("Cuda", gpuOf(1, "NVIDIA GeForce RTX 4090"), 0, "---- #0   Cuda-0  RTX4090 ----");
        row("two digits", gpuOf(1, "NVIDIA GeForce RTX 4090", 10), 12, "---- #12  Cuda-10 RTX4090 ----");
        row("three digits", gpuOf(1, "x", 123), 12, "---- #12  Cuda-123 x ----");
        row("AMD", gpuOf(2, "AMD Radeon Pro W6800", 1), 3, "---- #3    AMD-1  W6800 ----");
        row("Metal", gpuOf(3, "Apple M1 Max", 0), 3, "---- #3  Metal-0  M1Max ----");
        row("other", gpuOf(0, "x", -1), 3, "---- #3  Other--1 x ----");
        row("summary's kind below 90", gpuOf(4, "x", 99), 3, "---- #3      --99 x ----");
        row("unknown kind", gpuOf(5, "x", 0), 3, "---- #3       -0  x ----");
        row("last unknown kind", gpuOf(255, "x", 0), 3, "---- #3       -0  x ----");
        row("last long header", gpuOf(1, "GeForce x", 0), 89, "---- #89  Cuda-0  x ----");
        row("first short header", gpuOf(1, "GeForce x", 0), 90, "---- GeForce x ----");
        row("summary", gpuOf(4, "Summary", 99), 99, "---- Summary ----");
        row("negative index", gpuOf(1, "x", 0), -1, "---- #-1  Cuda-0  x ----");
        row("smallest index", gpuOf(1, "x", 0), std::numeric_limits<int>::min(),
            "---- #-2147483648  Cuda-0  x ----");
        row("largest index", gpuOf(1, "x", 0), std::numeric_limits<int>::max(), "---- x ----");
        row("empty name", gpuOf(1, "", 0), 0, "---- #0   Cuda-0   ----");
        row("empty summary name", gpuOf(1, "", 0), 99, "----  ----");
        row("placeholders in the name", gpuOf(1, "%1 %2%3 %4", 0), 0, "---- #0   Cuda-0  %1%2%3%4 ----");
        row("placeholders in the summary's name", gpuOf(1, "%1 %2 %3", 0), 99, "---- %1 %2 %3 ----");
        row("UTF-8", gpuOf(1, "Gr\xc3\xbcn \xe2\x82\xac", 0), 0,
            "---- #0   Cuda-0  Gr\xc3\xbcn\xe2\x82\xac ----");
        row("not UTF-8",
            gpuOf(1,
                  "a\xff"
                  "b",
                  0),
            0,
            "---- #0   Cuda-0  a\xef\xbf\xbd"
            "b ----");
        row("not UTF-8, summary",
            gpuOf(1,
                  "a\xff"
                  "b",
                  0),
            99,
            "---- a\xef\xbf\xbd"
            "b ----");
        row("line break in the name", gpuOf(1, "a\nb", 0), 0, "---- #0   Cuda-0  a\nb ----");
    }

    /// A record without figures prints its header and the line that ends a block.
    void header() {
        QFETCH(GpuDevice, gpu);
        QFETCH(int, index);
        QFETCH(QByteArray, line);
        QCOMPARE(printed(gpu, index), line + "\n \n");
    }

    void everyLine() {
        const QByteArray expected = "---- #12  Cuda-3  RTX4090 ----\n"
                                    "    #12: Gpu Usage:       7 %\n"
                                    "    #12: Temperature:    65 C\n"
                                    "    #12: Mem Total:   24576 Mb\n"
                                    "    #12: Mem Used:      512 Mb\n"
                                    "    #12: Mem Free:    24064 Mb\n"
                                    "    #12: Speed:       1234.57 GPS\n"
                                    " \n";
        QCOMPARE(printed(withEveryFigure(gpuOf(1, "NVIDIA GeForce RTX 4090", 3)), 12), expected);
    }

    void everyLineOfTheSummary() {
        const QByteArray expected = "---- Summary ----\n"
                                    "    : Gpu Usage:       7 %\n"
                                    "    : Temperature:    65 C\n"
                                    "    : Mem Total:   24576 Mb\n"
                                    "    : Mem Used:      512 Mb\n"
                                    "    : Mem Free:    24064 Mb\n"
                                    "    : Speed:       1234.57 GPS\n"
                                    " \n";
        QCOMPARE(printed(withEveryFigure(gpuOf(4, "Summary", 99)), 99), expected);
    }

    void figure_data() {
        const auto row = testColumns<Set, QByteArray>("set", "lines");
        row(
            "usage",
            [](GpuDevice& gpu) {
                gpu.hasUsage = 1;
                gpu.usagePercent = 100;
            },
            "    #0 : Gpu Usage:     100 %\n");
        row("usage 0", [](GpuDevice& gpu) { gpu.hasUsage = 1; }, "    #0 : Gpu Usage:       0 %\n");
        row(
            "usage, wide",
            [](GpuDevice& gpu) {
                gpu.hasUsage = 1;
                gpu.usagePercent = 2147483647;
            },
            "    #0 : Gpu Usage:   2147483647 %\n");
        row(
            "temperature",
            [](GpuDevice& gpu) {
                gpu.hasTemperature = 1;
                gpu.temperature = 9;
            },
            "    #0 : Temperature:     9 C\n");
        row(
            "temperature below zero",
            [](GpuDevice& gpu) {
                gpu.hasTemperature = 1;
                gpu.temperature = -40;
            },
            "    #0 : Temperature:   -40 C\n");
        row(
            "total",
            [](GpuDevice& gpu) {
                gpu.hasMemTotal = 1;
                gpu.memTotalMb = 8192;
            },
            "    #0 : Mem Total:    8192 Mb\n");
        row(
            "total, wide",
            [](GpuDevice& gpu) {
                gpu.hasMemTotal = 1;
                gpu.memTotalMb = 122880;
            },
            "    #0 : Mem Total:   122880 Mb\n");
        row(
            "total, wrapped",
            [](GpuDevice& gpu) {
                gpu.hasMemTotal = 1;
                gpu.memTotalMb = -2147483647 - 1;
            },
            "    #0 : Mem Total:   -2147483648 Mb\n");
        row(
            "one marker for used and free",
            [](GpuDevice& gpu) {
                gpu.hasMemUsage = 1;
                gpu.memUsedMb = 1;
                gpu.memFreeMb = 123456;
            },
            "    #0 : Mem Used:        1 Mb\n    #0 : Mem Free:    123456 Mb\n");
        row("speed 0", [](GpuDevice& gpu) { gpu.hasSpeed = 1; }, "    #0 : Speed:        0.00 GPS\n");
        row(
            "speed, five places",
            [](GpuDevice& gpu) {
                gpu.hasSpeed = 1;
                gpu.speedGps = 12.5F;
            },
            "    #0 : Speed:       12.50 GPS\n");
        row(
            "speed, rounded",
            [](GpuDevice& gpu) {
                gpu.hasSpeed = 1;
                gpu.speedGps = 0.999F;
            },
            "    #0 : Speed:        1.00 GPS\n");
        row(
            "speed below zero",
            [](GpuDevice& gpu) {
                gpu.hasSpeed = 1;
                gpu.speedGps = -0.5F;
            },
            "    #0 : Speed:       -0.50 GPS\n");
        row(
            "speed that is not a number",
            [](GpuDevice& gpu) {
                gpu.hasSpeed = 1;
                gpu.speedGps = std::numeric_limits<float>::quiet_NaN();
            },
            "    #0 : Speed:         nan GPS\n");
        row(
            "any marker but 0 counts", [](GpuDevice& gpu) { gpu.hasUsage = 255; },
            "    #0 : Gpu Usage:       0 %\n");
        row(
            "figures without their markers",
            [](GpuDevice& gpu) {
                gpu = withEveryFigure(gpu);
                gpu.hasUsage = gpu.hasTemperature = gpu.hasMemTotal = gpu.hasMemUsage = gpu.hasSpeed = 0;
            },
            "");
    }

    void figure() {
        QFETCH(Set, set);
        QFETCH(QByteArray, lines);
        GpuDevice gpu = gpuOf(2, "x");
        set(gpu);
        QCOMPARE(printed(gpu, 0), "---- #0    AMD-0  x ----\n" + lines + " \n");
    }

    /// All of the block has one level: the default verbosity hides it.
    void hiddenBelowLevelFour() {
        logLevel = 3;
        QCOMPARE(printed(withEveryFigure(gpuOf(1, "x")), 0), QByteArray());
    }
};

QTEST_APPLESS_MAIN(TestPrintGpuStatus)
#include "test_printGpuStatus.moc"
