#include <sys/wait.h>
#include <unistd.h>

#include <QTest>

#include "app/log/logLine.h"
#include "opencl/GpuOpenCL_Loader.h"
#include "tests/unit/CaptureStdout.h"
#include "tests/unit/FakeCalls.h"
#include "tests/unit/FakeOpenCL.h"

namespace {

struct Expected {
    const char* name;
    bool required;
};

constexpr Expected entryPoints[] = {
    {"clGetPlatformIDs", true},
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
    {"clReleaseMemObject", false},
};

QStringList lookUps(const char* file) {
    QStringList calls;
    for (const Expected& entryPoint : entryPoints)
        calls.append(QStringLiteral("dlsym(%1, %2)").arg(file, entryPoint.name));
    return calls;
}

int load() {
    return GpuOpenCL_Loader::load(FakeLoader::functions());
}

/// The entry points of the table that are null.
QStringList absent() {
    QStringList names;
    GpuOpenCL_Table table = GpuOpenCL_Loader::table();
    table.walk([&names](const char* name, auto* function, EntryPoint) {
        if (function == nullptr)
            names.append(name);
    });
    return names;
}

} // namespace

class TestGpuOpenCL_Loader : public QObject {
    Q_OBJECT

  private slots:
    void init() {
        logLevel = 3;
        GpuOpenCL_Loader::unload();
        FakeCalls::reset();
        FakeLoader::reset();
        FakeOpenCL::install({});
    }

    void names_data() {
        QTest::addColumn<QStringList>("present");
        QTest::addColumn<QStringList>("calls");
        const QStringList first = {"dlopen(libOpenCL.so.1, 1)"};
        const QStringList second = first + QStringList{"dlopen(libOpenCL.so, 1)"};
        QTest::newRow("both") << QStringList{"libOpenCL.so.1", "libOpenCL.so"}
                              << first + lookUps("libOpenCL.so.1");
        QTest::newRow("versioned") << QStringList{"libOpenCL.so.1"} << first + lookUps("libOpenCL.so.1");
        QTest::newRow("unversioned") << QStringList{"libOpenCL.so"} << second + lookUps("libOpenCL.so");
    }

    void names() {
        FakeLoader::reset();
        QFETCH(QStringList, present);
        for (const QString& file : present)
            FakeOpenCL::install({}, file.toLatin1());
        int result = 0;
        QCOMPARE(printedBy([&] { result = load(); }), QByteArray());
        QCOMPARE(result, 1);
        QVERIFY(GpuOpenCL_Loader::isLoaded());
        QCOMPARE(absent(), QStringList());
        QTEST(FakeCalls::all(), "calls");
    }

    void notFound_data() {
        QTest::addColumn<int>("level");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("level 2") << 2 << QByteArray("OpenCL library not found\n\n");
        QTest::newRow("level 1") << 1 << QByteArray();
    }

    void notFound() {
        FakeLoader::reset();
        QFETCH(int, level);
        logLevel = level;
        int result = 1;
        const QByteArray printed = printedBy([&] { result = load(); });
        QTEST(printed, "text");
        QCOMPARE(result, 0);
        QVERIFY(!GpuOpenCL_Loader::isLoaded());
        QCOMPARE(FakeCalls::all(), QStringList({"dlopen(libOpenCL.so.1, 1)", "dlopen(libOpenCL.so, 1)"}));
        QCOMPARE(absent().size(), 21);
    }

    void missingEntryPoint_data() {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<bool>("required");
        for (const Expected& entryPoint : entryPoints)
            QTest::newRow(entryPoint.name) << QByteArray(entryPoint.name) << entryPoint.required;
    }

    void missingEntryPoint() {
        QFETCH(QByteArray, name);
        QFETCH(bool, required);
        FakeLibrary& library = FakeLoader::library("libOpenCL.so.1");
        library.symbols.erase(name);
        const QStringList tried = QStringList{"dlopen(libOpenCL.so.1, 1)"} + lookUps("libOpenCL.so.1");
        logLevel = 2;
        int result = -1;
        const QByteArray printed = printedBy([&] { result = load(); });
        if (required) {
            QCOMPARE(printed, QByteArray("OpenCL: required functions not found\n\n"));
            QCOMPARE(result, 0);
            QVERIFY(!GpuOpenCL_Loader::isLoaded());
            QCOMPARE(FakeCalls::all(), tried + QStringList{"dlclose(libOpenCL.so.1)"});
            QCOMPARE(absent().size(), 21);
            logLevel = 1;
            QCOMPARE(printedBy(load), QByteArray());
        } else {
            QCOMPARE(printed, QByteArray());
            QCOMPARE(result, 1);
            QCOMPARE(FakeCalls::all(), tried);
            QCOMPARE(absent(), QStringList(name));
        }
        QCOMPARE(library.timesOpen, required ? 0 : 1);
    }

    // What runs while a library is closed is that library's: it may print, or end the process.
    void saysSoBeforeItCloses() {
        FakeLoader::library("libOpenCL.so.1").symbols.erase("clFinish");
        FakeCalls::during("dlclose", [] { std::puts("closing"); });
        QCOMPARE(printedBy(load), QByteArray("OpenCL: required functions not found\n\n") + "closing\n");
    }

    void loadsOnce() {
        load();
        FakeCalls::reset();
        QCOMPARE(load(), 1);
        QCOMPARE(FakeCalls::all(), QStringList());
    }

    void unload() {
        GpuOpenCL_Loader::unload(); // harmless without a load
        QCOMPARE(FakeCalls::all(), QStringList());
        load();
        GpuOpenCL_Loader::unload();
        QVERIFY(!GpuOpenCL_Loader::isLoaded());
        QCOMPARE(absent().size(), 21);
        QCOMPARE(FakeCalls::count("dlclose"), 1);
        GpuOpenCL_Loader::unload();
        QCOMPARE(FakeCalls::count("dlclose"), 1);
        QCOMPARE(load(), 1);
        QCOMPARE(absent(), QStringList());
    }

    void callsWithoutEntryPoint() {
        using GpuOpenCL_Loader::call;
        const GpuOpenCL_Table none;
        cl_int status = 0;
        QCOMPARE(call(none.clFinish, nullptr), CL_INVALID_OPERATION);
        QCOMPARE(call(none.clReleaseMemObject, nullptr), CL_INVALID_OPERATION);
        QVERIFY(call(none.clCreateBuffer, nullptr, 0, 0, nullptr, &status) == nullptr);
        QCOMPARE(status, CL_INVALID_OPERATION);
        QVERIFY(call(none.clCreateKernel, nullptr, "name", nullptr) == nullptr); // nobody asks for its status
        load();
        cl_uint count = 0;
        QCOMPARE(call(GpuOpenCL_Loader::table().clGetPlatformIDs, 3, nullptr, &count), CL_SUCCESS);
        QCOMPARE(FakeCalls::of({"clGetPlatformIDs"}), QStringList("clGetPlatformIDs(3)"));
    }

    // In a process of its own: a driver may keep what it likes, print what it likes, and crash.
    void realLibrary() {
        enum Exit { Good, NotLoaded, Incomplete, NotCounted, StillLoaded };
        const pid_t child = fork();
        if (child == 0) {
            logLevel = 1;
            if (GpuOpenCL_Loader::load() == 0)
                _exit(NotLoaded);
            if (!absent().isEmpty())
                _exit(Incomplete);
            cl_uint count = 0;
            const cl_int status =
                GpuOpenCL_Loader::call(GpuOpenCL_Loader::table().clGetPlatformIDs, 0, nullptr, &count);
            if (status != CL_SUCCESS && status != -1001) // -1001: no driver at all
                _exit(NotCounted);
            GpuOpenCL_Loader::unload();
            _exit(GpuOpenCL_Loader::isLoaded() ? StillLoaded : Good);
        }
        int status = -1;
        waitpid(child, &status, 0);
        QVERIFY(WIFEXITED(status));
        if (WEXITSTATUS(status) == NotLoaded)
            QSKIP("no OpenCL library on this machine");
        QCOMPARE(WEXITSTATUS(status), int(Good));
    }
};

QTEST_APPLESS_MAIN(TestGpuOpenCL_Loader)
#include "test_GpuOpenCL_Loader.moc"
