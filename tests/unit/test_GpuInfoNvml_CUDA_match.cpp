// NVIDIA's GPUs paired with OpenCL devices.
#include <QTest>

#include "tests/unit/NvidiaMachine.h"
#include "tests/unit/testRows.h"

namespace {

const QByteArray noDevice = "  -> Benchmark will not be available for this GPU.\n"
                            "  -> The Nvidia OpenCL ICD may not be registered.\n"
                            "  -> Check: ls /etc/OpenCL/vendors/nvidia.icd\n"
                            "  -> Check: clinfo --list\n"
                            "  -> To fix: sudo apt install nvidia-opencl-icd\n"
                            "  -> Note: MESA OpenCL does not support Nvidia GPUs.\n";

FakeClDevice device(std::optional<cl_uint> busNv, std::optional<cl_uint> busKhr = {}) {
    FakeClDevice made;
    made.name = "ocl";
    made.busNv = busNv;
    made.busKhr = busKhr;
    return made;
}

/// "0.1" for the first platform's second device, "-" for none.
QString paired(const GpuDevice& record) {
    if (record.clDevice == 0)
        return QStringLiteral("-");
    for (std::size_t platform = 0; platform < 16; ++platform)
        for (std::size_t index = 0; index < 16; ++index)
            if (openCLDeviceOf(record) == FakeOpenCL::device(platform, index))
                return QStringLiteral("%1.%2").arg(platform).arg(index);
    return QStringLiteral("foreign");
}

} // namespace

Q_DECLARE_METATYPE(std::vector<FakeClDevice>)

class TestGpuInfoNvml_CUDA_match : public QObject {
    Q_OBJECT

  private slots:
    void wholeTextVerbose() {
        NvidiaMachine machine;
        FakeNvml::install({{"NVIDIA %1 A", 0x65}, {"NVIDIA B", 0xC1}, {"NVIDIA C", 0x0A}});
        FakeOpenCL::install({{"", {}}, {"NVIDIA %2 CUDA", {device(0xC1), device({}, 0x65)}}});
        QCOMPARE(machine.detect(), "CUDA GPU OpenCL: 2 platform(s) found\n"
                                   "  OpenCL platform 0: \n"
                                   "  OpenCL platform 1: NVIDIA %2 CUDA\n"
                                   "  NVIDIA %1 A: matched via KHR PCI bus 0x65\n"
                                   "  NVIDIA B: matched via NV PCI bus 0xc1\n"
                                   "CUDA GPU 'NVIDIA C' (PCI bus 0xa): no matching OpenCL device found.\n" +
                                       noDevice + "3 CUDA GPU(s) found\n");
        QCOMPARE(machine.result, 1);
        QCOMPARE(paired(machine.provider.record(0)), QString("1.1"));
        QCOMPARE(paired(machine.provider.record(1)), QString("1.0"));
        QCOMPARE(paired(machine.provider.record(2)), QString("-"));
        for (int i : {0, 1, 2})
            QCOMPARE(int(machine.provider.record(i).gpuType), 1);
    }

    void wholeTextByDefault() {
        const QByteArray warning =
            "CUDA GPU 'B' (PCI bus 0xc1): no matching OpenCL device found.\n" + noDevice;
        const std::vector<std::pair<int, QByteArray>> expected = {{4, warning + "2 CUDA GPU(s) found\n"},
                                                                  {3, warning + "2 CUDA GPU(s) found\n"},
                                                                  {2, warning},
                                                                  {1, ""}};
        for (const auto& [level, text] : expected) {
            NvidiaMachine machine;
            FakeNvml::install({{"A", 0x65}, {"B", 0xC1}});
            FakeOpenCL::install({{"p", {device(0x65)}}});
            machine.setDistribution("ID=fedora\n"); // the advice names apt all the same
            logLevel = level;
            QCOMPARE(machine.detect(), text);
        }
    }

    void calls() {
        NvidiaMachine machine;
        FakeNvml::install({{"A", 0x65}});
        FakeOpenCL::install({{"p", {device(1), device({}, 2)}}, {"q", {device({})}}});
        machine.detect();
        QCOMPARE(
            FakeCalls::of({"clGetPlatformIDs", "clGetPlatformInfo", "clGetDeviceIDs", "clGetDeviceInfo"}),
            QStringList({"clGetPlatformIDs(8)", "clGetPlatformInfo(platform0, 0x902, 256)",
                         "clGetPlatformInfo(platform1, 0x902, 256)", "clGetDeviceIDs(platform0, 4, 12)",
                         "clGetDeviceInfo(device0.0, 0x102b, 256)", "clGetDeviceInfo(device0.0, 0x4008, 4)",
                         "clGetDeviceInfo(device0.1, 0x102b, 256)", "clGetDeviceInfo(device0.1, 0x4008, 4)",
                         "clGetDeviceInfo(device0.1, 0x410f, 16)", "clGetDeviceIDs(platform1, 4, 12)",
                         "clGetDeviceInfo(device1.0, 0x102b, 256)", "clGetDeviceInfo(device1.0, 0x4008, 4)",
                         "clGetDeviceInfo(device1.0, 0x410f, 16)"}));
        QCOMPARE(FakeCalls::count("nvmlDeviceGetPciInfo_v3"), 2); // once to number it, once to pair it
    }

    void rules_data() {
        const auto row =
            testColumns<unsigned int, std::vector<FakeClDevice>, QString>("bus", "devices", "pair");
        row("NV", 0x65, {device(0x65)}, "0.0");
        row("KHR", 0x65, {device({}, 0x65)}, "0.0");
        row("neither answers", 0x65, {device({})}, "-");
        row("NV differs, KHR agrees: no", 0x65, {device(0x66, 0x65)}, "-");
        row("NV agrees, KHR differs: yes", 0x65, {device(0x65, 0x66)}, "0.0");
        row("NV says 0, KHR agrees: no", 0x65, {device(0, 0x65)}, "-");
        row("KHR differs", 0x65, {device({}, 0x66)}, "-");
        row("low byte, NV", 0x10C, {device(0x0C)}, "0.0");
        row("low byte, NV the other way", 0x0C, {device(0xFFFFFF0C)}, "0.0");
        row("low byte, KHR", 0x10C, {device({}, 0x0C)}, "0.0");
        row("low byte differs", 0x10C, {device(0x10D)}, "-");
        row("one bit differs", 0x80, {device(0)}, "-");
        row("bus 0", 0, {device(0)}, "0.0");
        row("the first of two", 0x65, {device(0x65), device(0x65)}, "0.0");
        row("KHR before NV: the first device", 0x65, {device({}, 0x65), device(0x65)}, "0.0");
        row("the second", 0x65, {device(0x66), device(0x65)}, "0.1");
    }

    void rules() {
        QFETCH(unsigned int, bus);
        QFETCH(std::vector<FakeClDevice>, devices);
        NvidiaMachine machine;
        FakeNvml::install({{"A", bus}});
        FakeOpenCL::install({{"p", devices}});
        machine.detect();
        QTEST(paired(machine.provider.record(0)), "pair");
    }

    void lines_data() {
        const auto row = testColumns<unsigned int, QByteArray>("bus", "hex");
        row("one digit", 0x5U, "5");
        row("two", 0xABU, "ab");
        row("zero", 0U, "0");
        row("above a byte", 0x10CU, "10c");
        row("all bits", 0xFFFFFFFFU, "ffffffff");
    }

    void lines() {
        QFETCH(unsigned int, bus);
        QFETCH(QByteArray, hex);
        for (const auto& [answer, word] :
             {std::pair(device(bus), QByteArray("NV")), std::pair(device({}, bus), QByteArray("KHR"))}) {
            NvidiaMachine machine;
            FakeNvml::install({{"A", bus}});
            FakeOpenCL::install({{"p", {answer}}});
            const QByteArray printed = machine.detect();
            QVERIFY2(printed.contains("\n  A: matched via " + word + " PCI bus 0x" + hex + "\n"),
                     printed.constData());
        }
        NvidiaMachine machine;
        FakeNvml::install({{"A", bus}});
        FakeOpenCL::install({{"p", {}}});
        QVERIFY(machine.detect().contains("\nCUDA GPU 'A' (PCI bus 0x" + hex +
                                          "): no matching OpenCL device found.\n"));
    }

    void platformsInOrder() {
        NvidiaMachine machine;
        FakeNvml::install({{"A", 0x65}});
        FakeOpenCL::install({{"p", {device(0x66), device({}, 0x65)}}, {"q", {device(0x65)}}});
        machine.detect();
        QCOMPARE(paired(machine.provider.record(0)), QString("0.1"));
        QCOMPARE(FakeCalls::of({"clGetDeviceIDs"}), QStringList("clGetDeviceIDs(platform0, 4, 12)"));
    }

    void failingPlatformIsSkipped() {
        NvidiaMachine machine;
        FakeNvml::install({{"A", 0x65}});
        FakeOpenCL::install({{"p", {device(0x65)}}, {"q", {device(0x65)}}});
        FakeCalls::fail("clGetDeviceIDs", -1, 1);
        FakeCalls::fail("clGetPlatformInfo", -32);
        QCOMPARE(machine.detect(), QByteArray("CUDA GPU OpenCL: 2 platform(s) found\n"
                                              "  OpenCL platform 0: \n"
                                              "  OpenCL platform 1: \n"
                                              "  A: matched via NV PCI bus 0x65\n"
                                              "1 CUDA GPU(s) found\n"));
        QCOMPARE(paired(machine.provider.record(0)), QString("1.0"));
    }

    void nvAttributeDoesNotFallBack() {
        NvidiaMachine machine;
        FakeNvml::install({{"A", 0x65}});
        FakeOpenCL::install({{"p", {device(0x66, 0x65)}}});
        machine.detect();
        QVERIFY(!FakeCalls::all().contains("clGetDeviceInfo(device0.0, 0x410f, 16)"));
    }

    void pciInfoFailsWhenMatching() {
        NvidiaMachine machine;
        FakeNvml::install({{"A %1", 0x65}, {"B", 0x66}});
        FakeOpenCL::install({{"p", {device(0x65), device(0x66)}}});
        FakeCalls::fail("nvmlDeviceGetPciInfo_v3", 15, 3); // the first GPU's second question
        logLevel = 3;
        QCOMPARE(machine.detect(), QByteArray("CUDA GPU 'A %1': failed to get PCI info from NVML.\n"
                                              "2 CUDA GPU(s) found\n"));
        QCOMPARE(paired(machine.provider.record(0)), QString("-"));
        QCOMPARE(int(machine.provider.record(0).gpuType), 1);
        QCOMPARE(paired(machine.provider.record(1)), QString("0.1"));
        for (const auto& [level, text] :
             {std::pair(2, QByteArray("CUDA GPU 'A': failed to get PCI info from NVML.\n")),
              std::pair(1, QByteArray())}) {
            NvidiaMachine other;
            FakeNvml::install({{"A", 0x65}});
            FakeOpenCL::install({{"p", {}}});
            FakeCalls::fail("nvmlDeviceGetPciInfo_v3", 15);
            logLevel = level;
            QCOMPARE(other.detect(), text);
        }
    }

    // All GPUs of a cloud machine may be on bus 0.
    void oneDeviceServesTwoGpus() {
        NvidiaMachine machine;
        FakeNvml::install({{"A", 0}, {"B", 0}});
        FakeOpenCL::install({{"p", {device(0), device(0)}}});
        machine.detect();
        QCOMPARE(paired(machine.provider.record(0)), QString("0.0"));
        QCOMPARE(paired(machine.provider.record(1)), QString("0.0"));
    }

    void manyDevices() {
        NvidiaMachine machine;
        FakeNvml::install({{"twelfth", 12}, {"thirteenth", 13}});
        std::vector<FakeClDevice> devices;
        for (cl_uint bus = 1; bus <= 13; ++bus)
            devices.push_back(device(bus));
        FakeOpenCL::install({{"p", devices}});
        machine.detect();
        QCOMPARE(paired(machine.provider.record(0)), QString("0.11"));
        QCOMPARE(paired(machine.provider.record(1)), QString("-"));
    }

    void manyPlatforms() {
        NvidiaMachine machine;
        FakeNvml::install({{"eighth", 8}, {"ninth", 9}});
        std::vector<FakeClPlatform> platforms;
        for (cl_uint bus = 1; bus <= 9; ++bus)
            platforms.push_back({"p", {device(bus)}});
        FakeOpenCL::install(platforms);
        const QByteArray printed = machine.detect();
        QVERIFY(printed.startsWith("CUDA GPU OpenCL: 9 platform(s) found\n"));
        QCOMPARE(FakeCalls::count("clGetPlatformInfo"), 8);
        FakeOpenCL::reportPlatforms(4294967295U);
        QVERIFY(machine.detect().startsWith("CUDA GPU OpenCL: 4294967295 platform(s) found\n"));
        QCOMPARE(FakeCalls::count("clGetPlatformInfo"), 2 * 8);
        QCOMPARE(paired(machine.provider.record(0)), QString("7.0"));
        QCOMPARE(paired(machine.provider.record(1)), QString("-"));
    }

    void nullEntries() {
        NvidiaMachine machine;
        FakeNvml::install({{"A", 0x65}});
        FakeOpenCL::install({{"p", {device(0x65)}}, {"q", {device(0x65), device(0x65)}}});
        FakeOpenCL::leavePlatformNull(0);
        FakeOpenCL::leaveDeviceNull(0);
        FakeOpenCL::reportDevices(500);
        QVERIFY(machine.detect().contains("\n  OpenCL platform 1: q\n  A: ")); // as the library numbers it
        QCOMPARE(paired(machine.provider.record(0)), QString("1.1"));
    }

    void deviceNameFails() {
        NvidiaMachine machine;
        FakeNvml::install({{"A", 0x65}});
        FakeOpenCL::install({{"p", {device(0x65)}}});
        FakeCalls::fail("clGetDeviceInfo", -33, 1);
        machine.detect();
        QCOMPARE(paired(machine.provider.record(0)), QString("0.0"));
    }

    // NVIDIA's attribute fails but is written: the other one counts.
    void failingAttributeThatIsWritten() {
        NvidiaMachine machine;
        FakeNvml::install({{"A", 0x65}});
        FakeOpenCL::install({{"p", {device(0x65, 0x66)}}});
        FakeCalls::fail("clGetDeviceInfo", -30, 2); // behind the name
        FakeCalls::setAnswers("clGetDeviceInfo", true);
        machine.detect();
        QCOMPARE(paired(machine.provider.record(0)), QString("-"));
    }

    // A bus that is not reported is bus 0.
    void successWithoutAnswer_data() {
        const auto row = testColumns<std::vector<FakeClDevice>, QByteArray>("devices", "word");
        row("NV", std::vector<FakeClDevice>{device(0x65)}, "NV");
        row("KHR", std::vector<FakeClDevice>{device({}, 0x65)}, "KHR");
    }

    void successWithoutAnswer() {
        QFETCH(std::vector<FakeClDevice>, devices);
        QFETCH(QByteArray, word);
        NvidiaMachine machine;
        FakeNvml::install({{"A", 0x65}});
        FakeOpenCL::install({{"p", devices}});
        FakeCalls::setAnswers("clGetDeviceInfo", false);
        FakeCalls::setAnswers("nvmlDeviceGetPciInfo_v3", false);
        const QByteArray printed = machine.detect();
        QVERIFY2(printed.contains("\n  A: matched via " + word + " PCI bus 0x0\n"), printed.constData());
    }
};

QTEST_APPLESS_MAIN(TestGpuInfoNvml_CUDA_match)
#include "test_GpuInfoNvml_CUDA_match.moc"
