// The OpenCL objects of one benchmark run.
#pragma once

#include <CL/cl.h>

#include <QByteArray>

/// Owned by the caller of one run. Absent objects are null; the destructor releases the others.
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

/// Creates context and queue for `device`. Returns 0 after a log line if either fails.
int createContext(GpuBenchmarkOpenCL_Context& context, cl_device_id device);

/// Rebuilds the kernel for the current `GLOBAL_Iteratons_mod`. Returns 0 after a log line if a step fails.
int buildKernel(GpuBenchmarkOpenCL_Context& context);

/// Releases kernel, program, queue and context in this order, as far as they exist.
void release(GpuBenchmarkOpenCL_Context& context);

/// Returns whether a call succeeded; if not, logs `message` at level 1 with the status' name as %1.
bool succeeded(cl_int status, const char* message);

/// The kernel's source text for an iteration scale.
QByteArray kernelSource(float iterationScale);

} // namespace GpuBenchmarkOpenCL
