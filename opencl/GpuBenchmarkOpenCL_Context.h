// The OpenCL objects of one benchmark run.
#pragma once

#include <CL/cl.h>

#include <QByteArray>

/// Owned by the caller of one run. Objects that are absent are null; what is left at its end is released.
struct GpuBenchmarkOpenCL_Context {
    cl_device_id device = nullptr; ///< the device under test, not owned
    cl_context context = nullptr;
    cl_command_queue queue = nullptr;
    cl_program program = nullptr;
    cl_kernel kernel = nullptr;

    GpuBenchmarkOpenCL_Context() = default;
    ~GpuBenchmarkOpenCL_Context();
    GpuBenchmarkOpenCL_Context(const GpuBenchmarkOpenCL_Context&) = delete;
    GpuBenchmarkOpenCL_Context& operator=(const GpuBenchmarkOpenCL_Context&) = delete;
};

namespace GpuBenchmarkOpenCL {

/// Makes context and queue for `device`. 0 after a log line when either fails.
int createContext(GpuBenchmarkOpenCL_Context& context, cl_device_id device);

/// Builds the kernel anew for the current `GLOBAL_Iteratons_mod`. 0 after a log line when a step fails.
int buildKernel(GpuBenchmarkOpenCL_Context& context);

/// Releases kernel, program, queue and context, those that are there, in this order.
void release(GpuBenchmarkOpenCL_Context& context);

/// Whether a call succeeded. When not, logs `message` at level 1 with the status' name for its %1.
bool succeeded(cl_int status, const char* message);

/// The kernel's source text for an iteration scale.
QByteArray kernelSource(float iterationScale);

} // namespace GpuBenchmarkOpenCL
