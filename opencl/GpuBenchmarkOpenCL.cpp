#include "opencl/GpuBenchmarkOpenCL.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include <QString>

#include "app/log/logLine.h"
#include "opencl/GpuOpenCL_Loader.h"
#include "opencl/HostArray.h"
#include "opencl/errorName.h"
#include "support/qzTimer.h"

using GpuOpenCL_Loader::call;
using GpuOpenCL_Loader::table;

namespace {

constexpr float warmupScale = 0.1F;
constexpr double targetRoundMs = 2000.0;

void logError(const char* message) {
    logLine(1, QString::fromLatin1(message));
}

struct HostData {
    HostArray<float> a;
    HostArray<float> b;

    explicit HostData(std::size_t bytes) : a(std::malloc(bytes)), b(std::malloc(bytes)) {}

    // The same numbers on every machine and in every run: a fixed seed, and the C library's own generator.
    void fill(std::size_t elements) const {
        std::srand(123);
        for (std::size_t i = 0; i < elements; ++i) {
            a[i] = static_cast<float>(std::rand()) * 0x1p-31F;
            b[i] = static_cast<float>(std::rand()) * 0x1p-31F;
        }
    }
};

struct DeviceBuffers {
    cl_mem a = nullptr;
    cl_mem b = nullptr;
    cl_mem out = nullptr;

    DeviceBuffers() = default;
    DeviceBuffers(const DeviceBuffers&) = delete;
    DeviceBuffers& operator=(const DeviceBuffers&) = delete;
    ~DeviceBuffers() {
        for (cl_mem buffer : {a, b, out})
            if (buffer != nullptr)
                call(table().clReleaseMemObject, buffer);
    }
};

bool createBuffer(cl_mem& buffer, cl_context context, cl_mem_flags flags, std::size_t bytes,
                  const char* message) {
    cl_int status = CL_SUCCESS;
    buffer = call(table().clCreateBuffer, context, flags, bytes, nullptr, &status);
    return GpuBenchmarkOpenCL::succeeded(status, message);
}

/// One run's state between its steps. The owners are declared in reverse order of their release.
class Run {
  public:
    Run(GpuBenchmarkOpenCL_Context& ownedContext, const BenchmarkGeometry& runGeometry)
        : context(ownedContext), geometry(runGeometry), host(runGeometry.bytes()) {}

    bool prepare();
    bool buildKernel();
    bool warmUp();
    bool measure(double seconds);
    double score() const { return gps; }

  private:
    void upload(cl_mem buffer, const HostArray<float>& data);
    cl_int enqueueRound();
    bool resultsAreZero() const;
    bool warmupFailed(cl_int enqueued, cl_int finished);

    GpuBenchmarkOpenCL_Context& context;
    const BenchmarkGeometry geometry;
    const HostData host;
    DeviceBuffers buffers;
    double gps = 0.0;
};

bool Run::prepare() {
    if (host.a == nullptr || host.b == nullptr) {
        logError("    GpuBenchmarkOpenCL: malloc failed");
        return false;
    }
    host.fill(geometry.elements());
    const auto create = [this](cl_mem& buffer, cl_mem_flags flags, const char* message) {
        return createBuffer(buffer, context.context, flags, geometry.bytes(), message);
    };
    if (!create(buffers.a, CL_MEM_READ_ONLY, "    GpuBenchmarkOpenCL: clCreateBuffer A failed: %1") ||
        !create(buffers.b, CL_MEM_READ_ONLY, "    GpuBenchmarkOpenCL: clCreateBuffer B failed: %1") ||
        !create(buffers.out, CL_MEM_WRITE_ONLY, "    GpuBenchmarkOpenCL: clCreateBuffer Out failed: %1"))
        return false;
    upload(buffers.a, host.a);
    upload(buffers.b, host.b);
    GLOBAL_Iteratons_mod = warmupScale;
    return true;
}

// A failing transfer is ignored: the rounds then process whatever the buffer holds, which takes as long. A
// device that does not work at all shows in the results and in the rounds' time.
void Run::upload(cl_mem buffer, const HostArray<float>& data) {
    call(table().clEnqueueWriteBuffer, context.queue, buffer, CL_TRUE, 0, geometry.bytes(), data.get(), 0,
         nullptr, nullptr);
}

bool Run::buildKernel() {
    if (GpuBenchmarkOpenCL::buildKernel(context) == 0)
        return false;
    call(table().clSetKernelArg, context.kernel, 0, sizeof(cl_mem), &buffers.a);
    call(table().clSetKernelArg, context.kernel, 1, sizeof(cl_mem), &buffers.b);
    call(table().clSetKernelArg, context.kernel, 2, sizeof(cl_mem), &buffers.out);
    return true;
}

cl_int Run::enqueueRound() {
    return call(table().clEnqueueNDRangeKernel, context.queue, context.kernel, 2, nullptr, geometry.global,
                geometry.local, 0, nullptr, nullptr);
}

bool Run::resultsAreZero() const {
    std::array<float, 4> first{};
    call(table().clEnqueueReadBuffer, context.queue, buffers.out, CL_TRUE, 0, sizeof first, first.data(), 0,
         nullptr, nullptr);
    return std::all_of(first.begin(), first.end(), [](float value) { return value == 0.0F; });
}

bool Run::warmupFailed(cl_int enqueued, cl_int finished) {
    logLine(1, QStringLiteral("    GpuBenchmarkOpenCL: warmup failed: %1 / %2")
                   .arg(QLatin1String(errorName(enqueued)), QLatin1String(errorName(finished))));
    // A queue that its driver calls invalid no longer exists: releasing it would not be safe.
    if (finished == CL_INVALID_COMMAND_QUEUE)
        context.queue = nullptr;
    return false;
}

bool Run::warmUp() {
    const qzTimer timer;
    int elapsedMs = timer.elapsed();
    quint64 rounds = 0;
    for (; elapsedMs < benchmarkWarmupMs; elapsedMs = timer.elapsed()) {
        const cl_int enqueued = enqueueRound();
        const cl_int finished = call(table().clFinish, context.queue);
        if (enqueued != CL_SUCCESS || finished != CL_SUCCESS)
            return warmupFailed(enqueued, finished);
        ++rounds;
    }
    const double averageMs = static_cast<double>(elapsedMs) / static_cast<double>(rounds);
    if (resultsAreZero()) {
        logError("    GpuBenchmarkOpenCL: warmup produced zero results, kernel likely failed");
        return false;
    }
    if (1.0 > averageMs) {
        logLine(
            1, QStringLiteral("    GpuBenchmarkOpenCL: warmup avg round time < 1ms (%1ms), kernel likely not "
                              "running correctly")
                   .arg(averageMs, 0, 'f', 2));
        return false;
    }
    GLOBAL_Iteratons_mod = static_cast<float>(targetRoundMs / (averageMs * 10.0));
    // Readers of the log know the setting by its misspelled name.
    logLine(4,
            QStringLiteral("    GpuBenchmarkOpenCL: warmup avg %1 ms/round, GLOBAL_Iteratons_mod set to %2")
                .arg(QString::number(averageMs, 'f', 1),
                     QString::number(static_cast<double>(GLOBAL_Iteratons_mod), 'f', 2)));
    return true;
}

bool Run::measure(double seconds) {
    const int durationMs = static_cast<int>(1000.0 * seconds);
    const qzTimer total;
    qzTimer round;
    quint64 rounds = 0;
    while (total.elapsed() < durationMs) {
        ++rounds;
        enqueueRound();
        call(table().clFinish, context.queue);
        if (round.restart() < 1) {
            logError("    GpuBenchmarkOpenCL: round time < 1ms, kernel likely not running correctly");
            return false;
        }
    }
    const int totalMs = total.elapsed();
    if (resultsAreZero()) {
        logError("    GpuBenchmarkOpenCL: results are zero after benchmark, kernel likely failed");
        return false;
    }
    const double averageMs = static_cast<double>(totalMs) / static_cast<double>(rounds);
    gps = 0.06409515220941284 *
          ((static_cast<double>(GLOBAL_Iteratons_mod) * (134217728.0 / averageMs)) / 1000.0);
    logLine(4, QStringLiteral("    GpuBenchmarkOpenCL: %1 rounds, avg %2 ms/round, performance %3 GPS")
                   .arg(QString::number(rounds), QString::number(averageMs, 'f', 2),
                        QString::number(gps, 'f', 3)));
    return true;
}

} // namespace

float GpuBenchmarkOpenCL::run(GpuBenchmarkOpenCL_Context& context, cl_device_id device, double seconds,
                              const BenchmarkGeometry& geometry) {
    if (!GpuOpenCL_Loader::isLoaded())
        return 0.0F;
    release(context);
    if (createContext(context, device) == 0)
        return 0.0F;
    double gps = 0.0;
    {
        Run attempt(context, geometry);
        if (attempt.prepare() && attempt.buildKernel() && attempt.warmUp() && attempt.buildKernel() &&
            attempt.measure(seconds))
            gps = attempt.score();
    }
    release(context);
    return static_cast<float>(gps);
}
