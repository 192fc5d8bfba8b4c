// The compute benchmark: a square-root kernel over 2^27 floats, run in rounds of about two seconds each.
#pragma once

#include <cstddef>

#include "opencl/GpuBenchmarkOpenCL_Context.h"

namespace GpuBenchmarkOpenCL {

/// How many work-items a round has, one for each element of the buffers. The score counts 2^27 whatever
/// stands here: anything else is for tests.
struct Geometry {
    std::size_t global[2] = {32768, 4096};
    std::size_t local[2] = {256, 1};

    std::size_t elements() const { return global[0] * global[1]; }
    std::size_t bytes() const { return elements() * sizeof(float); }
};

/// Measures `device` for `seconds` and gives its score in GPS, 0.0 after any failure, which is logged. Takes
/// 1 GiB of host memory and 1.5 GiB of the device's for the time of the run. Needs the OpenCL library loaded;
/// 0.0 without a word when it is not.
float run(GpuBenchmarkOpenCL_Context& context, cl_device_id device, double seconds,
          const Geometry& geometry = Geometry());

} // namespace GpuBenchmarkOpenCL
