// NVIDIA's GPUs found through NVML.
#include <cstring>

#include <QTest>

#include "tests/unit/NvidiaMachine.h"
#include "tests/unit/testRows.h"

namespace {

const std::vector<FakeNvmlDevice> twoGpus = {{"NVIDIA %1 A", 0x65}, {"NVIDIA B", 0xC1}};

const QByteArray loaderLine = "libnvidia-ml.so not found - no Nvidia GPU or driver not installed\n";

void installCuda(const std::vector<FakeCudaDevice>& devices) {
    FakeCuda::installRuntime("libcudart.so.12", "libcudart.so.12", 584, devices);
}

} // namespace

class TestGpuInfoNvml_CUDA_detect : public QObject {
    Q_OBJECT

  private slots:
    void noNvml_data() {
        const auto row = testColumns<int, QByteArray>("level", "text");
        row("5", 5, loaderLine + "0 CUDA GPU(s) found - NVML not available\n");
        row("4", 4, loaderLine);
        row("0", 0, loaderLine); // the loader's line is not the log's
    }

    void noNvml() {
        NvidiaMachine machine;
        QFETCH(int, level);
        logLevel = level;
        QTEST(machine.detect(), "text");
        QCOMPARE(machine.result, 0);
        QCOMPARE(machine.provider.gpuCount(), 0);
        // Nothing else is tried.
        QCOMPARE(FakeCalls::all(),
                 QStringList({"dlopen(libnvidia-ml.so.1, 1)", "dlopen(libnvidia-ml.so, 1)"}));
    }

    void initFails_data() {
        const auto row = testColumns<int, QByteArray>("level", "text");
        const QByteArray message = "Failed to initialize NVML: error 18 %1\n";
        row("5", 5, message + "0 CUDA GPU(s) found\n");
        row("4", 4, message);
        row("2", 2, message);
        row("1", 1, QByteArray());
    }

    void initFails() {
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        FakeCalls::fail("nvmlInit_v2", 18);
        QFETCH(int, level);
        logLevel = level;
        QTEST(machine.detect(), "text");
        QCOMPARE(machine.result, 0);
        QCOMPARE(FakeCalls::all().mid(11),
                 QStringList({"nvmlInit_v2()", "nvmlErrorString(18)", "nvmlShutdown()"}));
        QVERIFY(GpuNvml_Loader::isLoaded());
    }

    void initAndShutdownFail() {
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        FakeCalls::fail("nvmlInit_v2", 9);
        FakeCalls::fail("nvmlShutdown", 1);
        QCOMPARE(machine.detect(), QByteArray("Failed to initialize NVML: error 9 %1\n"
                                              "Failed to shutdown NVML: error 1 %1\n"
                                              "0 CUDA GPU(s) found\n"));
        QCOMPARE(machine.result, 0);
    }

    void countFails_data() {
        const auto row = testColumns<int, QByteArray>("level", "text");
        const QByteArray message = "Failed to query device count: error 999 %1\n";
        row("5", 5, message + "0 CUDA GPU(s) found\n");
        row("4", 4, message);
        row("2", 2, message);
        row("1", 1, QByteArray());
    }

    void countFails() {
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        FakeCalls::fail("nvmlDeviceGetCount_v2", 999);
        QFETCH(int, level);
        logLevel = level;
        QTEST(machine.detect(), "text");
        QCOMPARE(machine.result, 0);
        QCOMPARE(FakeCalls::count("nvmlShutdown"), 0);
        QCOMPARE(FakeCalls::all().last(), QString("nvmlErrorString(999)"));
    }

    void callsInOrder() {
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        installCuda({{0x65, 8, 9}, {0xC1, 7, 5}});
        machine.detect();
        const QStringList relevant = {"nvmlInit_v2",
                                      "nvmlShutdown",
                                      "nvmlDeviceGetCount_v2",
                                      "nvmlDeviceGetHandleByIndex_v2",
                                      "nvmlDeviceGetName",
                                      "nvmlDeviceGetPciInfo_v3",
                                      "nvmlDeviceGetUtilizationRates",
                                      "nvmlDeviceGetTemperature",
                                      "nvmlDeviceGetMemoryInfo"};
        QCOMPARE(FakeCalls::of(relevant),
                 QStringList({"nvmlInit_v2()", "nvmlDeviceGetCount_v2()", "nvmlDeviceGetHandleByIndex_v2(0)",
                              "nvmlDeviceGetName(0, 64)", "nvmlDeviceGetPciInfo_v3(0)",
                              "nvmlDeviceGetHandleByIndex_v2(1)", "nvmlDeviceGetName(1, 64)",
                              "nvmlDeviceGetPciInfo_v3(1)"}));
    }

    void handleFails() {
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        FakeOpenCL::install({{"p", {}}});
        FakeCalls::fail("nvmlDeviceGetHandleByIndex_v2", 15, 1);
        logLevel = 3;
        const QByteArray printed = machine.detect();
        QVERIFY2(printed.startsWith("CUDA GPU 'NVIDIA B' (PCI bus 0xc1)"),
                 printed.constData()); // no word of the other
        QVERIFY(printed.endsWith("1 CUDA GPU(s) found\n"));
        QCOMPARE(machine.provider.gpuCount(), 1);
        QCOMPARE(machine.provider.record(0).name, "NVIDIA B");
        machine.provider.updateUsage(false);
        QCOMPARE(FakeCalls::of({"nvmlDeviceGetTemperature"}), QStringList("nvmlDeviceGetTemperature(1, 0)"));
    }

    void names_data() {
        const auto row = testColumns<QByteArray, QByteArray>("given", "kept");
        row("plain", "NVIDIA GeForce RTX 4090", "NVIDIA GeForce RTX 4090");
        row("empty", "", "");
        row("62", QByteArray(62, 'x'), QByteArray(62, 'x'));
        row("63", QByteArray(63, 'x'), QByteArray(63, 'x'));
        row("64, unterminated", QByteArray(64, 'x'), QByteArray(63, 'x'));
        row("more than the buffer", QByteArray(90, 'x'), QByteArray(63, 'x'));
        row("above 0x7f", QByteArray("caf\xC3\xA9 \xFF"), QByteArray("caf\xC3\xA9 \xFF"));
        row("NUL inside", QByteArray("one\0two", 7), "one");
        row("placeholder", "a%1b%2", "a%1b%2");
    }

    void names() {
        NvidiaMachine machine;
        QFETCH(QByteArray, given);
        QFETCH(QByteArray, kept);
        FakeNvml::install({{given, 1}});
        machine.detect();
        const char(&name)[64] = machine.provider.record(0).name;
        QCOMPARE(QByteArray(name, sizeof name), kept + QByteArray(64 - kept.size(), '\0'));
    }

    void nameFails() {
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        installCuda({{0xC1, 8, 9}, {0x65, 8, 9}});
        FakeCalls::fail("nvmlDeviceGetName", 3, 1);
        FakeCalls::setAnswers("nvmlDeviceGetName", true); // what the failing one writes is not a name
        machine.detect();
        QCOMPARE(machine.provider.record(0).name, "");
        QCOMPARE(machine.provider.record(0).deviceIndex, 1); // processing continues
        QCOMPARE(machine.provider.record(1).name, "NVIDIA B");
    }

    void successWithoutAnswer() {
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        FakeCalls::setAnswers("nvmlDeviceGetCount_v2", false);
        machine.detect();
        QCOMPARE(machine.provider.gpuCount(), 0);
        FakeCalls::heal();
        FakeCalls::setAnswers("nvmlDeviceGetName", false);
        machine.detect();
        QCOMPARE(machine.provider.record(0).name, "");
    }

    void newRecord() {
        NvidiaMachine machine;
        FakeNvml::install({{"a", 1, 50, 60, {1U << 30, 1U << 29, 1U << 29}}});
        machine.detect();
        GpuDevice expected;
        setGpuName(expected, "a");
        const GpuDevice& record = machine.provider.record(0);
        QVERIFY(std::memcmp(&record, &expected, sizeof expected) == 0);
    }

    void countThatLies() {
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        FakeNvml::reportCount(0xFFFFFFFFU);
        machine.detect();
        QCOMPARE(machine.provider.gpuCount(), 2);
        QCOMPARE(FakeCalls::count("nvmlDeviceGetHandleByIndex_v2"), 4096);
    }

    void failingCallsShowTheGpusFoundBefore() {
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        machine.detect();
        FakeCalls::fail("nvmlInit_v2", 1);
        QVERIFY(machine.detect().endsWith("\n2 CUDA GPU(s) found\n")); // the number of records, not 0
        FakeCalls::heal();
        FakeCalls::fail("nvmlDeviceGetCount_v2", 1);
        QVERIFY(machine.detect().endsWith("\n2 CUDA GPU(s) found\n"));
        QCOMPARE(machine.provider.gpuCount(), 2);
    }
};

QTEST_APPLESS_MAIN(TestGpuInfoNvml_CUDA_detect)
#include "test_GpuInfoNvml_CUDA_detect.moc"
