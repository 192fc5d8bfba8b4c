#include <QTest>

#include "app/log/logLine.h"
#include "opencl/GpuOpenCL_Loader.h"
#include "opencl/OpenCLDevices.h"
#include "opencl/benchmarkGpu.h"
#include "opencl/benchmarkSettings.h"
#include "tests/unit/CaptureStdout.h"
#include "tests/unit/FakeCalls.h"
#include "tests/unit/FakeOpenCL.h"
#include "tests/unit/VirtualTime.h"
#include "tests/unit/testRows.h"

class TestBenchmarkGpu : public QObject {
    Q_OBJECT

  private slots:
    void init() {
        logLevel = 5;
        GpuOpenCL_Loader::unload();
        FakeLoader::reset();
        FakeOpenCL::install({{"p", {FakeClDevice(), FakeClDevice()}}});
        GpuOpenCL_Loader::load(FakeLoader::functions());
        FakeCalls::reset();
        // The real arrays are a gigabyte: each run here ends before it has filled them.
        FakeCalls::fail("clCreateCommandQueue", -5);
    }

    void cleanup() {
        QCOMPARE(FakeOpenCL::liveObjects(), QStringList());
        benchmarkSeconds = 25;
        benchmarkGeometry = BenchmarkGeometry();
    }

    void defaults() {
        QCOMPARE(benchmarkSeconds, 25);
        QCOMPARE(benchmarkWarmupMs, 4);
        QCOMPARE(GLOBAL_Iteratons_mod, 1.0F);
    }

    void withoutDevice_data() {
        const auto row = testColumns<int, int, QByteArray>("type", "index", "middle");
        row("AMD", 2, 0, "AMD-0");
        row("NVIDIA", 1, 11, "Cuda-11");
        row("no kind, no index", 0, -1, "Other--1");
        row("unknown kind", 9, 3, "-3");
    }

    void withoutDevice() {
        QFETCH(int, type);
        QFETCH(int, index);
        QFETCH(QByteArray, middle);
        GpuDevice record;
        setGpuName(record, "a %1 b %2 \xC3\xA9");
        record.gpuType = static_cast<std::uint8_t>(type);
        record.deviceIndex = index;
        record.hasSpeed = 1;
        record.speedGps = 7.5F;
        const QByteArray printed = printedBy([&] { benchmarkGpu(record); });
        QCOMPARE(printed, "  a %1 b %2 \xC3\xA9 " + middle +
                              ": unable to run Benchmark(openCL), device_HardwareID is NULL\n");
        QCOMPARE(int(record.hasSpeed), 0);
        QCOMPARE(record.speedGps, 7.5F); // the old number stays, without its marker
        QCOMPARE(FakeCalls::all(), QStringList());
    }

    void withDevice_data() {
        const auto row = testColumns<int, QByteArray>("seconds", "line");
        row("long", 25, "  gpu %2: running 25s Benchmark(openCL) ...\n");
        row("short", 6, "  gpu %2: running 6s Benchmark(openCL) ...\n");
    }

    void withDevice() {
        QFETCH(int, seconds);
        QFETCH(QByteArray, line);
        benchmarkSeconds = seconds;
        GpuDevice record;
        setGpuName(record, "gpu %2");
        setOpenCLDevice(record, FakeOpenCL::device(0, 1));
        const QByteArray printed = printedBy([&] { benchmarkGpu(record); });
        QCOMPARE(printed,
                 line + "    GpuBenchmarkOpenCL: clCreateCommandQueue failed: CL_OUT_OF_RESOURCES\n");
        QCOMPARE(FakeCalls::all().first(), QString("clCreateContext(null, 1, device0.1, null, null)"));
    }

    void scoreIsKept() {
        FakeCalls::heal();
        const VirtualTime time;
        FakeOpenCL::script().roundMs = {20.0};
        benchmarkGeometry = {{256, 2}, {256, 1}};
        benchmarkSeconds = 6;
        GpuDevice record;
        setOpenCLDevice(record, FakeOpenCL::device(0, 0));
        const QByteArray printed = printedBy([&] { benchmarkGpu(record); });
        QCOMPARE(FakeCalls::count("clFinish"), 1 + 300); // the warm-up's round, and 6 s of rounds
        QVERIFY(FakeCalls::all().contains("clCreateBuffer(context1, 4, 2048, null)"));
        QCOMPARE(int(record.hasSpeed), 1);
        QVERIFY2(printed.endsWith("performance " + QByteArray::number(record.speedGps, 'f', 3) + " GPS\n"),
                 printed.constData());
    }

    void failureIsAScoreOfZero() {
        GpuDevice record;
        setOpenCLDevice(record, FakeOpenCL::device(0, 0));
        for (const bool hadSpeed : {false, true}) {
            record.hasSpeed = hadSpeed;
            record.speedGps = 7.5F;
            printedBy([&] { benchmarkGpu(record); });
            QCOMPARE(int(record.hasSpeed), 1);
            QCOMPARE(record.speedGps, 0.0F); // not the earlier score
        }
    }

    void levels() {
        GpuDevice without;
        GpuDevice with;
        setOpenCLDevice(with, FakeOpenCL::device(0, 0));
        logLevel = 2;
        QCOMPARE(printedBy([&] { benchmarkGpu(without); }).count('\n'), 1);
        logLevel = 1;
        QCOMPARE(printedBy([&] { benchmarkGpu(without); }), QByteArray());
        logLevel = 4;
        QVERIFY(!printedBy([&] { benchmarkGpu(with); }).contains("running"));
    }
};

QTEST_APPLESS_MAIN(TestBenchmarkGpu)
#include "test_benchmarkGpu.moc"
