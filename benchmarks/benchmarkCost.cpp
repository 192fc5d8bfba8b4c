// benchmarkCost SECONDS: the program's own benchmark of the first GPU device of the first OpenCL platform,
// with a clock at the library's entry points. Prints one JSON object:
//   total_ms      the whole run
//   rounds_ms     of that, the kernel rounds: from a kernel's launch to the end of the wait for it
//   outside_processor_ms   the process' processor time outside the rounds
//   builds_ms     of that, the driver's builds of the kernel
//   measured_ms   from the last kernel argument set to the results' reading: the time that makes the score
//   measured_rounds_ms   of that, the kernel rounds
//   score         GPS
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "benchmarks/processorTime.h"
#include "opencl/GpuBenchmarkOpenCL.h"
#include "opencl/GpuOpenCL_Loader.h"
#include "opencl/OpenCLDevices.h"
#include "opencl/benchmarkSettings.h"

namespace {

using Clock = std::chrono::steady_clock;

double milliseconds(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}

struct Times {
    double roundsProcessor = 0.0; ///< the process' processor time in the rounds
    double launchedProcessor = 0.0;
    double rounds = 0.0;
    double builds = 0.0;
    double measured = 0.0;
    double measuredRounds = 0.0;
    double roundsBefore = 0.0; ///< when the last argument was set
    Clock::time_point armed;   ///< the same
    Clock::time_point launched;
};

Times times;

/// The library's own functions behind the clocks.
GpuOpenCL_Table real;

cl_int enqueueKernel(cl_command_queue queue, cl_kernel kernel, cl_uint dimensions, const size_t* offset,
                     const size_t* global, const size_t* local, cl_uint waitCount, const cl_event* waitList,
                     cl_event* event) {
    times.launched = Clock::now();
    times.launchedProcessor = processorMilliseconds();
    return real.clEnqueueNDRangeKernel(queue, kernel, dimensions, offset, global, local, waitCount, waitList,
                                       event);
}

cl_int finish(cl_command_queue queue) {
    const cl_int status = real.clFinish(queue);
    times.rounds += milliseconds(times.launched, Clock::now());
    times.roundsProcessor += processorMilliseconds() - times.launchedProcessor;
    return status;
}

cl_int setKernelArg(cl_kernel kernel, cl_uint index, size_t size, const void* value) {
    const cl_int status = real.clSetKernelArg(kernel, index, size, value);
    times.roundsBefore = times.rounds;
    times.armed = Clock::now();
    return status;
}

cl_int enqueueRead(cl_command_queue queue, cl_mem buffer, cl_bool blocking, size_t offset, size_t size,
                   void* data, cl_uint waitCount, const cl_event* waitList, cl_event* event) {
    times.measured = milliseconds(times.armed, Clock::now());
    times.measuredRounds = times.rounds - times.roundsBefore;
    return real.clEnqueueReadBuffer(queue, buffer, blocking, offset, size, data, waitCount, waitList, event);
}

cl_int buildProgram(cl_program program, cl_uint count, const cl_device_id* devices, const char* options,
                    void(CL_CALLBACK* notify)(cl_program, void*), void* data) {
    const Clock::time_point began = Clock::now();
    const cl_int status = real.clBuildProgram(program, count, devices, options, notify, data);
    times.builds += milliseconds(began, Clock::now());
    return status;
}

/// The entry point, or its timed wrapper if it has one.
void* symbol(void* library, const char* name) {
    const DynamicLoader system = DynamicLoader::system();
    const auto behind = [&](const char* timedName, auto& function, auto* clocked) -> void* {
        if (std::strcmp(name, timedName) != 0 || !system.resolve(library, name, function))
            return nullptr;
        return reinterpret_cast<void*>(clocked);
    };
    const std::array<void*, 5> clocked = {
        behind("clEnqueueNDRangeKernel", real.clEnqueueNDRangeKernel, enqueueKernel),
        behind("clFinish", real.clFinish, finish),
        behind("clSetKernelArg", real.clSetKernelArg, setKernelArg),
        behind("clEnqueueReadBuffer", real.clEnqueueReadBuffer, enqueueRead),
        behind("clBuildProgram", real.clBuildProgram, buildProgram),
    };
    for (void* function : clocked)
        if (function != nullptr)
            return function;
    return system.symbol(library, name);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    DynamicLoader loader = DynamicLoader::system();
    loader.symbol = symbol;
    if (GpuOpenCL_Loader::load(loader) == 0)
        return 1;
    const OpenCLPlatforms platforms = listOpenCLPlatforms();
    const auto devices = platforms.listed.empty() ? std::vector<cl_device_id>()
                                                  : listOpenCLGpuDevices(platforms.listed.front());
    if (devices.empty())
        return 1;
    benchmarkWarmupMs = 1; // a short benchmark's
    GpuBenchmarkOpenCL_Context context;
    const Clock::time_point began = Clock::now();
    const double beganProcessor = processorMilliseconds();
    const float score =
        GpuBenchmarkOpenCL::run(context, devices.front(), std::strtod(argv[1], nullptr), benchmarkGeometry);
    const double total = milliseconds(began, Clock::now());
    const double processor = processorMilliseconds() - beganProcessor;
    std::printf("{\"total_ms\": %.3f, \"outside_processor_ms\": %.3f, \"rounds_ms\": %.3f, \"builds_ms\": "
                "%.3f, \"measured_ms\": %.3f, "
                "\"measured_rounds_ms\": %.3f, \"score\": %.5f}\n",
                total, processor - times.roundsProcessor, times.rounds, times.builds, times.measured,
                times.measuredRounds, static_cast<double>(score));
    GpuOpenCL_Loader::unload();
    return score > 0.0F ? 0 : 1;
}
