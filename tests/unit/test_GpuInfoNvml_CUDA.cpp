// NVIDIA's live figures, and the end of NVML's use.
#include <QTest>

#include "tests/unit/NvidiaMachine.h"
#include "tests/unit/testRows.h"

namespace {

constexpr nvmlMemory_t eightGiB = {8589934592, 6442450944, 2147483648};

constexpr const char* figureCalls[] = {"nvmlDeviceGetUtilizationRates", "nvmlDeviceGetTemperature",
                                       "nvmlDeviceGetMemoryInfo"};

const FakeNvmlDevice gpu = {"GPU %1", 0x65, 37, 61, eightGiB};

} // namespace

class TestGpuInfoNvml_CUDA : public QObject {
    Q_OBJECT

  private slots:
    void figures() {
        NvidiaMachine machine;
        FakeNvml::install({gpu});
        machine.detect();
        QCOMPARE(machine.update(), QByteArray("  GPU %1: retrieving GPU stats ...\n"));
        const GpuDevice& record = machine.provider.record(0);
        QCOMPARE(int(record.statsValid), 1);
        QCOMPARE(int(record.hasUsage), 1);
        QCOMPARE(record.usagePercent, 37);
        QCOMPARE(int(record.hasTemperature), 1);
        QCOMPARE(record.temperature, 61);
        QCOMPARE(int(record.hasMemTotal), 1);
        QCOMPARE(record.memTotalMb, 8192);
        QCOMPARE(int(record.hasMemUsage), 1);
        QCOMPARE(record.memFreeMb, 6144);
        QCOMPARE(record.memUsedMb, 2048);
        QCOMPARE(int(record.hasSpeed), 0);
        FakeNvml::device(0).utilization = 0; // an idle GPU is a reading
        machine.update();
        QCOMPARE(int(record.hasUsage), 1);
        QCOMPARE(record.usagePercent, 0);
    }

    void calls() {
        NvidiaMachine machine;
        FakeNvml::install({gpu, gpu});
        machine.detect();
        FakeCalls::reset();
        machine.update();
        QCOMPARE(FakeCalls::all(),
                 QStringList({"nvmlDeviceGetUtilizationRates(0)", "nvmlDeviceGetTemperature(0, 0)",
                              "nvmlDeviceGetMemoryInfo(0)", "nvmlDeviceGetUtilizationRates(1)",
                              "nvmlDeviceGetTemperature(1, 0)", "nvmlDeviceGetMemoryInfo(1)"}));
    }

    void levels() {
        NvidiaMachine machine;
        FakeNvml::install({gpu});
        machine.detect();
        logLevel = 4;
        QCOMPARE(machine.update(), QByteArray());
    }

    void eachFigureHasItsOwnMarker_data() {
        // markers: usage, temperature, memory's total, memory's usage
        const auto row = testColumns<QString, QList<int>>("call", "markers");
        row("usage", "nvmlDeviceGetUtilizationRates", {0, 1, 1, 1});
        row("temperature", "nvmlDeviceGetTemperature", {1, 0, 1, 1});
        row("memory", "nvmlDeviceGetMemoryInfo", {1, 1, 0, 0});
    }

    void eachFigureHasItsOwnMarker() {
        QFETCH(QString, call);
        NvidiaMachine machine;
        FakeNvml::install({gpu});
        machine.detect();
        FakeCalls::fail(call, 3);
        QCOMPARE(machine.update().count('\n'), 1); // no message
        const GpuDevice& record = machine.provider.record(0);
        QTEST((QList<int>{record.hasUsage, record.hasTemperature, record.hasMemTotal, record.hasMemUsage}),
              "markers");
        QCOMPARE(int(record.statsValid), 1);
        QCOMPARE(FakeCalls::count(call), 1); // nothing is tried again
    }

    void totalStaysShown() {
        NvidiaMachine machine;
        FakeNvml::install({gpu});
        machine.detect();
        machine.update();
        FakeNvml::device(0) = {"GPU", 0x65, 99, 99, {1, 1, 1}};
        for (const char* call : figureCalls)
            FakeCalls::fail(call, 15);
        machine.update();
        const GpuDevice& record = machine.provider.record(0);
        QCOMPARE(int(record.hasUsage), 0);
        QCOMPARE(record.usagePercent, 37);
        QCOMPARE(int(record.hasTemperature), 0);
        QCOMPARE(record.temperature, 61);
        QCOMPARE(int(record.hasMemUsage), 0);
        QCOMPARE(int(record.hasMemTotal), 1);
        QCOMPARE(record.memTotalMb, 8192);
        QCOMPARE(record.memFreeMb, 6144);
        QCOMPARE(record.memUsedMb, 2048);
        FakeCalls::heal();
        machine.update();
        QCOMPARE(int(record.hasMemUsage), 1);
        QCOMPARE(record.memTotalMb, 0);
    }

    void mebibytes_data() {
        const auto row = testColumns<quint64, int>("bytes", "mebibytes");
        row("8 GiB", quint64(8589934592), 8192);
        row("just below one", quint64(1048575), 0);
        row("one", quint64(1048576), 1);
        row("just below two", quint64(2097151), 1);
        row("none", quint64(0), 0);
        row("80 GiB", quint64(85899345920), 81920);
        row("beyond what fits", (quint64(1) << 51), INT_MIN);
    }

    void mebibytes() {
        QFETCH(quint64, bytes);
        QFETCH(int, mebibytes);
        for (int member = 0; member < 3; ++member) {
            NvidiaMachine machine;
            nvmlMemory_t memory{};
            (member == 0 ? memory.total : member == 1 ? memory.free : memory.used) = bytes;
            FakeNvml::install({{"GPU", 1, 0, 0, memory}});
            machine.detect();
            machine.update();
            const GpuDevice& record = machine.provider.record(0);
            QCOMPARE(record.memTotalMb, member == 0 ? mebibytes : 0);
            QCOMPARE(record.memFreeMb, member == 1 ? mebibytes : 0);
            QCOMPARE(record.memUsedMb, member == 2 ? mebibytes : 0);
        }
    }

    // What a failing call writes is not a reading.
    void failingCallsThatWrite() {
        NvidiaMachine machine;
        FakeNvml::install({gpu});
        machine.detect();
        for (const char* call : figureCalls) {
            FakeCalls::fail(call, 3);
            FakeCalls::setAnswers(call, true);
        }
        machine.update();
        const GpuDevice& record = machine.provider.record(0);
        QCOMPARE((QList<int>{record.hasUsage, record.hasTemperature, record.hasMemTotal, record.hasMemUsage}),
                 (QList<int>{0, 0, 0, 0}));
        QCOMPARE((QList<int>{record.usagePercent, record.temperature, record.memTotalMb, record.memFreeMb,
                             record.memUsedMb}),
                 (QList<int>{0, 0, 0, 0, 0}));
    }

    // A driver that reports a success and writes nothing: no figure of an earlier GPU or refresh, nor a
    // random one.
    void successWithoutAnswer() {
        NvidiaMachine machine;
        FakeNvml::install({gpu});
        machine.detect();
        machine.update();
        for (const char* call : figureCalls)
            FakeCalls::setAnswers(call, false);
        machine.update();
        const GpuDevice& record = machine.provider.record(0);
        QCOMPARE((QList<int>{record.hasUsage, record.hasTemperature, record.hasMemTotal, record.hasMemUsage}),
                 (QList<int>{1, 1, 1, 1}));
        QCOMPARE((QList<int>{record.usagePercent, record.temperature, record.memTotalMb, record.memFreeMb,
                             record.memUsedMb}),
                 (QList<int>{0, 0, 0, 0, 0}));
    }

    void lostGpuLeavesTheOthers() {
        NvidiaMachine machine;
        FakeNvml::install({gpu, gpu});
        machine.detect();
        for (const char* call : figureCalls)
            FakeCalls::fail(call, 15, 1);
        machine.update();
        QCOMPARE(int(machine.provider.record(0).hasUsage), 0);
        QCOMPARE(int(machine.provider.record(1).hasUsage), 1);
        QCOMPARE(int(machine.provider.record(1).hasTemperature), 1);
        QCOMPARE(int(machine.provider.record(1).hasMemUsage), 1);
    }

    void withoutNvml() {
        NvidiaMachine machine;
        FakeNvml::install({gpu});
        machine.detect();
        GpuNvml_Loader::unload();
        FakeCalls::reset();
        QCOMPARE(machine.update(true), QByteArray());
        QCOMPARE(int(machine.provider.record(0).statsValid), 0);
        QCOMPARE(FakeCalls::all(), QStringList());
    }

    // The figures show the GPU's own load, not the benchmark's.
    void figuresBeforeTheBenchmark() {
        NvidiaMachine machine;
        FakeNvml::install({gpu});
        FakeOpenCL::install({{"p", {machine.openCLDevice(0x65)}}});
        machine.detect();
        FakeCalls::reset();
        FakeCalls::fail("clCreateContext", -5);
        machine.update(true);
        QCOMPARE(
            FakeCalls::all(),
            QStringList({"nvmlDeviceGetUtilizationRates(0)", "nvmlDeviceGetTemperature(0, 0)",
                         "nvmlDeviceGetMemoryInfo(0)", "clCreateContext(null, 1, device0.0, null, null)"}));
    }

    void shutdown_data() {
        const auto row = testColumns<int, int, int, QByteArray>("status", "level", "result", "text");
        const QByteArray message = "Failed to shutdown NVML: error 1 %1\n";
        row("success", 0, 5, 1, QByteArray());
        row("failure", 1, 2, 0, message);
        row("failure, quiet", 1, 1, 0, QByteArray());
    }

    void shutdown() {
        NvidiaMachine machine;
        FakeNvml::install({gpu});
        machine.detect();
        FakeCalls::reset();
        QFETCH(int, status);
        QFETCH(int, level);
        FakeCalls::fail("nvmlShutdown", status);
        logLevel = level;
        int result = -1;
        const QByteArray printed = printedBy([&] { result = machine.provider.shutdown(); });
        QTEST(printed, "text");
        QTEST(result, "result");
        QCOMPARE(FakeCalls::all().first(), QString("nvmlShutdown()"));
        QVERIFY(GpuNvml_Loader::isLoaded()); // its loader's owner closes it
        QCOMPARE(machine.provider.gpuCount(), 1);
        QCOMPARE(machine.provider.record(0).name, "GPU %1");
    }

    void shutdownWithoutNvml() {
        NvidiaMachine machine;
        QCOMPARE(machine.provider.shutdown(), 1);
        QCOMPARE(FakeCalls::all(), QStringList());
    }
};

QTEST_APPLESS_MAIN(TestGpuInfoNvml_CUDA)
#include "test_GpuInfoNvml_CUDA.moc"
