// NVIDIA's GPUs found through NVML.
#include <cstring>

#include <QTest>

#include "tests/unit/NvidiaMachine.h"

namespace {

const std::vector<FakeNvmlDevice> twoGpus = {{"NVIDIA %1 A", 0x65}, {"NVIDIA B", 0xC1}};

const QByteArray loaderLine = "libnvidia-ml.so not found - no Nvidia GPU or driver not installed\n";

const QByteArray noOpenCL = "CUDA GPU OpenCL: libOpenCL.so could not be loaded - benchmark not available.\n"
                            "  -> No OpenCL runtime is installed or registered.\n"
                            "  -> The Nvidia OpenCL ICD is usually included with the Nvidia driver,\n"
                            "     but on Ubuntu 24+ it may be split into a separate package.\n"
                            "  -> Check: ls /etc/OpenCL/vendors/nvidia.icd\n";
const QByteArray noPlatform =
    "CUDA GPU OpenCL: libOpenCL.so loaded, but no OpenCL platforms found - benchmark not available.\n"
    "  -> The ICD loader found no registered OpenCL drivers.\n"
    "  -> Check: ls /etc/OpenCL/vendors/   (nvidia.icd should be present)\n"
    "  -> Note: MESA OpenCL does not support Nvidia GPUs.\n";
const QByteArray debianAdvice =
    "  -> Ubuntu/Debian: sudo apt install nvidia-opencl-icd\n"
    "  -> Or: sudo apt install nvidia-opencl-icd-$(nvidia-smi --query-gpu=driver_version "
    "--format=csv,noheader | cut -d. -f1)\n";
const QByteArray redHatAdvice = "  -> RHEL/Rocky: sudo dnf install nvidia-driver-cuda-libs\n"
                                "  -> Or install the CUDA toolkit from "
                                "https://developer.nvidia.com/cuda-downloads\n";
const QByteArray otherAdvice = "  -> Install: nvidia-opencl-icd  or  cuda-opencl\n"
                               "  -> See: https://developer.nvidia.com/cuda-downloads\n";
const QByteArray openCLLoaderLine = "OpenCL library not found\n\n";

void installCuda(const std::vector<FakeCudaDevice>& devices) {
    FakeCuda::installRuntime("libcudart.so.12", "libcudart.so.12", 584, devices);
}

} // namespace

class TestGpuInfoNvml_CUDA_detect : public QObject {
    Q_OBJECT

  private slots:
    void noNvml_data() {
        QTest::addColumn<int>("level");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("5") << 5 << loaderLine + "0 CUDA GPU(s) found - NVML not available\n";
        QTest::newRow("4") << 4 << loaderLine;
        QTest::newRow("0") << 0 << loaderLine; // the loader's line is not the log's
    }

    void noNvml() {
        NvidiaMachine machine;
        QFETCH(int, level);
        logLevel = level;
        QTEST(machine.detect(), "text");
        QCOMPARE(machine.result, 0);
        QCOMPARE(machine.provider.gpuCount(), 0);
        // Nothing else is looked for.
        QCOMPARE(FakeCalls::all(),
                 QStringList({"dlopen(libnvidia-ml.so.1, 1)", "dlopen(libnvidia-ml.so, 1)"}));
    }

    void initFails_data() {
        QTest::addColumn<int>("level");
        QTest::addColumn<QByteArray>("text");
        const QByteArray message = "Failed to initialize NVML: error 18 %1\n";
        QTest::newRow("5") << 5 << message + "0 CUDA GPU(s) found\n";
        QTest::newRow("4") << 4 << message;
        QTest::newRow("2") << 2 << message;
        QTest::newRow("1") << 1 << QByteArray();
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
        QTest::addColumn<int>("level");
        QTest::addColumn<QByteArray>("text");
        const QByteArray message = "Failed to query device count: error 999 %1\n";
        QTest::newRow("5") << 5 << message + "0 CUDA GPU(s) found\n";
        QTest::newRow("4") << 4 << message;
        QTest::newRow("2") << 2 << message;
        QTest::newRow("1") << 1 << QByteArray();
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

    void withoutOpenCLLibrary_data() {
        QTest::addColumn<QByteArray>("osRelease");
        QTest::addColumn<QByteArray>("advice");
        const auto row = [](const QByteArray& osRelease, const QByteArray& advice) {
            QTest::newRow(QByteArray(osRelease).replace('\n', '|').constData()) << osRelease << advice;
        };
        row("ID=ubuntu\n", debianAdvice);
        row("NAME=x\nID=debian\nA=b", debianAdvice);
        row("ID=\"Ubuntu\"\n", debianAdvice);
        row("ID=rhel\n", redHatAdvice);
        row("ID=\"rocky\"\n", redHatAdvice);
        row("ID=centos\n", redHatAdvice);
        row("ID=fedora\n", redHatAdvice);
        row("ID=ol\n", redHatAdvice);
        row("ID=arch\n", otherAdvice);
        row("ID_LIKE=debian\nVERSION_ID=12\n", otherAdvice);
        row("ID_LIKE=debian\nID=linuxmint\n", otherAdvice);
        QTest::newRow("no file") << QByteArray() << otherAdvice;
    }

    void withoutOpenCLLibrary() {
        QFETCH(QByteArray, osRelease);
        QFETCH(QByteArray, advice);
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        if (!osRelease.isNull())
            machine.setDistribution(osRelease);
        const QByteArray advised = openCLLoaderLine + noOpenCL + advice;
        QCOMPARE(machine.detect(), advised + "2 CUDA GPU(s) found (no OpenCL, no benchmark)\n");
        QCOMPARE(machine.result, 1);
        for (int i : {0, 1}) {
            QCOMPARE(int(machine.provider.record(i).gpuType), 0);
            QVERIFY(openCLDeviceOf(machine.provider.record(i)) == nullptr);
        }
        logLevel = 2;
        QCOMPARE(machine.detect(), advised);
        logLevel = 1;
        QCOMPARE(machine.detect(), QByteArray());
    }

    // What OpenCL's own start does to the machine comes too late for the advice.
    void distributionIsReadBeforeOpenCLIsLoaded() {
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        machine.setDistribution("ID=debian\n");
        FakeCalls::during("dlopen", [&machine] {
            if (FakeCalls::all().last().contains("OpenCL"))
                machine.setDistribution("ID=fedora\n");
        });
        const QByteArray advice = machine.detect();
        QVERIFY2(advice.contains(debianAdvice), advice.constData());
    }

    void withoutOpenCLPlatform_data() {
        QTest::addColumn<QByteArray>("osRelease");
        QTest::addColumn<QByteArray>("advice");
        QTest::newRow("debian") << QByteArray("ID=debian\n") << debianAdvice;
        QTest::newRow("fedora") << QByteArray("ID=fedora\n") << redHatAdvice;
        QTest::newRow("empty") << QByteArray("") << otherAdvice;
    }

    void withoutOpenCLPlatform() {
        QFETCH(QByteArray, osRelease);
        QFETCH(QByteArray, advice);
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        FakeOpenCL::install({});
        machine.setDistribution(osRelease);
        QCOMPARE(machine.detect(),
                 noPlatform + advice + "2 CUDA GPU(s) found (no OpenCL platform, no benchmark)\n");
        QCOMPARE(machine.result, 1);
        QCOMPARE(int(machine.provider.record(0).gpuType), 0);
        logLevel = 2;
        QCOMPARE(machine.detect(), noPlatform + advice);
        logLevel = 1;
        QCOMPARE(machine.detect(), QByteArray());
    }

    void failingPlatformCallIsNoPlatform() {
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        FakeOpenCL::install({{"p", {FakeClDevice()}}});
        FakeCalls::fail("clGetPlatformIDs", -1001);
        QVERIFY(machine.detect().endsWith("2 CUDA GPU(s) found (no OpenCL platform, no benchmark)\n"));
        QCOMPARE(FakeCalls::count("clGetPlatformInfo"), 0);
    }

    void noDevices_data() {
        QTest::addColumn<bool>("library");
        QTest::addColumn<int>("platforms");
        QTest::addColumn<int>("result");
        QTest::addColumn<QByteArray>("text"); // at the default level
        QTest::newRow("no OpenCL") << false << 0 << 0
                                   << openCLLoaderLine + noOpenCL + otherAdvice +
                                          "0 CUDA GPU(s) found (no OpenCL, no benchmark)\n";
        QTest::newRow("no platform") << true << 0 << 0
                                     << noPlatform + otherAdvice +
                                            "0 CUDA GPU(s) found (no OpenCL platform, no benchmark)\n";
        QTest::newRow("platform") << true << 1 << 1 << QByteArray("0 CUDA GPU(s) found\n");
    }

    void noDevices() {
        QFETCH(bool, library);
        QFETCH(int, platforms);
        NvidiaMachine machine;
        FakeNvml::install({});
        if (library)
            FakeOpenCL::install(std::vector<FakeClPlatform>(static_cast<std::size_t>(platforms)));
        logLevel = 3;
        QTEST(machine.detect(), "text");
        QTEST(machine.result, "result");
        QCOMPARE(FakeCalls::all().filter("dlopen(libcud"), QStringList()); // CUDA is of no use here
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
        QTest::addColumn<QByteArray>("given");
        QTest::addColumn<QByteArray>("kept");
        QTest::newRow("plain") << QByteArray("NVIDIA GeForce RTX 4090")
                               << QByteArray("NVIDIA GeForce RTX 4090");
        QTest::newRow("empty") << QByteArray("") << QByteArray("");
        QTest::newRow("62") << QByteArray(62, 'x') << QByteArray(62, 'x');
        QTest::newRow("63") << QByteArray(63, 'x') << QByteArray(63, 'x');
        QTest::newRow("64, unterminated") << QByteArray(64, 'x') << QByteArray(63, 'x');
        QTest::newRow("more than the buffer") << QByteArray(90, 'x') << QByteArray(63, 'x');
        QTest::newRow("above 0x7f") << QByteArray("caf\xC3\xA9 \xFF") << QByteArray("caf\xC3\xA9 \xFF");
        QTest::newRow("NUL inside") << QByteArray("one\0two", 7) << QByteArray("one");
        QTest::newRow("placeholder") << QByteArray("a%1b%2") << QByteArray("a%1b%2");
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
        FakeCalls::setAnswers("nvmlDeviceGetName", true); // what the failing one writes is no name
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

    void secondCallAppends() {
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        machine.detect();
        QVERIFY(machine.detect().endsWith("\n4 CUDA GPU(s) found (no OpenCL, no benchmark)\n"));
        FakeCalls::fail("nvmlInit_v2", 1);
        QVERIFY(machine.detect().endsWith("\n4 CUDA GPU(s) found\n")); // the number of records, not 0
        FakeCalls::heal();
        FakeCalls::fail("nvmlDeviceGetCount_v2", 1);
        QVERIFY(machine.detect().endsWith("\n4 CUDA GPU(s) found\n"));
        QCOMPARE(machine.provider.gpuCount(), 4);
    }
};

QTEST_APPLESS_MAIN(TestGpuInfoNvml_CUDA_detect)
#include "test_GpuInfoNvml_CUDA_detect.moc"
