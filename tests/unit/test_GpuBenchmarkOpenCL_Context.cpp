#include <cmath>
#include <limits>

#include <QTest>

#include "tests/unit/BenchmarkRun.h"
#include "tests/unit/testRows.h"

using namespace GpuBenchmarkOpenCL;

// A driver may report any size for its build log.
extern "C" const char* __asan_default_options() { // NOLINT(bugprone-reserved-identifier)
    return "allocator_may_return_null=1";
}

namespace {

/// What is printed when a context can't be created.
QByteArray failingCreation(GpuBenchmarkOpenCL_Context& context) {
    int result = 1;
    const QByteArray printed = printedBy([&] { result = createContext(context, FakeOpenCL::device(0, 0)); });
    if (result != 0)
        qFatal("the creation gives %d", result);
    return printed;
}

/// A context on the only device.
struct CreatedContext : GpuBenchmarkOpenCL_Context {
    CreatedContext() { createContext(*this, FakeOpenCL::device(0, 0)); }
};

} // namespace

class TestGpuBenchmarkOpenCL_Context : public QObject {
    Q_OBJECT

  private slots:
    void init() {
        prepareBenchmark(1);
        GLOBAL_Iteratons_mod = 0.1F;
    }

    void cleanup() { checkNothingIsLeft(); }

    void kernelText() {
        const QByteArray expected =
            "__kernel void benchmarkKernel(__global float* a, __global float* b, __global float* result) {\n"
            "    int tid = (get_group_id(1) * 128 * 256)            + get_group_id(0) * 256 + "
            "get_local_id(0);\n"
            "    float val = a[tid];\n"
            "    for (int i = 0; i < 883.3; i++) {\n"
            "        val = sqrt(val * b[tid] * 1000.0f / 12.34567f) + a[tid];\n"
            "    }\n"
            "    result[tid] = val;\n"
            "}\n";
        QCOMPARE(kernelSource(0.1F), expected);
        QCOMPARE(kernelSource(0.1F).replace("883.3", "%1").size(), 347);
    }

    void loopBound_data() {
        const auto row = testColumns<float, QByteArray>("scale", "bound");
        const float infinity = std::numeric_limits<float>::infinity();
        row("start", 1.0F, "8833");
        row("warm-up", 0.1F, "883.3");
        row("slow", 0.001F, "8.833");
        row("six digits", 12.3456F, "109049");
        row("exponent form", 200.0F, "1.7666e+06");
        row("last without exponent", 113.2F, "999896");
        row("first with exponent", 113.3F, "1.00078e+06");
        row("tiny", 1e-9F, "8.833e-06");
        row("no number", std::numeric_limits<float>::quiet_NaN(), "nan");
        row("infinite", infinity, "inf");
        row("single precision", 88.25965118408203F, "779598"); // as doubles: 779597
    }

    void loopBound() {
        QFETCH(float, scale);
        QFETCH(QByteArray, bound);
        const QByteArray source = kernelSource(scale);
        QVERIFY2(source.contains("    for (int i = 0; i < " + bound + "; i++) {\n"), source.constData());
    }

    void createContextCalls() {
        GpuBenchmarkOpenCL_Context context;
        QCOMPARE(createContext(context, FakeOpenCL::device(0, 0)), 1);
        QCOMPARE(context.device, FakeOpenCL::device(0, 0));
        QVERIFY(context.context != nullptr && context.queue != nullptr);
        QVERIFY(context.program == nullptr && context.kernel == nullptr);
        QCOMPARE(FakeCalls::all(), QStringList({"clCreateContext(null, 1, device0.0, null, null)",
                                                "clCreateCommandQueue(context1, device0.0, 0)"}));
    }

    void createContextFails() {
        FakeCalls::fail("clCreateContext", -6);
        GpuBenchmarkOpenCL_Context context;
        QCOMPARE(failingCreation(context), benchmarkLine("clCreateContext failed: CL_OUT_OF_HOST_MEMORY"));
        QCOMPARE(context.device, FakeOpenCL::device(0, 0));
        QCOMPARE(FakeCalls::all().size(), 1); // no queue is tried, nothing released
        logLevel = 0;
        QCOMPARE(failingCreation(context), QByteArray());
    }

    void createQueueFails() {
        FakeCalls::fail("clCreateCommandQueue", -34);
        GpuBenchmarkOpenCL_Context context;
        QCOMPARE(failingCreation(context), benchmarkLine("clCreateCommandQueue failed: CL_INVALID_CONTEXT"));
        QVERIFY(context.context == nullptr);
        QCOMPARE(FakeCalls::all().last(), QString("clReleaseContext(context1)"));
        logLevel = 0;
        QCOMPARE(failingCreation(context), QByteArray());
    }

    void createContextWithoutLibrary() {
        GpuOpenCL_Loader::unload();
        GpuBenchmarkOpenCL_Context context;
        QCOMPARE(failingCreation(context), benchmarkLine("clCreateContext failed: CL_UNKNOWN_ERROR"));
        QVERIFY(context.context == nullptr && context.queue == nullptr);
    }

    void buildKernelCalls() {
        CreatedContext context;
        FakeCalls::reset();
        GLOBAL_Iteratons_mod = 2.0F;
        QCOMPARE(buildKernel(context), 1);
        QCOMPARE(FakeCalls::all(), QStringList({"clCreateProgramWithSource(context1, 1, null)",
                                                "clBuildProgram(program1, 1, device0.0, null, null, null)",
                                                "clCreateKernel(program1, benchmarkKernel)"}));
        QCOMPARE(FakeOpenCL::sources(), std::vector<QByteArray>{kernelSource(2.0F)});
    }

    void buildKernelAgain() {
        CreatedContext context;
        buildKernel(context);
        FakeCalls::reset();
        QCOMPARE(buildKernel(context), 1);
        QCOMPARE(FakeCalls::all().mid(0, 3),
                 QStringList({"clReleaseKernel(kernel1)", "clReleaseProgram(program1)",
                              "clCreateProgramWithSource(context1, 1, null)"}));
    }

    void buildKernelFails_data() {
        const auto row = testColumns<QString, int, QByteArray, QString>("call", "status", "text", "last");
        row("program", "clCreateProgramWithSource", -30,
            benchmarkLine("clCreateProgramWithSource failed: CL_INVALID_VALUE"),
            "clCreateProgramWithSource(context1, 1, null)");
        row("build", "clBuildProgram", -11, benchmarkLine("OpenCL build error:no such type"),
            "clGetProgramBuildInfo(program1, device0.0, 0x1183, 13, set)");
        row("kernel", "clCreateKernel", -46, benchmarkLine("clCreateKernel failed: CL_INVALID_KERNEL_NAME"),
            "clCreateKernel(program1, benchmarkKernel)");
    }

    void buildKernelFails() {
        QFETCH(QString, call);
        QFETCH(int, status);
        FakeCalls::fail(call, status);
        CreatedContext context;
        int result = 1;
        const QByteArray printed = printedBy([&] { result = buildKernel(context); });
        QTEST(printed, "text");
        QCOMPARE(result, 0);
        QTEST(FakeCalls::all().last(), "last");
        logLevel = 0;
        QCOMPARE(printedBy([&] { buildKernel(context); }), QByteArray());
    }

    void buildLog_data() {
        const auto row = testColumns<QByteArray, qint64, QByteArray>("log", "reportedSize", "text");
        row("terminated", QByteArray("error\n", 7), 7, benchmarkLine("OpenCL build error:error\n"));
        row("unterminated", "error", 5, benchmarkLine("OpenCL build error:error"));
        row("up to the terminator", QByteArray("one\0two", 8), 8, benchmarkLine("OpenCL build error:one"));
        row("empty", QByteArray("", 1), 1, benchmarkLine("OpenCL build error:"));
        row("size 0", "error", 0, benchmarkLine("OpenCL build error:"));
        row("reported shorter than it is", "error", 3, benchmarkLine("OpenCL build error:err"));
        row("reported longer than it is", "error", 4096, benchmarkLine("OpenCL build error:error"));
        row("with a placeholder", QByteArray("in %1 at 50%", 13), 13,
            benchmarkLine("OpenCL build error:in %1 at 50%"));
        row("more than there is memory", "error", Q_INT64_C(1) << 52, "");
        row("the largest size there is", "error", -1, "");
    }

    void buildLog() {
        QFETCH(QByteArray, log);
        QFETCH(qint64, reportedSize);
        FakeOpenCL::script().buildLog = log;
        FakeOpenCL::script().buildLogSize = static_cast<std::size_t>(reportedSize);
        FakeCalls::fail("clBuildProgram", -11);
        CreatedContext context;
        const QByteArray printed = printedBy([&] { buildKernel(context); });
        QTEST(printed, "text");
        QCOMPARE(FakeCalls::of({"clGetProgramBuildInfo"}).at(0),
                 QString("clGetProgramBuildInfo(program1, device0.0, 0x1183, 0, null)"));
    }

    void buildWithoutBuildInfo() {
        GpuOpenCL_Loader::unload();
        FakeLoader::library("libOpenCL.so.1").symbols.erase("clGetProgramBuildInfo");
        GpuOpenCL_Loader::load(FakeLoader::functions());
        FakeCalls::fail("clBuildProgram", -11);
        CreatedContext context;
        QCOMPARE(printedBy([&] { buildKernel(context); }), benchmarkLine("OpenCL build error:"));
    }

    void releaseOrder() {
        CreatedContext context;
        buildKernel(context);
        FakeCalls::reset();
        release(context);
        const QStringList inOrder = {"clReleaseKernel(kernel1)", "clReleaseProgram(program1)",
                                     "clReleaseCommandQueue(queue1)", "clReleaseContext(context1)"};
        QCOMPARE(FakeCalls::all(), inOrder);
        QCOMPARE(context.device, FakeOpenCL::device(0, 0));
        release(context); // nothing is left to release
        QCOMPARE(FakeCalls::all(), inOrder);
    }

    void releaseOfWhatIsThere_data() {
        const auto row = testColumns<QString>("call");
        for (const char* call :
             {"clReleaseKernel", "clReleaseProgram", "clReleaseCommandQueue", "clReleaseContext"})
            row(call, call);
    }

    void releaseOfWhatIsThere() {
        QFETCH(QString, call);
        FakeCalls::fail(call, -5); // a release that fails is not repeated
        {
            CreatedContext context;
            buildKernel(context);
            release(context);
        }
        QCOMPARE(FakeCalls::count(call), 1);
    }

    void releasedAtTheEnd() {
        {
            CreatedContext context;
            buildKernel(context);
            QCOMPARE(FakeOpenCL::liveObjects().size(), 4);
        }
        QCOMPARE(FakeOpenCL::liveObjects(), QStringList());
    }
};

QTEST_APPLESS_MAIN(TestGpuBenchmarkOpenCL_Context)
#include "test_GpuBenchmarkOpenCL_Context.moc"
