// The NVML and CUDA stand-ins through the dynamic loader: records, codes, faults by call, counters.
#include <array>
#include <csignal>
#include <cstring>

#include <QElapsedTimer>
#include <QTest>

#include "tests/unit/ChildProcess.h"
#include "tests/unit/SimulatedLibrary.h"
#include "tests/unit/testRows.h"

namespace {

constexpr const char* twoGpus =
    "[nvidia]\nname = First\ndomain = 3\nbus = 0x1ff\nutilisation = 5, 6, ...\n"
    "temperature = 40\nmemory_total = 8GiB\nmemory_used = 1GiB\nmemory_free = 2GiB\n"
    "compute = 8.9\n"
    "[nvidia]\nname = Second\nbus = 2\nhandle = no\n";

/// NVML after nvmlInit_v2, with the first GPU's handle.
struct Nvml {
    Nvml() {
        library.get<int()>("nvmlInit_v2")();
        library.get<int(unsigned, void**)>("nvmlDeviceGetHandleByIndex_v2")(0, &first);
    }

    int temperature(unsigned& value) const {
        return library.get<int(void*, int, unsigned*)>("nvmlDeviceGetTemperature")(first, 0, &value);
    }

    template <typename Function>
    Function* get(const char* name) const {
        return library.get<Function>(name);
    }

    SimulatedLibrary library{"libqzsim-nvml.so"};
    void* first = nullptr;
};

std::int32_t numberAt(const std::array<unsigned char, 4096>& record, std::size_t offset) {
    std::int32_t number = 0;
    std::memcpy(&number, record.data() + offset, sizeof number);
    return number;
}

} // namespace

class TestSimulatorNvidia : public QObject {
    Q_OBJECT

  private slots:
    void records() {
        const SimulatedMachine machine(twoGpus);
        const Nvml nvml;
        unsigned count = 0;
        QCOMPARE(nvml.library.get<int(unsigned*)>("nvmlDeviceGetCount_v2")(&count), 0);
        QCOMPARE(count, 2u);
        std::array<unsigned, 17> pci{};
        QCOMPARE(nvml.library.get<int(void*, unsigned*)>("nvmlDeviceGetPciInfo_v3")(nvml.first, pci.data()),
                 0);
        QCOMPARE(pci[4], 3u);     // domain, behind 16 bytes of text
        QCOMPARE(pci[5], 0x1ffu); // bus
        std::array<unsigned long long, 3> memory{};
        QCOMPARE(nvml.library.get<int(void*, unsigned long long*)>("nvmlDeviceGetMemoryInfo")(nvml.first,
                                                                                              memory.data()),
                 0);
        QCOMPARE(memory[0], 8589934592ull);
        QCOMPARE(memory[1], 2147483648ull);
        QCOMPARE(memory[2], 1073741824ull);
        unsigned value = 0;
        QCOMPARE(nvml.temperature(value), 0);
        QCOMPARE(value, 40u);
        std::array<unsigned, 2> rates{};
        const auto utilisation = nvml.library.get<int(void*, unsigned*)>("nvmlDeviceGetUtilizationRates");
        for (const unsigned expected : {5u, 6u, 5u}) {
            QCOMPARE(utilisation(nvml.first, rates.data()), 0);
            QCOMPARE(rates[0], expected);
        }
        void* second = nullptr;
        QCOMPARE(nvml.library.get<int(unsigned, void**)>("nvmlDeviceGetHandleByIndex_v2")(1, &second), 2);
        QCOMPARE(nvml.library.get<int(unsigned, void**)>("nvmlDeviceGetHandleByIndex_v2")(2, &second), 2);
    }

    void names_data() {
        const auto row = testColumns<unsigned, QByteArray>("room", "written");
        row("room", 8u, QByteArray("First\0..", 8));
        row("just room", 6u, QByteArray("First\0..", 8));
        row("no terminator", 5u, "First...");
        row("cut", 3u, "Fir.....");
    }

    void names() {
        QFETCH(unsigned, room);
        QFETCH(QByteArray, written);
        const SimulatedMachine machine(twoGpus);
        const Nvml nvml;
        QByteArray name(8, '.');
        QCOMPARE(
            nvml.library.get<int(void*, char*, unsigned)>("nvmlDeviceGetName")(nvml.first, name.data(), room),
            0);
        QCOMPARE(name, written);
    }

    void identity() {
        const SimulatedMachine machine(
            "[nvml]\ndriver_version = 1.2\nnvml_version = 12.1.2\n"
            "[nvidia]\nuuid = GPU-x\nvbios = 9.0\nmig = yes\npersistence = no\n",
            "nvmlDeviceGetMigMode = fail 15 at 2\nnvmlDeviceGetMigMode = answer 0 at 3\n"
            "nvmlDeviceGetUUID = answer other at 2");
        const Nvml nvml;
        QByteArray text(8, '.');
        const auto ofSystem = [&](const char* name, unsigned room) {
            return nvml.get<int(char*, unsigned)>(name)(text.data(), room);
        };
        const auto ofDevice = [&](const char* name, unsigned room) {
            return nvml.get<int(void*, char*, unsigned)>(name)(nvml.first, text.data(), room);
        };
        QCOMPARE(ofSystem("nvmlSystemGetDriverVersion", 3), 7);
        QCOMPARE(text, QByteArray("........"));
        QCOMPARE(ofSystem("nvmlSystemGetDriverVersion", 4), 0);
        QCOMPARE(text, QByteArray("1.2\0....", 8));
        QCOMPARE(ofSystem("nvmlSystemGetNVMLVersion", 8), 0);
        QCOMPARE(text.constData(), "12.1.2");
        QCOMPARE(ofDevice("nvmlDeviceGetUUID", 8), 0);
        QCOMPARE(text.constData(), "GPU-x");
        QCOMPARE(ofDevice("nvmlDeviceGetUUID", 8), 0);
        QCOMPARE(text.constData(), "other");
        QCOMPARE(ofDevice("nvmlDeviceGetVbiosVersion", 8), 0);
        QCOMPARE(text.constData(), "9.0");
        unsigned current = 7;
        unsigned pending = 7;
        const auto mig = nvml.get<int(void*, unsigned*, unsigned*)>("nvmlDeviceGetMigMode");
        QCOMPARE(mig(nvml.first, &current, &pending), 0);
        QCOMPARE(current + pending, 2u);
        QCOMPARE(mig(nvml.first, &current, &pending), 15);
        QCOMPARE(mig(nvml.first, &current, &pending), 0);
        QCOMPARE(current + pending, 0u);
        int persistence = 7;
        QCOMPARE(nvml.get<int(void*, int*)>("nvmlDeviceGetPersistenceMode")(nvml.first, &persistence), 0);
        QCOMPARE(persistence, 0);
    }

    void identityOfAnUndescribedGpu() {
        const SimulatedMachine machine(twoGpus);
        const Nvml nvml;
        unsigned mode = 7;
        QCOMPARE(nvml.get<int(void*, unsigned*, unsigned*)>("nvmlDeviceGetMigMode")(nvml.first, &mode, &mode),
                 3);
        int persistence = 7;
        QCOMPARE(nvml.get<int(void*, int*)>("nvmlDeviceGetPersistenceMode")(nvml.first, &persistence), 0);
        QCOMPARE(persistence, 1);
        QCOMPARE(nvml.get<int(void*, int*)>("nvmlDeviceGetPersistenceMode")(nullptr, &persistence), 2);
        QByteArray text(48, '.');
        const SimulatedLibrary second("libqzsim-nvml.so");
        QCOMPARE(second.get<int(void*, char*, unsigned)>("nvmlDeviceGetUUID")(nvml.first, text.data(), 48),
                 0);
        QCOMPARE(text.constData(), "GPU-5f1a7e00-0000-4000-8000-000000000000");
    }

    void errorStrings() {
        const SimulatedMachine machine(twoGpus);
        const SimulatedLibrary library("libqzsim-nvml.so");
        const auto text = library.get<const char*(int)>("nvmlErrorString");
        QCOMPARE(text(3), "Not Supported");
        QCOMPARE(text(15), "GPU is lost");
        QCOMPARE(text(18), "Driver/library version mismatch");
        QCOMPARE(text(999), "Unknown Error");
        QCOMPARE(text(-1), "Unknown Error");
    }

    void useWithoutInit() {
        const SimulatedMachine machine(twoGpus);
        const SimulatedLibrary library("libqzsim-nvml.so");
        unsigned count = 7;
        QCOMPARE(library.get<int(unsigned*)>("nvmlDeviceGetCount_v2")(&count), 1);
        QCOMPARE(count, 7u);
        QCOMPARE(library.get<int()>("nvmlShutdown")(), 1);
        QCOMPARE(machine.counted("misuse:nvmlDeviceGetCount_v2 without nvmlInit_v2"), 1);
    }

    void balance() {
        const SimulatedMachine machine(twoGpus);
        {
            const Nvml nvml;
            QCOMPARE(machine.counted("live:nvml"), 1);
            QCOMPARE(nvml.library.get<int()>("nvmlShutdown")(), 0);
            QCOMPARE(machine.counted("live:nvml"), 0);
        }
        QCOMPARE(machine.counted("call:nvmlInit_v2"), 1);
        QCOMPARE(machine.counted("load:libnvidia-ml.so.1"), 1);
        QCOMPARE(machine.counted("unload:libnvidia-ml.so.1"), 1);
        QVERIFY(!SimulatedLibrary::isLoaded(QZSIM_LIB_DIR "/libqzsim-nvml.so"));
    }

    void faultsByCall_data() {
        const auto row = testColumns<QByteArray, QList<int>>("fault", "codes");
        row("none", QByteArray(), QList<int>{0, 0, 0});
        row("always", "nvmlDeviceGetTemperature = fail 3", QList<int>{3, 3, 3});
        row("first", "nvmlDeviceGetTemperature = fail 3 at 1", QList<int>{3, 0, 0});
        row("last", "nvmlDeviceGetTemperature = fail 3 at 3", QList<int>{0, 0, 3});
        row("from", "nvmlDeviceGetTemperature = fail 15 from 2", QList<int>{0, 15, 15});
        row("this GPU", "nvmlDeviceGetTemperature#0 = fail 15", QList<int>{15, 15, 15});
        row("another GPU", "nvmlDeviceGetTemperature#1 = fail 15", QList<int>{0, 0, 0});
        row("two lines", "nvmlDeviceGetTemperature = fail 1 at 1\nnvmlDeviceGetTemperature = fail 2 at 2",
            QList<int>{1, 2, 0});
    }

    void faultsByCall() {
        QFETCH(QByteArray, fault);
        QFETCH(QList<int>, codes);
        const SimulatedMachine machine(twoGpus, fault);
        const Nvml nvml;
        for (const int code : codes) {
            unsigned value = 1234;
            QCOMPARE(nvml.temperature(value), code);
            QCOMPARE(value, code == 0 ? 40u : 1234u);
        }
        QCOMPARE(machine.counted("call:nvmlDeviceGetTemperature"), codes.size());
        QCOMPARE(machine.counted("call:nvmlDeviceGetTemperature#0"), codes.size());
    }

    void otherFaults() {
        const SimulatedMachine machine(twoGpus, "nvmlDeviceGetTemperature = answer 99\n"
                                                "nvmlDeviceGetTemperature = delay 50\n"
                                                "nvmlDeviceGetCount_v2 = fail 0");
        const Nvml nvml;
        unsigned value = 7;
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(nvml.temperature(value), 0);
        QVERIFY(timer.elapsed() >= 50);
        QCOMPARE(value, 99u);
        // A success without an answer is another kind of lie.
        QCOMPARE(nvml.library.get<int(unsigned*)>("nvmlDeviceGetCount_v2")(&value), 0);
        QCOMPARE(value, 99u);
    }

    void endsOfTheProcess_data() {
        const auto row = testColumns<QByteArray, bool, int>("fault", "withShutdown", "end");
        const int crashed = 1000 + SIGSEGV;
        row("good", QByteArray(), true, 0);
        row("crash", "nvmlShutdown = crash", true, crashed);
        row("exit", "nvmlShutdown = exit 5", true, 5);
        row("crash at load", "libnvidia-ml.so.1 = crash", true, crashed);
        row("exit at load", "libnvidia-ml.so = exit 6", true, 6);
        row("other library", "libcuda.so.1 = exit 6", true, 0);
        row("unload", "libnvidia-ml.so.1 = crash-at-unload", true, crashed);
        row("unload after shutdown", "libnvidia-ml.so.1 = crash-without-shutdown", true, 0);
        row("unload without shutdown", "libnvidia-ml.so.1 = crash-without-shutdown", false, crashed);
        row("at exit, which _exit leaves out", "libnvidia-ml.so.1 = crash-at-exit", true, 0);
    }

    void endsOfTheProcess() {
        QFETCH(QByteArray, fault);
        QFETCH(bool, withShutdown);
        QFETCH(int, end);
        const SimulatedMachine machine(twoGpus, fault);
        ChildProcess child([withShutdown] {
            const Nvml nvml;
            if (withShutdown)
                nvml.library.get<int()>("nvmlShutdown")();
            return 0;
        });
        QCOMPARE(child.result(), end);
    }

    void badDescription() {
        const SimulatedMachine machine("[nvidia]\nnonsense = 1\n");
        ChildProcess child([] {
            const SimulatedLibrary library("libqzsim-nvml.so");
            return 0;
        });
        QCOMPARE(child.result(), 99);
    }

    void runtimeProperties_data() {
        const auto row =
            testColumns<QByteArray, QByteArray, int, int>("file", "function", "busOffset", "size");
        row("11", "libqzsim-cudart11.so", "cudaGetDeviceProperties", 584, 728);
        row("12", "libqzsim-cudart12.so", "cudaGetDeviceProperties_v2", 584, 1032);
        row("12, plain", "libqzsim-cudart12.so", "cudaGetDeviceProperties", 584, 728);
        row("13", "libqzsim-cudart13.so", "cudaGetDeviceProperties", 568, 1008);
    }

    void runtimeProperties() {
        QFETCH(QByteArray, file);
        QFETCH(QByteArray, function);
        QFETCH(int, busOffset);
        QFETCH(int, size);
        const SimulatedMachine machine(twoGpus);
        const SimulatedLibrary library(file.constData());
        int count = 0;
        QCOMPARE(library.get<int(int*)>("cudaGetDeviceCount")(&count), 0);
        QCOMPARE(count, 1);
        std::array<unsigned char, 4096> record{};
        const auto properties = library.get<int(unsigned char*, int)>(function.constData());
        QCOMPARE(properties(record.data(), 0), 0);
        QCOMPARE(reinterpret_cast<const char*>(record.data()), "First");
        QCOMPARE(numberAt(record, 360), 8);
        QCOMPARE(numberAt(record, 364), 9);
        QCOMPARE(numberAt(record, static_cast<std::size_t>(busOffset)), 0x1ff);
        // Noise up to the record's end, so that a wrong offset finds no zero, and nothing beyond it.
        QCOMPARE(record[static_cast<std::size_t>(size) - 1], static_cast<unsigned char>(0xa5));
        QCOMPARE(record[static_cast<std::size_t>(size)], static_cast<unsigned char>(0));
        QCOMPARE(properties(record.data(), 1), 101);
        QCOMPARE(properties(record.data(), -1), 101);
        QCOMPARE(machine.counted(("call:" + function + "#0").constData()), 1);
    }

    void noRuntimeDevice() {
        const SimulatedMachine machine("[cuda-device]\nseen_by = driver\n");
        const SimulatedLibrary library("libqzsim-cudart12.so");
        int count = 5;
        QCOMPARE(library.get<int(int*)>("cudaGetDeviceCount")(&count), 100);
        QCOMPARE(count, 0);
        QVERIFY(SimulatedLibrary("libqzsim-cudart13.so").get<int()>("cudaGetDeviceProperties_v2") == nullptr);
    }

    void driver() {
        const SimulatedMachine machine(twoGpus);
        const SimulatedLibrary library("libqzsim-cuda.so");
        int value = 0;
        QCOMPARE(library.get<int(int*)>("cuDeviceGetCount")(&value), 3);
        QCOMPARE(machine.counted("misuse:cuDeviceGetCount without cuInit"), 1);
        QCOMPARE(library.get<int(unsigned)>("cuInit")(1), 1);
        QCOMPARE(library.get<int(unsigned)>("cuInit")(0), 0);
        QCOMPARE(library.get<int(int*)>("cuDeviceGetCount")(&value), 0);
        QCOMPARE(value, 1);
        QCOMPARE(library.get<int(int*, int)>("cuDeviceGet")(&value, 1), 101);
        QCOMPARE(library.get<int(int*, int)>("cuDeviceGet")(&value, 0), 0);
        const auto attribute = library.get<int(int*, int, int)>("cuDeviceGetAttribute");
        const int device = value;
        const std::array<std::array<int, 2>, 5> facts = {{{33, 0x1ff}, {34, 0}, {50, 3}, {75, 8}, {76, 9}}};
        for (const auto& fact : facts) {
            QCOMPARE(attribute(&value, fact[0], device), 0);
            QCOMPARE(value, fact[1]);
        }
        QCOMPARE(attribute(&value, 1, device), 1);
        QCOMPARE(attribute(&value, 33, 9), 101);
    }
};

QTEST_APPLESS_MAIN(TestSimulatorNvidia)
#include "test_SimulatorNvidia.moc"
