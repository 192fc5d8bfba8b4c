// The vendors' libraries that are opened at run time: NVML's and OpenCL's loaders, tried by one table.
#include <climits>

#include <QTest>

#include "app/log/logLine.h"
#include "nvidia/GpuNvml_Loader.h"
#include "opencl/GpuOpenCL_Loader.h"
#include "tests/unit/CaptureStdout.h"
#include "tests/unit/ChildProcess.h"
#include "tests/unit/FakeCalls.h"
#include "tests/unit/FakeNvml.h"
#include "tests/unit/FakeOpenCL.h"
#include "tests/unit/testRows.h"

namespace {

struct Expected {
    const char* name;
    bool required;
};

/// The null entry points of a table.
template <class Table>
QStringList absentIn(Table table) {
    QStringList names;
    table.walk([&names](const char* name, auto* function, EntryPoint) {
        if (function == nullptr)
            names.append(name);
    });
    return names;
}

/// A loader and its expected behaviour.
struct Loader {
    QByteArray file; ///< tried after the same name with ".1"
    QByteArray notFoundText;
    QByteArray incompleteText;
    int level; ///< the lowest log level at which the texts are printed
    void (*install)(const QByteArray& file);
    int (*loadFrom)(const DynamicLoader&);
    bool (*isLoaded)();
    void (*unload)();
    QStringList (*absent)();
    std::vector<Expected> entryPoints; ///< in the order in which they are looked up

    int load() const { return loadFrom(FakeLoader::functions()); }

    QStringList opens(bool both) const {
        const QString name = QString::fromLatin1(file);
        QStringList calls = {"dlopen(" + name + ".1, 1)"};
        if (both)
            calls.append("dlopen(" + name + ", 1)");
        return calls;
    }

    QStringList lookUps(const QString& in) const {
        QStringList calls;
        for (const Expected& entryPoint : entryPoints)
            calls.append(QStringLiteral("dlsym(%1, %2)").arg(in, entryPoint.name));
        return calls;
    }

    /// Fails to load; what it prints.
    QByteArray failingLoad() const {
        int result = 1;
        const QByteArray printed = printedBy([&] { result = load(); });
        if (result != 0 || isLoaded() || absent().size() != static_cast<int>(entryPoints.size()))
            qFatal("%s is loaded", file.constData());
        return printed;
    }
};

const Loader loaders[] = {
    {"libnvidia-ml.so",
     "libnvidia-ml.so not found - no Nvidia GPU or driver not installed\n",
     "GpuNvml_Loader: required functions not found\n",
     INT_MIN, // not the log's lines
     [](const QByteArray& file) { FakeNvml::install({}, file); },
     GpuNvml_Loader::load,
     GpuNvml_Loader::isLoaded,
     GpuNvml_Loader::unload,
     [] { return absentIn(GpuNvml_Loader::table()); },
     {{"nvmlInit_v2", true},
      {"nvmlShutdown", true},
      {"nvmlDeviceGetCount_v2", true},
      {"nvmlDeviceGetHandleByIndex_v2", true},
      {"nvmlDeviceGetPciInfo_v3", true},
      {"nvmlDeviceGetName", true},
      {"nvmlDeviceGetUtilizationRates", true},
      {"nvmlDeviceGetTemperature", true},
      {"nvmlDeviceGetMemoryInfo", true},
      {"nvmlErrorString", true}}},
    {"libOpenCL.so",
     "OpenCL library not found\n\n",
     "OpenCL: required functions not found\n\n",
     2,
     [](const QByteArray& file) { FakeOpenCL::install({}, file); },
     GpuOpenCL_Loader::load,
     GpuOpenCL_Loader::isLoaded,
     GpuOpenCL_Loader::unload,
     [] { return absentIn(GpuOpenCL_Loader::table()); },
     {{"clGetPlatformIDs", true},
      {"clGetPlatformInfo", false},
      {"clGetDeviceIDs", true},
      {"clGetDeviceInfo", true},
      {"clCreateContext", true},
      {"clCreateCommandQueue", true},
      {"clCreateProgramWithSource", true},
      {"clBuildProgram", true},
      {"clGetProgramBuildInfo", false},
      {"clCreateKernel", true},
      {"clCreateBuffer", true},
      {"clEnqueueWriteBuffer", false},
      {"clEnqueueReadBuffer", false},
      {"clEnqueueNDRangeKernel", true},
      {"clSetKernelArg", false},
      {"clFinish", true},
      {"clReleaseKernel", false},
      {"clReleaseProgram", false},
      {"clReleaseCommandQueue", false},
      {"clReleaseContext", false},
      {"clReleaseMemObject", false}}},
};

void addLoaders() {
    QTest::addColumn<const Loader*>("loader");
    for (const Loader& loader : loaders)
        QTest::newRow(loader.file.constData()) << &loader;
}

} // namespace

Q_DECLARE_METATYPE(const Loader*)

class TestVendorLibrary : public QObject {
    Q_OBJECT

  private slots:
    void init() {
        logLevel = 5;
        for (const Loader& loader : loaders)
            loader.unload();
        FakeCalls::reset();
        FakeLoader::reset();
    }

    void names_data() {
        testColumns<const Loader*, QByteArrayList, QStringList>("loader", "present", "calls");
        for (const Loader& loader : loaders) {
            const QByteArray versioned = loader.file + ".1";
            const QStringList calls = loader.opens(false) + loader.lookUps(versioned);
            QTest::addRow("%s, both", loader.file.constData())
                << &loader << QByteArrayList{versioned, loader.file} << calls;
            QTest::addRow("%s, versioned", loader.file.constData())
                << &loader << QByteArrayList{versioned} << calls;
            QTest::addRow("%s, unversioned", loader.file.constData())
                << &loader << QByteArrayList{loader.file} << loader.opens(true) + loader.lookUps(loader.file);
        }
    }

    void names() {
        QFETCH(const Loader*, loader);
        QFETCH(QByteArrayList, present);
        for (const QByteArray& file : qAsConst(present))
            loader->install(file);
        int result = 0;
        QCOMPARE(printedBy([&] { result = loader->load(); }), QByteArray());
        QCOMPARE(result, 1);
        QVERIFY(loader->isLoaded());
        QCOMPARE(loader->absent(), QStringList());
        QTEST(FakeCalls::all(), "calls");
    }

    void notFound_data() { addLoaders(); }

    void notFound() {
        QFETCH(const Loader*, loader);
        logLevel = loader->level;
        QCOMPARE(loader->failingLoad(), loader->notFoundText);
        loader->unload();
        QCOMPARE(FakeCalls::all(), loader->opens(true));
        if (loader->level == INT_MIN)
            return;
        logLevel = loader->level - 1;
        QCOMPARE(loader->failingLoad(), QByteArray());
    }

    void missingEntryPoint_data() {
        const auto row = testColumns<const Loader*, QByteArray, bool>("loader", "name", "required");
        for (const Loader& loader : loaders)
            for (const Expected& entryPoint : loader.entryPoints)
                row(entryPoint.name, &loader, QByteArray(entryPoint.name), entryPoint.required);
    }

    void missingEntryPoint() {
        QFETCH(const Loader*, loader);
        QFETCH(QByteArray, name);
        QFETCH(bool, required);
        const QByteArray file = loader->file + ".1";
        loader->install(file);
        FakeLibrary& library = FakeLoader::library(file);
        library.symbols.erase(name);
        if (name.endsWith("_v2") || name.endsWith("_v3")) // an older version of it does not serve
            library.add(name.chopped(3).constData(), +[] { return 0; });
        const QStringList tried = loader->opens(false) + loader->lookUps(file);
        logLevel = loader->level;
        if (required) {
            QCOMPARE(loader->failingLoad(), loader->incompleteText);
            QCOMPARE(FakeCalls::all(), tried + QStringList(QStringLiteral("dlclose(%1)").arg(QString(file))));
        } else {
            int result = -1;
            QCOMPARE(printedBy([&] { result = loader->load(); }), QByteArray());
            QCOMPARE(result, 1);
            QCOMPARE(FakeCalls::all(), tried);
            QCOMPARE(loader->absent(), QStringList(name));
        }
        QCOMPARE(library.timesOpen, required ? 0 : 1);
        if (required && loader->level != INT_MIN) {
            logLevel = loader->level - 1;
            QCOMPARE(loader->failingLoad(), QByteArray());
        }
    }

    void emptyLibrary_data() { addLoaders(); }

    // The second name is for a library that is absent, not for one that is unusable.
    void emptyLibrary() {
        QFETCH(const Loader*, loader);
        FakeLoader::provide(loader->file + ".1");
        loader->install(loader->file);
        QCOMPARE(loader->failingLoad(), loader->incompleteText);
        QCOMPARE(FakeCalls::count("dlopen"), 1);
    }

    void reportsBeforeItCloses_data() { addLoaders(); }

    // Closing a library runs its code, which may print or end the process.
    void reportsBeforeItCloses() {
        QFETCH(const Loader*, loader);
        FakeLoader::provide(loader->file + ".1");
        FakeCalls::during("dlclose", [] { std::puts("closing"); });
        QCOMPARE(loader->failingLoad(), loader->incompleteText + "closing\n");
    }

    void loadsOnce_data() { addLoaders(); }

    void loadsOnce() {
        QFETCH(const Loader*, loader);
        loader->install(loader->file + ".1");
        loader->load();
        FakeCalls::reset();
        QCOMPARE(loader->load(), 1);
        QCOMPARE(FakeCalls::all(), QStringList());
    }

    void unload_data() { addLoaders(); }

    void unload() {
        QFETCH(const Loader*, loader);
        loader->install(loader->file + ".1");
        loader->unload(); // harmless without a load
        QCOMPARE(FakeCalls::all(), QStringList());
        loader->load();
        FakeCalls::reset();
        loader->unload();
        QVERIFY(!loader->isLoaded());
        QCOMPARE(loader->absent().size(), static_cast<int>(loader->entryPoints.size()));
        loader->unload();
        // Once, and never NVML's own shutdown.
        QCOMPARE(FakeCalls::all(), QStringList(QStringLiteral("dlclose(%1.1)").arg(QString(loader->file))));
        QCOMPARE(loader->load(), 1);
        QCOMPARE(loader->absent(), QStringList());
    }

    void nvmlsTableLeadsToTheLibrary() {
        FakeNvml::install({{"one", 0x65}});
        GpuNvml_Loader::load(FakeLoader::functions());
        unsigned int count = 0;
        QCOMPARE(GpuNvml_Loader::table().nvmlDeviceGetCount_v2(&count), NVML_SUCCESS);
        QCOMPARE(count, 1U);
        QCOMPARE(GpuNvml_Loader::table().nvmlErrorString(9), "error 9 %1");
    }

    void openCLCallsWithoutEntryPoint() {
        using GpuOpenCL_Loader::call;
        const GpuOpenCL_Table none;
        cl_int status = 0;
        QCOMPARE(call(none.clFinish, nullptr), CL_INVALID_OPERATION);
        QCOMPARE(call(none.clReleaseMemObject, nullptr), CL_INVALID_OPERATION);
        QVERIFY(call(none.clCreateBuffer, nullptr, 0, 0, nullptr, &status) == nullptr);
        QCOMPARE(status, CL_INVALID_OPERATION);
        QVERIFY(call(none.clCreateKernel, nullptr, "name", nullptr) == nullptr); // no status wanted
        FakeOpenCL::install({});
        GpuOpenCL_Loader::load(FakeLoader::functions());
        cl_uint count = 0;
        QCOMPARE(call(GpuOpenCL_Loader::table().clGetPlatformIDs, 3, nullptr, &count), CL_SUCCESS);
        QCOMPARE(FakeCalls::of({"clGetPlatformIDs"}), QStringList("clGetPlatformIDs(3)"));
    }

    // In another process, since a driver may print and crash.
    void realOpenCLLibrary() {
        enum Exit { Good, NotLoaded, Incomplete, NotCounted, StillLoaded };
        ChildProcess child([] {
            logLevel = 1;
            if (GpuOpenCL_Loader::load() == 0)
                return NotLoaded;
            if (!absentIn(GpuOpenCL_Loader::table()).isEmpty())
                return Incomplete;
            cl_uint count = 0;
            const cl_int status =
                GpuOpenCL_Loader::call(GpuOpenCL_Loader::table().clGetPlatformIDs, 0, nullptr, &count);
            if (status != CL_SUCCESS && status != -1001) // -1001: no driver at all
                return NotCounted;
            GpuOpenCL_Loader::unload();
            return GpuOpenCL_Loader::isLoaded() ? StillLoaded : Good;
        });
        const int result = child.result();
        if (result == NotLoaded)
            QSKIP("no OpenCL library on this machine");
        QCOMPARE(result, int(Good));
    }

    void closesWithTheLoaderThatOpened() {
        FakeNvml::install({});
        const auto report = [](LoadFailure) {};
        VendorLibrary<GpuNvml_Table> library;
        library.load({"libnvidia-ml.so.1"}, FakeLoader::functions(), report);
        // Already loaded, so the second loader is not used.
        library.load({"libnvidia-ml.so.1"}, DynamicLoader::system(), report);
        library.unload();
        QCOMPARE(FakeLoader::library("libnvidia-ml.so.1").timesOpen, 0);
    }

    void destructorDoesNotUnload() {
        FakeNvml::install({});
        {
            VendorLibrary<GpuNvml_Table> library;
            library.load({"libnvidia-ml.so.1"}, FakeLoader::functions(), [](LoadFailure) {});
            QVERIFY(library.isLoaded());
        }
        QCOMPARE(FakeLoader::library("libnvidia-ml.so.1").timesOpen, 1);
    }
};

QTEST_APPLESS_MAIN(TestVendorLibrary)
#include "test_VendorLibrary.moc"
