#include <QTest>

#include "app/log/logLine.h"
#include "nvidia/GpuNvml_Loader.h"
#include "tests/unit/CaptureStdout.h"
#include "tests/unit/FakeCalls.h"
#include "tests/unit/FakeNvml.h"

namespace {

constexpr const char* entryPoints[] = {
    "nvmlInit_v2",
    "nvmlShutdown",
    "nvmlDeviceGetCount_v2",
    "nvmlDeviceGetHandleByIndex_v2",
    "nvmlDeviceGetPciInfo_v3",
    "nvmlDeviceGetName",
    "nvmlDeviceGetUtilizationRates",
    "nvmlDeviceGetTemperature",
    "nvmlDeviceGetMemoryInfo",
    "nvmlErrorString",
};

const QByteArray notFoundText = "libnvidia-ml.so not found - no Nvidia GPU or driver not installed\n";
const QByteArray incompleteText = "GpuNvml_Loader: required functions not found\n";

QStringList lookUps(const char* file) {
    QStringList calls;
    for (const char* name : entryPoints)
        calls.append(QStringLiteral("dlsym(%1, %2)").arg(file, name));
    return calls;
}

int load() {
    return GpuNvml_Loader::load(FakeLoader::functions());
}

int absent() {
    int count = 0;
    GpuNvml_Table table = GpuNvml_Loader::table();
    table.walk([&count](const char*, auto* function, EntryPoint) { count += function == nullptr ? 1 : 0; });
    return count;
}

} // namespace

class TestGpuNvml_Loader : public QObject {
    Q_OBJECT

  private slots:
    // Both lines are said whatever the log's level is.
    void init() {
        logLevel = -1;
        GpuNvml_Loader::unload();
        FakeCalls::reset();
        FakeLoader::reset();
    }

    void names_data() {
        QTest::addColumn<QStringList>("present");
        QTest::addColumn<QStringList>("calls");
        const QStringList first = {"dlopen(libnvidia-ml.so.1, 1)"};
        const QStringList second = first + QStringList{"dlopen(libnvidia-ml.so, 1)"};
        QTest::newRow("both") << QStringList{"libnvidia-ml.so.1", "libnvidia-ml.so"}
                              << first + lookUps("libnvidia-ml.so.1");
        QTest::newRow("versioned") << QStringList{"libnvidia-ml.so.1"}
                                   << first + lookUps("libnvidia-ml.so.1");
        QTest::newRow("unversioned") << QStringList{"libnvidia-ml.so"} << second + lookUps("libnvidia-ml.so");
    }

    void names() {
        QFETCH(QStringList, present);
        for (const QString& file : present)
            FakeNvml::install({}, file.toLatin1());
        int result = 0;
        QCOMPARE(printedBy([&] { result = load(); }), QByteArray());
        QCOMPARE(result, 1);
        QVERIFY(GpuNvml_Loader::isLoaded());
        QCOMPARE(absent(), 0);
        QTEST(FakeCalls::all(), "calls");
    }

    void notFound() {
        int result = 1;
        QCOMPARE(printedBy([&] { result = load(); }), notFoundText);
        QCOMPARE(result, 0);
        QVERIFY(!GpuNvml_Loader::isLoaded());
        QCOMPARE(FakeCalls::all(),
                 QStringList({"dlopen(libnvidia-ml.so.1, 1)", "dlopen(libnvidia-ml.so, 1)"}));
        QCOMPARE(absent(), 10);
    }

    void missingEntryPoint_data() {
        QTest::addColumn<QByteArray>("name");
        for (const char* name : entryPoints)
            QTest::newRow(name) << QByteArray(name);
    }

    void missingEntryPoint() {
        QFETCH(QByteArray, name);
        FakeLibrary& library = FakeNvml::install({});
        library.symbols.erase(name);
        if (name.endsWith("_v2") || name.endsWith("_v3")) // an older name of it does not serve
            library.add(name.chopped(3).constData(), +[] { return 0; });
        int result = 1;
        QCOMPARE(printedBy([&] { result = load(); }), incompleteText);
        QCOMPARE(result, 0);
        QVERIFY(!GpuNvml_Loader::isLoaded());
        QCOMPARE(FakeCalls::all(), QStringList{"dlopen(libnvidia-ml.so.1, 1)"} +
                                       lookUps("libnvidia-ml.so.1") +
                                       QStringList{"dlclose(libnvidia-ml.so.1)"});
        QCOMPARE(library.timesOpen, 0);
        QCOMPARE(absent(), 10);
    }

    // The second name is for a library that is absent, not for one that is no good.
    void emptyLibrary() {
        FakeLoader::provide("libnvidia-ml.so.1");
        FakeNvml::install({}, "libnvidia-ml.so");
        QCOMPARE(printedBy(load), incompleteText);
        QCOMPARE(FakeCalls::count("dlopen"), 1);
    }

    // What runs while a library is closed is that library's: it may print, or end the process.
    void saysSoBeforeItCloses() {
        FakeNvml::install({}).symbols.erase("nvmlErrorString");
        FakeCalls::during("dlclose", [] { std::puts("closing"); });
        QCOMPARE(printedBy(load), incompleteText + "closing\n");
    }

    void loadsOnce() {
        FakeNvml::install({});
        load();
        FakeCalls::reset();
        QCOMPARE(load(), 1);
        QCOMPARE(FakeCalls::all(), QStringList());
    }

    void unload() {
        FakeNvml::install({});
        GpuNvml_Loader::unload(); // harmless without a load
        QCOMPARE(FakeCalls::all(), QStringList());
        load();
        FakeCalls::reset();
        GpuNvml_Loader::unload();
        QVERIFY(!GpuNvml_Loader::isLoaded());
        QCOMPARE(absent(), 10);
        GpuNvml_Loader::unload();
        QCOMPARE(FakeCalls::all(),
                 QStringList("dlclose(libnvidia-ml.so.1)")); // and never NVML's own shutdown
        QCOMPARE(load(), 1);
        QCOMPARE(absent(), 0);
    }

    void tableLeadsToTheLibrary() {
        FakeNvml::install({{"one", 0x65}});
        load();
        unsigned int count = 0;
        QCOMPARE(GpuNvml_Loader::table().nvmlDeviceGetCount_v2(&count), NVML_SUCCESS);
        QCOMPARE(count, 1U);
        QCOMPARE(GpuNvml_Loader::table().nvmlErrorString(9), "error 9 %1");
    }
};

QTEST_APPLESS_MAIN(TestGpuNvml_Loader)
#include "test_GpuNvml_Loader.moc"
