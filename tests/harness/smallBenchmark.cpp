// Linked into the program in front of its benchmark: the same run on buffers of a kilobyte instead of half a
// gibibyte, so that what happens around it can be tried ten thousand times. The linker's --wrap leads the
// program's call to the first of these names, and the second to the program's own function.
#include "opencl/GpuBenchmarkOpenCL.h"

using GpuBenchmarkOpenCL::Geometry;

float runOnSmallBuffers(
    GpuBenchmarkOpenCL_Context& context, cl_device_id device, double seconds,
    const Geometry& geometry) __asm__("__wrap__ZN18GpuBenchmarkOpenCL3runER26GpuBenchmarkOpenCL_ContextP13_"
                                      "cl_device_iddRKNS_8GeometryE");

float runOfTheProgram(
    GpuBenchmarkOpenCL_Context& context, cl_device_id device, double seconds,
    const Geometry& geometry) __asm__("__real__ZN18GpuBenchmarkOpenCL3runER26GpuBenchmarkOpenCL_ContextP13_"
                                      "cl_device_iddRKNS_8GeometryE");

float runOnSmallBuffers(GpuBenchmarkOpenCL_Context& context, cl_device_id device, double seconds,
                        const Geometry& /*geometry*/) {
    constexpr Geometry small = {{256, 1}, {256, 1}};
    return runOfTheProgram(context, device, seconds, small);
}
