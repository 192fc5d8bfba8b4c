// NVIDIA's GPUs paired with CUDA's devices.
#include <climits>

#include <QTest>

#include "tests/unit/NvidiaMachine.h"
#include "tests/unit/testRows.h"

namespace {

const std::vector<FakeNvmlDevice> twoGpus = {{"NVIDIA A", 0x65}, {"NVIDIA B", 0xC1}};

void installCuda(const std::vector<FakeCudaDevice>& devices) {
    FakeCuda::installRuntime("libcudart.so.12", "libcudart.so.12", 584, devices);
}

} // namespace

class TestGpuInfoNvml_CUDA_index : public QObject {
    Q_OBJECT

  private slots:
    void cudaIndex_data() {
        // buses: of CUDA's devices, in its order
        // indexes: of the GPUs on buses 0x65 and 0xc1
        const auto row = testColumns<QList<int>, QList<int>>("buses", "indexes");
        row("same order", {0x65, 0xC1}, {0, 1});
        row("other order", {0xC1, 0x65}, {1, 0});
        row("first hidden", {0xC1}, {-1, 0});
        row("all hidden", {}, {-1, -1});
        row("another between", {0x65, 0x70, 0xC1}, {0, 2});
        row("twice on a bus: the first", {0xC1, 0xC1, 0x65, 0x65}, {2, 0});
    }

    void cudaIndex() {
        QFETCH(QList<int>, buses);
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        std::vector<FakeCudaDevice> devices;
        for (int bus : buses)
            devices.push_back({bus, 8, 9});
        installCuda(devices);
        machine.detect();
        QTEST((QList<int>{machine.provider.record(0).deviceIndex, machine.provider.record(1).deviceIndex}),
              "indexes");
        for (int i : {0, 1})
            QCOMPARE(int(machine.provider.record(i).optixCapable),
                     machine.provider.record(i).deviceIndex >= 0 ? 1 : 0);
    }

    void pciInfoFails() {
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        installCuda({{0x65, 8, 9}, {0xC1, 8, 9}});
        FakeCalls::fail("nvmlDeviceGetPciInfo_v3", 3, 1);
        FakeCalls::setAnswers("nvmlDeviceGetPciInfo_v3",
                              true);                       // what the failing one writes is not a location
        QCOMPARE(machine.detect().count('\n'), 2 + 7 + 1); // nothing but the lines on OpenCL's absence
        QCOMPARE(machine.provider.record(0).deviceIndex, -1);
        QCOMPARE(int(machine.provider.record(0).optixCapable), 0);
        QCOMPARE(machine.provider.record(1).deviceIndex, 1);
    }

    void cudaDevicesAnswerOnce() {
        NvidiaMachine machine;
        FakeNvml::install({{"a", 1}, {"b", 2}, {"c", 3}, {"d", 9}});
        installCuda({{1, 8, 0}, {2, 8, 0}, {3, 8, 0}});
        machine.detect();
        QCOMPARE(FakeCalls::count("cudaGetDeviceProperties"), 3);
    }

    void busIsComparedWhole() {
        NvidiaMachine machine;
        FakeNvml::install({{"a", 0x141}, {"b", 0xFFFFFFFF}});
        installCuda({{0x41, 8, 9}, {-1, 8, 9}});
        machine.detect();
        QCOMPARE(machine.provider.record(0).deviceIndex, -1);
        QCOMPARE(machine.provider.record(1).deviceIndex, 1);
    }

    void optix_data() {
        QTest::addColumn<int>("major");
        QTest::addColumn<int>("minor");
        QTest::addColumn<int>("capable");
        const auto row = [](int major, int minor, int capable) {
            QTest::addRow("%d.%d", major, minor) << major << minor << capable;
        };
        row(3, 5, 0);
        row(6, 9, 0);
        row(7, 0, 0);
        row(7, 4, 0);
        row(7, 5, 1);
        row(7, 6, 1);
        row(8, 0, 1);
        row(12, 0, 1);
        row(0, 0, 0);
        row(-1, 9, 0);
    }

    void optix() {
        QFETCH(int, major);
        QFETCH(int, minor);
        QFETCH(int, capable);
        NvidiaMachine machine;
        FakeNvml::install({{"a", 1}});
        installCuda({{1, major, minor}});
        machine.detect();
        QCOMPARE(int(machine.provider.record(0).optixCapable), capable);
    }

    void failingCudaDevice() {
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        installCuda({{0x65, 8, 9}, {0xC1, 7, 5}});
        FakeCalls::fail("cudaGetDeviceProperties", 46, 1);
        machine.detect();
        QCOMPARE(machine.provider.record(0).deviceIndex, -1);
        QCOMPARE(int(machine.provider.record(0).optixCapable), 0);
        QCOMPARE(machine.provider.record(1).deviceIndex, 1);
        QCOMPARE(int(machine.provider.record(1).optixCapable), 1);
    }

    // CUDA's first device fails when the first GPU is looked for, and is the second's.
    void cudaDeviceThatFailsOnce() {
        NvidiaMachine machine;
        FakeNvml::install(twoGpus);
        installCuda({{0xC1, 7, 5}, {0x65, 8, 9}});
        FakeCalls::fail("cudaGetDeviceProperties", 46, 1);
        machine.detect();
        QCOMPARE(machine.provider.record(0).deviceIndex, 1);
        QCOMPARE(machine.provider.record(1).deviceIndex, 0);
        QCOMPARE(int(machine.provider.record(1).optixCapable), 1);
    }

    // Only the count is used, not its call's status.
    void failingCount_data() {
        const auto row = testColumns<bool, int>("answers", "index");
        row("counts all the same", true, 0);
        row("does not count", false, -1);
    }

    void failingCount() {
        QFETCH(bool, answers);
        for (const char* call : {"cudaGetDeviceCount", "cuDeviceGetCount"}) {
            NvidiaMachine machine;
            FakeNvml::install({{"a", 1}});
            if (call[2] == 'd')
                installCuda({{1, 8, 9}});
            else
                FakeCuda::installDriver({{1, 8, 9}});
            GpuCuda_Loader::load(FakeLoader::functions()); // usable, then
            FakeCalls::fail(call, 46);
            FakeCalls::setAnswers(call, answers);
            machine.detect();
            QTEST(machine.provider.record(0).deviceIndex, "index");
        }
    }

    void successWithoutAnswer() {
        NvidiaMachine machine;
        FakeNvml::install({{"a", 1}});
        installCuda({{0, 8, 9}, {1, 8, 9}});
        FakeCalls::setAnswers("nvmlDeviceGetPciInfo_v3", false);
        machine.detect();
        QCOMPARE(machine.provider.record(0).deviceIndex, 0); // a location that is not reported is bus 0
        FakeCalls::heal();
        FakeCalls::setAnswers("cudaGetDeviceCount", false);
        machine.detect();
        QCOMPARE(machine.provider.record(1).deviceIndex, -1);
    }

    void countThatLies() {
        NvidiaMachine machine;
        FakeNvml::install({{"a", 2}, {"on no bus", 9}});
        installCuda({{1, 8, 0}, {2, 8, 0}});
        FakeCuda::reportCount(INT_MAX);
        machine.detect();
        QCOMPARE(machine.provider.record(0).deviceIndex, 1);
        QCOMPARE(machine.provider.record(1).deviceIndex, -1);
        QCOMPARE(FakeCalls::count("cudaGetDeviceProperties"), 4096);
    }
};

QTEST_APPLESS_MAIN(TestGpuInfoNvml_CUDA_index)
#include "test_GpuInfoNvml_CUDA_index.moc"
