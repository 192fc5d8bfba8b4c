// One run of the benchmark on the stand-in library, in virtual time.
#pragma once

#include <QByteArray>
#include <QTest>

#include "app/log/logLine.h"
#include "opencl/GpuBenchmarkOpenCL.h"
#include "opencl/GpuOpenCL_Loader.h"
#include "opencl/benchmarkSettings.h"
#include "tests/unit/CaptureStdout.h"
#include "tests/unit/FakeCalls.h"
#include "tests/unit/FakeOpenCL.h"
#include "tests/unit/VirtualTime.h"

inline constexpr BenchmarkGeometry small = {{256, 2}, {256, 1}};

/// Loads a library of one device, with the settings that the program starts with.
inline void prepareBenchmark(int level = 5) {
    logLevel = level;
    benchmarkWarmupMs = 4;
    GLOBAL_Iteratons_mod = 1.0F;
    GpuOpenCL_Loader::unload();
    FakeLoader::reset();
    FakeOpenCL::install({{"p", {FakeClDevice()}}});
    GpuOpenCL_Loader::load(FakeLoader::functions());
    FakeCalls::reset();
}

/// Every object was released, and none used after its release.
inline void checkNothingIsLeft() {
    QCOMPARE(FakeOpenCL::liveObjects(), QStringList());
    QCOMPARE(FakeOpenCL::misuses(), QStringList());
}

inline QByteArray benchmarkLine(const QByteArray& text) {
    return "    GpuBenchmarkOpenCL: " + text + "\n";
}

/// One run's result and its messages.
struct Outcome {
    float score = -1.0F;
    QByteArray printed;

    /// Without what every message begins with.
    QByteArray lastLine() const {
        return printed.mid(printed.lastIndexOf("GpuBenchmarkOpenCL: ") + 20).chopped(1);
    }
};

inline Outcome run(double seconds, GpuBenchmarkOpenCL_Context& context,
                   const BenchmarkGeometry& geometry = small) {
    const VirtualTime time;
    Outcome outcome;
    outcome.printed = printedBy([&] {
        outcome.score = GpuBenchmarkOpenCL::run(context, FakeOpenCL::device(0, 0), seconds, geometry);
    });
    return outcome;
}

inline Outcome run(double seconds, const BenchmarkGeometry& geometry = small) {
    GpuBenchmarkOpenCL_Context context;
    return run(seconds, context, geometry);
}
