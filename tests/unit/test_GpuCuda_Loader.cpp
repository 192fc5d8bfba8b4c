#include <QTest>

#include "nvidia/GpuCuda_Loader.h"
#include "tests/unit/FakeCalls.h"
#include "tests/unit/FakeCuda.h"
#include "tests/unit/testRows.h"

namespace {

const std::vector<FakeCudaDevice> oneDevice = {{0x41, 8, 9}};

const QStringList opensAll = {"dlopen(libcudart.so.13, 1)", "dlopen(libcudart.so.12, 1)",
                              "dlopen(libcudart.so.11.0, 1)", "dlopen(libcudart.so, 1)",
                              "dlopen(libcuda.so.1, 1)"};

FakeLibrary& installRuntime(const QByteArray& file, const std::vector<FakeCudaDevice>& devices = oneDevice) {
    return FakeCuda::installRuntime(file, file, file == "libcudart.so.13" ? 568 : 584, devices);
}

int load() {
    return GpuCuda_Loader::load(FakeLoader::functions());
}

/// The file that answered the last count of devices.
QString answering() {
    int count = 0;
    GpuCuda_Loader::cudaGetDeviceCount(&count);
    const QString call = FakeCalls::all().last();
    return call == "cuDeviceGetCount()" ? QStringLiteral("driver") : call.section('(', 1).chopped(1);
}

} // namespace

class TestGpuCuda_Loader : public QObject {
    Q_OBJECT

  private slots:
    void init() {
        GpuCuda_Loader::unload();
        FakeCalls::reset();
        FakeLoader::reset();
    }

    void nothingThere() {
        QCOMPARE(load(), 0);
        QVERIFY(!GpuCuda_Loader::isLoaded());
        QCOMPARE(FakeCalls::all(), opensAll);
        int count = 7;
        QVERIFY(GpuCuda_Loader::cudaGetDeviceCount(&count) != 0);
        QCOMPARE(count, 7);
        CudaDeviceProperties properties;
        QVERIFY(GpuCuda_Loader::cudaGetDeviceProperties(&properties, 0) != 0);
    }

    void candidates_data() {
        const auto row = testColumns<QStringList, QString>("present", "used");
        const QStringList all = {"libcudart.so.13", "libcudart.so.12", "libcudart.so.11.0"};
        row("all", all, all[0]);
        row("12 and 11", QStringList(all.mid(1)), all[1]);
        row("11", QStringList(all.mid(2)), all[2]);
        row("none", QStringList(), "driver");
    }

    void candidates() {
        QFETCH(QStringList, present);
        FakeCuda::installDriver(oneDevice);
        for (const QString& file : present)
            installRuntime(file.toLatin1());
        QCOMPARE(load(), 1);
        QTEST(answering(), "used");
    }

    // The file's soname decides the layout of its record, whatever name it was opened by.
    void layouts_data() {
        const auto row =
            testColumns<QByteArray, QByteArray, int, bool>("file", "soname", "pciBusOffset", "used");
        row("13", "libcudart.so.13", "libcudart.so.13", 568, true);
        row("12", "libcudart.so.12", "libcudart.so.12", 584, true);
        row("11", "libcudart.so.11.0", "libcudart.so.11.0", 584, true);
        row("plain, 13", "libcudart.so", "libcudart.so.13", 568, true);
        row("plain, 12", "libcudart.so", "libcudart.so.12", 584, true);
        row("plain, 11", "libcudart.so", "libcudart.so.11.0", 584, true);
        row("12 behind the name of 13", "libcudart.so.13", "libcudart.so.12", 584, true);
        row("13 behind the name of 11", "libcudart.so.11.0", "libcudart.so.13", 568, true);
        row("plain, 10", "libcudart.so", "libcudart.so.10.2", 584, false);
        row("plain, 14", "libcudart.so", "libcudart.so.14", 584, false);
        row("plain, 130", "libcudart.so", "libcudart.so.130", 568, false);
        row("11 of another minor", "libcudart.so", "libcudart.so.11.1", 584, false);
        row("plain, no number", "libcudart.so", "libcudart.so", 584, false);
        row("no soname", "libcudart.so.12", nullptr, 584, false);
        row("empty soname", "libcudart.so.12", "", 584, false);
    }

    void layouts() {
        QFETCH(QByteArray, file);
        QFETCH(QByteArray, soname);
        QFETCH(int, pciBusOffset);
        QFETCH(bool, used);
        FakeCuda::installRuntime(file, soname, static_cast<std::size_t>(pciBusOffset),
                                 {{0x12345678, 7, 5}, {-3, 12, 0}});
        QCOMPARE(load() == 1, used);
        if (!used) {
            QCOMPARE(FakeCalls::of({"cudaGetDeviceCount", "cudaGetDeviceProperties"}), QStringList());
            return;
        }
        int count = 0;
        QCOMPARE(GpuCuda_Loader::cudaGetDeviceCount(&count), 0);
        QCOMPARE(count, 2);
        CudaDeviceProperties properties;
        QCOMPARE(GpuCuda_Loader::cudaGetDeviceProperties(&properties, 0), 0);
        QCOMPARE(properties.pciBusID, 0x12345678);
        QCOMPARE(properties.major, 7);
        QCOMPARE(properties.minor, 5);
        QCOMPARE(GpuCuda_Loader::cudaGetDeviceProperties(&properties, 1), 0);
        QCOMPARE(properties.pciBusID, -3);
        QCOMPARE(properties.major, 12);
        QCOMPARE(properties.minor, 0);
    }

    // A runtime of version 12 has the older layout behind the plain name; the others have that name alone.
    void secondVersionOfTheProperties() {
        const auto wrong = +[](void*, int) { return 999; };
        for (const char* file : {"libcudart.so.13", "libcudart.so.12", "libcudart.so.11.0"}) {
            init();
            const bool isTwelve = QByteArray(file) == "libcudart.so.12";
            const char* right = isTwelve ? "cudaGetDeviceProperties_v2" : "cudaGetDeviceProperties";
            const char* other = isTwelve ? "cudaGetDeviceProperties" : "cudaGetDeviceProperties_v2";
            FakeCuda::installRuntime(file, file, QByteArray(file) == "libcudart.so.13" ? 568 : 584, oneDevice,
                                     right)
                .add(other, wrong);
            QCOMPARE(load(), 1);
            CudaDeviceProperties properties;
            QCOMPARE(GpuCuda_Loader::cudaGetDeviceProperties(&properties, 0), 0);
            QCOMPARE(properties.pciBusID, 0x41);
        }
        init();
        FakeCuda::installRuntime("libcudart.so.13", "libcudart.so.13", 568, oneDevice,
                                 "cudaGetDeviceProperties_v2");
        QCOMPARE(load(), 0);
    }

    void unusableRuntime_data() {
        const auto row = testColumns<QByteArray, int>("missing", "status");
        row("no count", "cudaGetDeviceCount", 0);
        row("no properties", "cudaGetDeviceProperties", 0);
        row("newer than the driver", QByteArray(), 35);
        row("not ready", QByteArray(), 802);
        row("no device", QByteArray(), 100);
        row("negative status", QByteArray(), -1);
    }

    void unusableRuntime() {
        QFETCH(QByteArray, missing);
        QFETCH(int, status);
        installRuntime("libcudart.so.13").symbols.erase(missing);
        installRuntime("libcudart.so.11.0");
        FakeCalls::fail("cudaGetDeviceCount", status, 1);
        QCOMPARE(load(), 1);
        QCOMPARE(answering(), QString("libcudart.so.11.0"));
        QCOMPARE(FakeCalls::of({"dlopen"}), opensAll.mid(0, 3));
        QCOMPARE(FakeLoader::library("libcudart.so.13").timesOpen, 1); // passed over, but not closed
    }

    void lastRuntimeUnusable() {
        installRuntime("libcudart.so.12");
        FakeCuda::installDriver(oneDevice);
        FakeCalls::fail("cudaGetDeviceCount", 35);
        QCOMPARE(load(), 1);
        QCOMPARE(answering(), QString("driver"));
    }

    void driver() {
        FakeCuda::installDriver({{0x41, 8, 9}, {0xC1, 7, 5}});
        QCOMPARE(load(), 1);
        QCOMPARE(FakeCalls::of({"cuInit"}), QStringList("cuInit(0)"));
        int count = 0;
        QCOMPARE(GpuCuda_Loader::cudaGetDeviceCount(&count), 0);
        QCOMPARE(count, 2);
        FakeCalls::reset();
        CudaDeviceProperties properties;
        QCOMPARE(GpuCuda_Loader::cudaGetDeviceProperties(&properties, 1), 0);
        QCOMPARE(properties.pciBusID, 0xC1);
        QCOMPARE(properties.major, 7);
        QCOMPARE(properties.minor, 5);
        QCOMPARE(FakeCalls::all(),
                 QStringList({"cuDeviceGet(1)", "cuDeviceGetAttribute(33, 1)", "cuDeviceGetAttribute(75, 1)",
                              "cuDeviceGetAttribute(76, 1)"}));
    }

    void driverAttributeFails_data() {
        const auto row = testColumns<QString, int>("call", "nth");
        row("device", "cuDeviceGet", 1);
        for (int nth : {1, 2, 3})
            QTest::addRow("attribute %d", nth) << "cuDeviceGetAttribute" << nth;
    }

    void driverAttributeFails() {
        QFETCH(QString, call);
        QFETCH(int, nth);
        FakeCuda::installDriver(oneDevice);
        load();
        FakeCalls::fail(call, 700, nth);
        CudaDeviceProperties properties;
        properties.pciBusID = 0x77;
        QCOMPARE(GpuCuda_Loader::cudaGetDeviceProperties(&properties, 0), 700);
        QCOMPARE(properties.pciBusID, 0x77);   // nothing of half an answer
        QCOMPARE(FakeCalls::count(call), nth); // and no further question
    }

    void unusableDriver_data() {
        const auto row = testColumns<QByteArray, int>("missing", "status");
        for (const char* name : {"cuInit", "cuDeviceGetCount", "cuDeviceGet", "cuDeviceGetAttribute"})
            row(name, QByteArray(name), 0);
        row("cuInit fails: no device", QByteArray(), 100);
        row("cuInit fails: version mismatch", QByteArray(), 803);
    }

    void unusableDriver() {
        QFETCH(QByteArray, missing);
        QFETCH(int, status);
        FakeCuda::installDriver(oneDevice).symbols.erase(missing);
        FakeCalls::fail("cuInit", status);
        QCOMPARE(load(), 0);
        QVERIFY(!GpuCuda_Loader::isLoaded());
        QCOMPARE(FakeCalls::count("cuInit"), missing.isEmpty() ? 1 : 0);
        QCOMPARE(FakeCalls::count("dlclose"), 0);
    }

    void loadsOnce() {
        installRuntime("libcudart.so.12");
        load();
        FakeCalls::reset();
        QCOMPARE(load(), 1);
        QCOMPARE(FakeCalls::all(), QStringList());
    }

    void loadsAgainWhenThereWasNothing() {
        QCOMPARE(load(), 0);
        FakeCuda::installDriver(oneDevice);
        QCOMPARE(load(), 1);
    }

    void devicesAnswerOnce() {
        installRuntime("libcudart.so.12", {{0x41, 8, 9}, {0x42, 8, 9}});
        load();
        CudaDeviceProperties properties;
        for (int time = 0; time < 3; ++time) {
            QCOMPARE(GpuCuda_Loader::cudaGetDeviceProperties(&properties, 0), 0);
            QCOMPARE(properties.pciBusID, 0x41);
            QCOMPARE(GpuCuda_Loader::cudaGetDeviceProperties(&properties, 1), 0);
            QCOMPARE(properties.pciBusID, 0x42);
        }
        QCOMPARE(FakeCalls::of({"cudaGetDeviceProperties"}),
                 QStringList({"cudaGetDeviceProperties(libcudart.so.12, 0)",
                              "cudaGetDeviceProperties(libcudart.so.12, 1)"}));
        GpuCuda_Loader::unload(); // its answers are forgotten with the library
        load();
        QCOMPARE(GpuCuda_Loader::cudaGetDeviceProperties(&properties, 1), 0);
        QCOMPARE(FakeCalls::count("cudaGetDeviceProperties"), 3);
    }

    void failingDevicesAreAskedAgain() {
        installRuntime("libcudart.so.12", {{0x41, 8, 9}, {0x42, 8, 9}});
        load();
        FakeCalls::fail("cudaGetDeviceProperties", 46, 1);
        FakeCalls::fail("cudaGetDeviceProperties", 999, 2);
        CudaDeviceProperties properties;
        QCOMPARE(GpuCuda_Loader::cudaGetDeviceProperties(&properties, 1), 46);
        QCOMPARE(GpuCuda_Loader::cudaGetDeviceProperties(&properties, 1), 999);
        QCOMPARE(properties.pciBusID, 0);
        QCOMPARE(GpuCuda_Loader::cudaGetDeviceProperties(&properties, 1), 0);
        QCOMPARE(properties.pciBusID, 0x42);
    }

    void devicesThatAreNotThere() {
        installRuntime("libcudart.so.12");
        load();
        CudaDeviceProperties properties;
        QCOMPARE(GpuCuda_Loader::cudaGetDeviceProperties(&properties, 1), 101);
        FakeCalls::reset();
        QVERIFY(GpuCuda_Loader::cudaGetDeviceProperties(&properties, -1) != 0);
        QCOMPARE(FakeCalls::all(), QStringList()); // no runtime is asked for such a number
    }

    void failingCount() {
        installRuntime("libcudart.so.12");
        load();
        FakeCalls::fail("cudaGetDeviceCount", 46);
        int count = 5;
        QCOMPARE(GpuCuda_Loader::cudaGetDeviceCount(&count), 46);
        QCOMPARE(count, 5);
    }

    void nothingIsClosed() {
        for (const char* file : {"libcudart.so.13", "libcudart.so.12"})
            installRuntime(file);
        FakeCalls::fail("cudaGetDeviceCount", 35, 1);
        load();
        GpuCuda_Loader::unload();
        QVERIFY(!GpuCuda_Loader::isLoaded());
        QCOMPARE(FakeCalls::count("dlclose"), 0);
    }
};

QTEST_APPLESS_MAIN(TestGpuCuda_Loader)
#include "test_GpuCuda_Loader.moc"
