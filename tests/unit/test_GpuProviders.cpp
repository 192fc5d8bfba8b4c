// What both vendors' providers do alike: their advice where OpenCL is missing, and their GPUs' benchmarks.
#include <memory>

#include <QTest>

#include "opencl/benchmarkSettings.h"
#include "tests/unit/AmdMachine.h"
#include "tests/unit/NvidiaMachine.h"
#include "tests/unit/testRows.h"

namespace {

/// A vendor's provider and its texts.
struct Vendor {
    const char* name;
    std::unique_ptr<VendorMachine> (*makeMachine)();
    int typeWithoutOpenCL; ///< of a record
    QByteArray kind;       ///< of the first GPU, with its number
    QByteArray noLibrary;
    QByteArray noPlatform;
    QByteArray debianAdvice;
    QByteArray redHatAdvice;
    QByteArray otherAdvice;

    QByteArray count(int gpus, const QByteArray& why) const {
        return QByteArray::number(gpus) + ' ' + name + " GPU(s) found (" + why + ", no benchmark)\n";
    }
};

template <class Machine>
std::unique_ptr<VendorMachine> make() {
    return std::make_unique<Machine>();
}

const QByteArray amdOptions =
    "       Supported GPUs: Radeon RX 7700 and newer (RDNA3+), Radeon PRO W6800+, AMD Instinct MI100+\n"
    "       NOT supported: Older GPUs (RX 6000 series / RDNA2 and below)\n"
    "       Full list: https://rocm.docs.amd.com/projects/install-on-linux/en/latest/reference/"
    "system-requirements.html\n"
    "  -> Option 2 - Community ROCm builds (recommended for unsupported GPUs, works with Blender etc.):\n"
    "       https://github.com/lamikr/rocm_sdk_builder\n"
    "  -> Option 3 - MESA OpenCL (basic fallback, limited compute support):\n";

const Vendor nvidia = {
    "CUDA",
    make<NvidiaMachine>,
    0,
    "Cuda-0",
    "CUDA GPU OpenCL: libOpenCL.so could not be loaded - benchmark not available.\n"
    "  -> No OpenCL runtime is installed or registered.\n"
    "  -> The Nvidia OpenCL ICD is usually included with the Nvidia driver,\n"
    "     but on Ubuntu 24+ it may be split into a separate package.\n"
    "  -> Check: ls /etc/OpenCL/vendors/nvidia.icd\n",
    "CUDA GPU OpenCL: libOpenCL.so loaded, but no OpenCL platforms found - benchmark not available.\n"
    "  -> The ICD loader found no registered OpenCL drivers.\n"
    "  -> Check: ls /etc/OpenCL/vendors/   (nvidia.icd should be present)\n"
    "  -> Note: MESA OpenCL does not support Nvidia GPUs.\n",
    "  -> Ubuntu/Debian: sudo apt install nvidia-opencl-icd\n"
    "  -> Or: sudo apt install nvidia-opencl-icd-$(nvidia-smi --query-gpu=driver_version "
    "--format=csv,noheader | cut -d. -f1)\n",
    "  -> RHEL/Rocky: sudo dnf install nvidia-driver-cuda-libs\n"
    "  -> Or install the CUDA toolkit from https://developer.nvidia.com/cuda-downloads\n",
    "  -> Install: nvidia-opencl-icd  or  cuda-opencl\n"
    "  -> See: https://developer.nvidia.com/cuda-downloads\n",
};

const Vendor amd = {
    "AMD",
    make<AmdMachine>,
    2,
    "AMD-0",
    "AMD GPU OpenCL: libOpenCL.so could not be loaded - benchmark not available.\n"
    "  -> No OpenCL runtime is installed or registered.\n"
    "  -> Option 1 - ROCm drivers (official AMD OpenCL, recommended for compute):\n" +
        amdOptions,
    "AMD GPU OpenCL: libOpenCL.so loaded, but no OpenCL platforms found - benchmark not available.\n"
    "  -> The ICD loader found no registered OpenCL drivers.\n"
    "  -> Check: ls /etc/OpenCL/vendors/   (should contain .icd files)\n"
    " \n"
    "If no openCL file is found, you have to install openCL:\n"
    "  -> Option 1 - ROCm (official AMD OpenCL):\n" +
        amdOptions,
    "       Ubuntu/Debian: sudo apt install mesa-opencl-icd\n",
    "       RHEL/Rocky:    Not available for rocky 9 any more\n",
    "       Install package: mesa-opencl-icd  (or mesa-libOpenCL)\n",
};

const QByteArray loaderLine = "OpenCL library not found\n\n";

void addVendors() {
    QTest::addColumn<const Vendor*>("vendor");
    for (const Vendor* vendor : {&nvidia, &amd})
        QTest::newRow(vendor->name) << vendor;
}

} // namespace

Q_DECLARE_METATYPE(const Vendor*)

class TestGpuProviders : public QObject {
    Q_OBJECT

  private slots:
    // AMD's machine knows nothing of the libraries that NVIDIA's left loaded.
    void init() {
        GpuNvml_Loader::unload();
        GpuCuda_Loader::unload();
    }

    void withoutOpenCLLibrary_data() {
        QTest::addColumn<const Vendor*>("vendor");
        QTest::addColumn<QByteArray>("osRelease");
        QTest::addColumn<QByteArray>("advice");
        for (const Vendor* vendor : {&nvidia, &amd}) {
            const auto row = [vendor](const QByteArray& osRelease, const QByteArray& advice) {
                const QString name =
                    QString::fromLatin1(vendor->name + (", " + osRelease)).replace('\n', '|');
                QTest::newRow(qPrintable(name)) << vendor << osRelease << advice;
            };
            row("ID=ubuntu\n", vendor->debianAdvice);
            row("ID=debian\n", vendor->debianAdvice);
            row("NAME=x\nID=debian\nA=b", vendor->debianAdvice);
            row("ID=\"Ubuntu\"\n", vendor->debianAdvice);
            row("ID=rhel\n", vendor->redHatAdvice);
            row("ID=\"rocky\"\n", vendor->redHatAdvice);
            row("ID=centos\n", vendor->redHatAdvice);
            row("ID=fedora\n", vendor->redHatAdvice);
            row("ID=ol\n", vendor->redHatAdvice);
            row("ID=arch\n", vendor->otherAdvice);
            row("ID_LIKE=debian\n", vendor->otherAdvice);
            row("ID_LIKE=debian\nVERSION_ID=12\n", vendor->otherAdvice);
            row("ID_LIKE=debian\nID=linuxmint\n", vendor->otherAdvice);
            row("", vendor->otherAdvice);
            row(QByteArray(), vendor->otherAdvice); // no such file
        }
    }

    void withoutOpenCLLibrary() {
        QFETCH(const Vendor*, vendor);
        QFETCH(QByteArray, osRelease);
        QFETCH(QByteArray, advice);
        const auto machine = vendor->makeMachine();
        machine->setGpus({{"A %1", 0x65}, {"B", 0xC1}});
        if (!osRelease.isNull())
            machine->setDistribution(osRelease);
        const QByteArray advised = loaderLine + vendor->noLibrary + advice;
        QCOMPARE(machine->detect(), advised + vendor->count(2, "no OpenCL"));
        QCOMPARE(machine->result, 1);
        for (const char* name : {"A %1", "B"}) {
            QCOMPARE(int(machine->record(name).gpuType), vendor->typeWithoutOpenCL);
            QVERIFY(openCLDeviceOf(machine->record(name)) == nullptr);
        }
        logLevel = 2;
        QCOMPARE(machine->detect(), advised);
        logLevel = 1;
        QCOMPARE(machine->detect(), QByteArray());
    }

    void distributionIsReadBeforeOpenCLIsLoaded_data() { addVendors(); }

    // The advice does not depend on what loading OpenCL changes.
    void distributionIsReadBeforeOpenCLIsLoaded() {
        QFETCH(const Vendor*, vendor);
        const auto machine = vendor->makeMachine();
        machine->setGpus({{"A", 0x65}});
        machine->setDistribution("ID=debian\n");
        FakeCalls::during("dlopen", [&machine] {
            if (FakeCalls::all().last().contains("OpenCL"))
                machine->setDistribution("ID=fedora\n");
        });
        const QByteArray printed = machine->detect();
        QVERIFY2(printed.contains(vendor->debianAdvice), printed.constData());
    }

    void withoutOpenCLPlatform_data() {
        QTest::addColumn<const Vendor*>("vendor");
        QTest::addColumn<QByteArray>("osRelease");
        QTest::addColumn<QByteArray>("advice");
        QTest::addColumn<int>("status");
        for (const Vendor* vendor : {&nvidia, &amd}) {
            const auto row = [vendor](const char* name, const QByteArray& osRelease, const QByteArray& advice,
                                      int status = 0) {
                QTest::addRow("%s, %s", vendor->name, name) << vendor << osRelease << advice << status;
            };
            row("debian", "ID=debian\n", vendor->debianAdvice);
            row("fedora", "ID=fedora\n", vendor->redHatAdvice);
            row("other", "ID=arch\n", vendor->otherAdvice);
            row("empty", "", vendor->otherAdvice);
            row("failing call", "ID=arch\n", vendor->otherAdvice, -1001);
        }
    }

    void withoutOpenCLPlatform() {
        QFETCH(const Vendor*, vendor);
        QFETCH(QByteArray, osRelease);
        QFETCH(QByteArray, advice);
        QFETCH(int, status);
        const auto machine = vendor->makeMachine();
        machine->setGpus({{"A", 0x65}, {"B", 0xC1}});
        machine->setDistribution(osRelease);
        FakeOpenCL::install(std::vector<FakeClPlatform>(status == 0 ? 0 : 1));
        FakeCalls::fail("clGetPlatformIDs", status);
        QCOMPARE(machine->detect(), vendor->noPlatform + advice + vendor->count(2, "no OpenCL platform"));
        QCOMPARE(machine->result, 1);
        QCOMPARE(int(machine->record("A").gpuType), vendor->typeWithoutOpenCL);
        QCOMPARE(FakeCalls::count("clGetPlatformInfo"), 0);
        logLevel = 2;
        QCOMPARE(machine->detect(), vendor->noPlatform + advice);
        logLevel = 1;
        QCOMPARE(machine->detect(), QByteArray());
    }

    // Only NVIDIA's provider gets this far without GPUs.
    void nvidiaWithoutGpus_data() {
        // platforms: -1: no OpenCL library
        // text: at the default level
        const auto row = testColumns<int, int, QByteArray>("platforms", "result", "text");
        row("no OpenCL", -1, 0,
            loaderLine + nvidia.noLibrary + nvidia.otherAdvice + nvidia.count(0, "no OpenCL"));
        row("no platform", 0, 0,
            nvidia.noPlatform + nvidia.otherAdvice + nvidia.count(0, "no OpenCL platform"));
        row("platform", 1, 1, "0 CUDA GPU(s) found\n");
    }

    void nvidiaWithoutGpus() {
        QFETCH(int, platforms);
        NvidiaMachine machine;
        FakeNvml::install({});
        if (platforms >= 0)
            FakeOpenCL::install(std::vector<FakeClPlatform>(static_cast<std::size_t>(platforms)));
        logLevel = 3;
        QTEST(machine.detect(), "text");
        QTEST(machine.result, "result");
        QCOMPARE(FakeCalls::all().filter("dlopen(libcud"), QStringList()); // CUDA is of no use here
        QCOMPARE(machine.update(true), QByteArray());
    }

    // AMD's provider alone asks for all devices before it pairs them.
    void amdWithoutOpenCLDevices() {
        const QByteArray noDevices = "AMD GPU OpenCL: Platforms found, but no GPU devices in any platform.\n"
                                     "  -> Check if the AMD GPU OpenCL driver is correctly installed.\n";
        AmdMachine machine;
        machine.setGpus({{"A", 0x0C}});
        FakeOpenCL::install({{"one", {}}, {"two", {FakeClDevice()}}});
        FakeCalls::fail("clGetDeviceIDs", -1);
        QCOMPARE(machine.detect(), "AMD GPU OpenCL: 2 platform(s) found\n"
                                   "  OpenCL platform 0: one\n"
                                   "  OpenCL platform 1: two\n" +
                                       noDevices + amd.count(1, "no OpenCL GPU devices"));
        QCOMPARE(machine.result, 1);
        logLevel = 3;
        QCOMPARE(machine.detect(), noDevices + amd.count(2, "no OpenCL GPU devices"));
        logLevel = 2;
        QCOMPARE(machine.detect(), noDevices);
        logLevel = 1;
        QCOMPARE(machine.detect(), QByteArray());
    }

    void benchmarkWithoutDevice_data() {
        const auto row = testColumns<const Vendor*, bool, QByteArray>("vendor", "withOpenCL", "kind");
        row("NVIDIA, no device", &nvidia, true, nvidia.kind);
        row("NVIDIA, no OpenCL", &nvidia, false, "Other-0"); // an unknown kind
        row("AMD, no device", &amd, true, amd.kind);
        row("AMD, no OpenCL", &amd, false, amd.kind);
    }

    void benchmarkWithoutDevice() {
        QFETCH(const Vendor*, vendor);
        QFETCH(bool, withOpenCL);
        QFETCH(QByteArray, kind);
        const auto machine = vendor->makeMachine();
        machine->setGpus({{"GPU %1", 0x65}});
        if (withOpenCL)
            FakeOpenCL::install({{"p", {}}});
        machine->detect();
        logLevel = 2;
        const QByteArray line =
            "  GPU %1 " + kind + ": unable to run Benchmark(openCL), device_HardwareID is NULL\n";
        QCOMPARE(machine->update(true), line);
        QCOMPARE(machine->update(true), line); // every time
        QCOMPARE(int(machine->record("GPU %1").hasSpeed), 0);
        QCOMPARE(int(machine->record("GPU %1").hasUsage), 1);
    }

    void benchmark_data() { addVendors(); }

    // The real arrays are a gigabyte: the runs here end before they have filled them.
    void benchmark() {
        QFETCH(const Vendor*, vendor);
        for (const int seconds : {25, 6}) {
            const auto machine = vendor->makeMachine();
            machine->setGpus({{"GPU %1", 0x65}});
            FakeOpenCL::install({{"p", {machine->openCLDevice(0x65)}}});
            machine->detect();
            FakeCalls::fail("clCreateContext", -5);
            benchmarkSeconds = seconds;
            const QByteArray printed = machine->update(true);
            benchmarkSeconds = 25;
            QCOMPARE(printed, "  GPU %1: retrieving GPU stats ...\n"
                              "  GPU %1: running " +
                                  QByteArray::number(seconds) +
                                  "s Benchmark(openCL) ...\n"
                                  "    GpuBenchmarkOpenCL: clCreateContext failed: CL_OUT_OF_RESOURCES\n");
            QCOMPARE(int(machine->record("GPU %1").hasSpeed), 1);
            QCOMPARE(machine->record("GPU %1").speedGps, 0.0F);
            QVERIFY(FakeCalls::all().contains("clCreateContext(null, 1, device0.0, null, null)"));
        }
    }

    void scoreStaysWithoutBenchmark_data() { addVendors(); }

    void scoreStaysWithoutBenchmark() {
        QFETCH(const Vendor*, vendor);
        const auto machine = vendor->makeMachine();
        machine->setGpus({{"A", 0x65}});
        FakeOpenCL::install({{"p", {machine->openCLDevice(0x65)}}});
        machine->detect();
        FakeCalls::reset();
        GpuDevice& record = machine->record("A");
        record.hasSpeed = 1;
        record.speedGps = 43.5F;
        machine->update(false);
        QCOMPARE(int(record.hasSpeed), 1);
        QCOMPARE(record.speedGps, 43.5F);
        for (const QString& call : FakeCalls::all())
            QVERIFY2(call.startsWith("nvml"), qPrintable(call));
    }

    void everyPairedGpuIsBenchmarked_data() { addVendors(); }

    // One after the other, whatever becomes of the one before; the second has no device.
    void everyPairedGpuIsBenchmarked() {
        QFETCH(const Vendor*, vendor);
        const auto machine = vendor->makeMachine();
        machine->setGpus({{"first", 0x65}, {"second", 0x66}, {"third", 0x67}});
        FakeOpenCL::install({{"p", {machine->openCLDevice(0x65), machine->openCLDevice(0x67)}}});
        machine->detect();
        FakeCalls::fail("clCreateContext", -5);
        machine->update(true);
        QCOMPARE(int(machine->record("first").hasSpeed), 1);
        QCOMPARE(int(machine->record("second").hasSpeed), 0);
        QCOMPARE(int(machine->record("third").hasSpeed), 1);
        QStringList benchmarked = FakeCalls::of({"clCreateContext"});
        benchmarked.sort(); // cards come in the directory's order
        QCOMPARE(benchmarked, QStringList({"clCreateContext(null, 1, device0.0, null, null)",
                                           "clCreateContext(null, 1, device0.1, null, null)"}));
    }

    void flagIsReadOncePerGpu_data() { addVendors(); }

    // A flag that changes while the first GPU is measured counts for the second.
    void flagIsReadOncePerGpu() {
        QFETCH(const Vendor*, vendor);
        const auto machine = vendor->makeMachine();
        machine->setGpus({{"first", 0x65}, {"second", 0x66}});
        FakeOpenCL::install({{"p", {machine->openCLDevice(0x65), machine->openCLDevice(0x66)}}});
        machine->detect();
        bool benchmark = true;
        FakeCalls::fail("clCreateContext", -5);
        FakeCalls::during("clCreateContext", [&] { benchmark = false; });
        printedBy([&] { machine->anyProvider().updateUsage(benchmark); });
        QCOMPARE(FakeCalls::count("clCreateContext"), 1);
    }

    void secondCallAppends_data() { addVendors(); }

    void secondCallAppends() {
        QFETCH(const Vendor*, vendor);
        const auto machine = vendor->makeMachine();
        machine->setGpus({{"A", 0x65}, {"B", 0xC1}});
        machine->detect();
        QVERIFY(machine->detect().endsWith(vendor->count(4, "no OpenCL")));
        QCOMPARE(machine->anyProvider().gpuCount(), 4);
    }
};

QTEST_APPLESS_MAIN(TestGpuProviders)
#include "test_GpuProviders.moc"
