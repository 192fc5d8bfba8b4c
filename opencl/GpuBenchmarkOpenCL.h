// The compute benchmark: a square-root kernel over 2^27 floats, run in rounds of about two seconds each.
#pragma once

#include <cstddef>

#include "opencl/GpuBenchmarkOpenCL_Context.h"

namespace GpuBenchmarkOpenCL {

/// How many work-items a round has, one for each element of the buffers. The score assumes 2^27
/// regardless: anything else is for tests.
struct Geometry {
    std::size_t global[2] = {32768, 4096};
    std::size_t local[2] = {256, 1};

    std::size_t elements() const { return global[0] * global[1]; }
    std::size_t bytes() const { return elements() * sizeof(float); }
};

/// Measures `device` for `seconds` and returns its score in GPS, or 0.0 after any failure, which is logged.
/// Uses 1 GiB of host memory and 1.5 GiB of device memory during the run. If the OpenCL library is not
/// loaded, returns 0.0 silently.
float run(GpuBenchmarkOpenCL_Context& context, cl_device_id device, double seconds,
          const Geometry& geometry = Geometry());

} // namespace GpuBenchmarkOpenCL
