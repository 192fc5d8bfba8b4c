// The OpenCL entry points the program uses, looked up in the system's ICD loader at run time. One table per
// process, without locks or reference counts: only the main thread loads, uses and unloads it.
#pragma once

#include <tuple>
#include <type_traits>

#include <CL/cl.h>

#include "support/VendorLibrary.h"

/// One pointer per entry point, null if the library is not loaded or lacks it.
struct GpuOpenCL_Table {
    decltype(&::clGetPlatformIDs) clGetPlatformIDs = nullptr;
    decltype(&::clGetPlatformInfo) clGetPlatformInfo = nullptr;
    decltype(&::clGetDeviceIDs) clGetDeviceIDs = nullptr;
    decltype(&::clGetDeviceInfo) clGetDeviceInfo = nullptr;
    decltype(&::clCreateContext) clCreateContext = nullptr;
    decltype(&::clCreateCommandQueue) clCreateCommandQueue = nullptr;
    decltype(&::clCreateProgramWithSource) clCreateProgramWithSource = nullptr;
    decltype(&::clBuildProgram) clBuildProgram = nullptr;
    decltype(&::clGetProgramBuildInfo) clGetProgramBuildInfo = nullptr;
    decltype(&::clCreateKernel) clCreateKernel = nullptr;
    decltype(&::clCreateBuffer) clCreateBuffer = nullptr;
    decltype(&::clEnqueueWriteBuffer) clEnqueueWriteBuffer = nullptr;
    decltype(&::clEnqueueReadBuffer) clEnqueueReadBuffer = nullptr;
    decltype(&::clEnqueueNDRangeKernel) clEnqueueNDRangeKernel = nullptr;
    decltype(&::clSetKernelArg) clSetKernelArg = nullptr;
    decltype(&::clFinish) clFinish = nullptr;
    decltype(&::clReleaseKernel) clReleaseKernel = nullptr;
    decltype(&::clReleaseProgram) clReleaseProgram = nullptr;
    decltype(&::clReleaseCommandQueue) clReleaseCommandQueue = nullptr;
    decltype(&::clReleaseContext) clReleaseContext = nullptr;
    decltype(&::clReleaseMemObject) clReleaseMemObject = nullptr;

    /// The one list of the entry points, in the order in which they are looked up. Some that the benchmark
    /// calls are optional: a library that lacks one still serves to find and pair the GPUs.
    template <class Visit>
    void walk(Visit visit) {
        visit("clGetPlatformIDs", clGetPlatformIDs, EntryPoint::Required);
        visit("clGetPlatformInfo", clGetPlatformInfo, EntryPoint::Optional);
        visit("clGetDeviceIDs", clGetDeviceIDs, EntryPoint::Required);
        visit("clGetDeviceInfo", clGetDeviceInfo, EntryPoint::Required);
        visit("clCreateContext", clCreateContext, EntryPoint::Required);
        visit("clCreateCommandQueue", clCreateCommandQueue, EntryPoint::Required);
        visit("clCreateProgramWithSource", clCreateProgramWithSource, EntryPoint::Required);
        visit("clBuildProgram", clBuildProgram, EntryPoint::Required);
        visit("clGetProgramBuildInfo", clGetProgramBuildInfo, EntryPoint::Optional);
        visit("clCreateKernel", clCreateKernel, EntryPoint::Required);
        visit("clCreateBuffer", clCreateBuffer, EntryPoint::Required);
        visit("clEnqueueWriteBuffer", clEnqueueWriteBuffer, EntryPoint::Optional);
        visit("clEnqueueReadBuffer", clEnqueueReadBuffer, EntryPoint::Optional);
        visit("clEnqueueNDRangeKernel", clEnqueueNDRangeKernel, EntryPoint::Required);
        visit("clSetKernelArg", clSetKernelArg, EntryPoint::Optional);
        visit("clFinish", clFinish, EntryPoint::Required);
        visit("clReleaseKernel", clReleaseKernel, EntryPoint::Optional);
        visit("clReleaseProgram", clReleaseProgram, EntryPoint::Optional);
        visit("clReleaseCommandQueue", clReleaseCommandQueue, EntryPoint::Optional);
        visit("clReleaseContext", clReleaseContext, EntryPoint::Optional);
        visit("clReleaseMemObject", clReleaseMemObject, EntryPoint::Optional);
    }
};

namespace GpuOpenCL_Loader {

/// Opens "libOpenCL.so.1", else "libOpenCL.so", and fills the table. Returns 1 if the library is loaded (also
/// if it already was), 0 after a log line if it cannot be opened or lacks a required entry point.
int load(const DynamicLoader& loader = DynamicLoader::system());

bool isLoaded();

/// Closes the library, if open, and clears the table.
void unload();

/// The table; fetch it again after each load.
const GpuOpenCL_Table& table();

} // namespace GpuOpenCL_Loader

namespace GpuOpenCL_Loader {

template <class Type>
struct AsDeclared {
    using type = Type;
};

/// Calls an entry point of the table. A missing one behaves like a failing call with status
/// CL_INVALID_OPERATION: as its result, or, where the result is an object, a null object with the status
/// stored through the last argument.
template <class Result, class... Parameters>
Result call(Result (*entryPoint)(Parameters...), typename AsDeclared<Parameters>::type... arguments) {
    if (entryPoint != nullptr)
        return entryPoint(arguments...);
    if constexpr (std::is_pointer_v<Result>) {
        cl_int* status = std::get<sizeof...(Parameters) - 1>(std::tie(arguments...));
        if (status != nullptr)
            *status = CL_INVALID_OPERATION;
        return nullptr;
    } else {
        return CL_INVALID_OPERATION;
    }
}

} // namespace GpuOpenCL_Loader
