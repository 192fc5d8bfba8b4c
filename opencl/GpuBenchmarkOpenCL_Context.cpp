#include "opencl/GpuBenchmarkOpenCL_Context.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <QString>

#include "app/log/logLine.h"
#include "opencl/GpuOpenCL_Loader.h"
#include "opencl/HostArray.h"
#include "opencl/benchmarkSettings.h"
#include "opencl/errorName.h"

using GpuOpenCL_Loader::call;
using GpuOpenCL_Loader::table;

namespace {

// The index runs once over every element: 128 groups of 256 in dimension 0, single ones in dimension 1.
constexpr const char* kernelTemplate =
    "__kernel void benchmarkKernel(__global float* a, __global float* b, __global float* result) {\n"
    "    int tid = (get_group_id(1) * 128 * 256)            + get_group_id(0) * 256 + get_local_id(0);\n"
    "    float val = a[tid];\n"
    "    for (int i = 0; i < %1; i++) {\n"
    "        val = sqrt(val * b[tid] * 1000.0f / 12.34567f) + a[tid];\n"
    "    }\n"
    "    result[tid] = val;\n"
    "}\n";

constexpr float baseIterations = 8833.0F;

template <class Handle>
void releaseHandle(Handle& handle, cl_int (*entryPoint)(Handle)) {
    if (handle != nullptr)
        call(entryPoint, handle);
    handle = nullptr;
}

void logBuildError(const GpuBenchmarkOpenCL_Context& context) {
    std::size_t size = 0;
    call(table().clGetProgramBuildInfo, context.program, context.device, CL_PROGRAM_BUILD_LOG, 0, nullptr,
         &size);
    // One more byte than requested, so that a log without a terminator still ends. calloc, since its pages
    // cost nothing until written: the size is whatever the driver reports.
    const HostArray<char> log(size < SIZE_MAX ? std::calloc(size + 1, 1) : nullptr);
    if (log == nullptr)
        return;
    call(table().clGetProgramBuildInfo, context.program, context.device, CL_PROGRAM_BUILD_LOG, size,
         log.get(), nullptr);
    logLine(1, QStringLiteral("    GpuBenchmarkOpenCL: OpenCL build error:%1")
                   .arg(QString::fromUtf8(log.get(), static_cast<int>(strnlen(log.get(), INT_MAX)))));
}

} // namespace

GpuBenchmarkOpenCL_Context::~GpuBenchmarkOpenCL_Context() {
    GpuBenchmarkOpenCL::release(*this);
}

bool GpuBenchmarkOpenCL::succeeded(cl_int status, const char* message) {
    if (status != CL_SUCCESS)
        logLine(1, QString::fromLatin1(message).arg(QLatin1String(errorName(status))));
    return status == CL_SUCCESS;
}

int GpuBenchmarkOpenCL::createContext(GpuBenchmarkOpenCL_Context& context, cl_device_id device) {
    cl_int status = CL_SUCCESS;
    context.device = device;
    context.context = call(table().clCreateContext, nullptr, 1, &device, nullptr, nullptr, &status);
    if (!succeeded(status, "    GpuBenchmarkOpenCL: clCreateContext failed: %1"))
        return 0;
    context.queue = call(table().clCreateCommandQueue, context.context, device, 0, &status);
    if (!succeeded(status, "    GpuBenchmarkOpenCL: clCreateCommandQueue failed: %1")) {
        release(context);
        return 0;
    }
    return 1;
}

QByteArray GpuBenchmarkOpenCL::kernelSource(float iterationScale) {
    const auto iterations = static_cast<double>(baseIterations * iterationScale);
    return QString::fromLatin1(kernelTemplate).arg(iterations, 0, 'g', -1, QLatin1Char(' ')).toLatin1();
}

int GpuBenchmarkOpenCL::buildKernel(GpuBenchmarkOpenCL_Context& context) {
    releaseHandle(context.kernel, table().clReleaseKernel);
    releaseHandle(context.program, table().clReleaseProgram);

    const QByteArray source = kernelSource(GLOBAL_Iteratons_mod);
    const char* text = source.constData();
    cl_int status = CL_SUCCESS;
    context.program = call(table().clCreateProgramWithSource, context.context, 1, &text, nullptr, &status);
    if (!succeeded(status, "    GpuBenchmarkOpenCL: clCreateProgramWithSource failed: %1"))
        return 0;
    if (call(table().clBuildProgram, context.program, 1, &context.device, nullptr, nullptr, nullptr) !=
        CL_SUCCESS) {
        logBuildError(context);
        return 0;
    }
    context.kernel = call(table().clCreateKernel, context.program, "benchmarkKernel", &status);
    return succeeded(status, "    GpuBenchmarkOpenCL: clCreateKernel failed: %1") ? 1 : 0;
}

void GpuBenchmarkOpenCL::release(GpuBenchmarkOpenCL_Context& context) {
    releaseHandle(context.kernel, table().clReleaseKernel);
    releaseHandle(context.program, table().clReleaseProgram);
    releaseHandle(context.queue, table().clReleaseCommandQueue);
    releaseHandle(context.context, table().clReleaseContext);
}
