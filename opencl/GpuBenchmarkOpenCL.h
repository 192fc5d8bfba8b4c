// The compute benchmark: a square-root kernel over 2^27 floats, run in rounds of about two seconds each.
#pragma once

#include "opencl/GpuBenchmarkOpenCL_Context.h"
#include "opencl/benchmarkSettings.h"

namespace GpuBenchmarkOpenCL {

/// Measures `device` for `seconds` and returns its score in GPS, or 0.0 after any failure, which is logged.
/// Uses 1 GiB of host memory and 1.5 GiB of device memory during the run. If the OpenCL library is not
/// loaded, returns 0.0 silently.
float run(GpuBenchmarkOpenCL_Context& context, cl_device_id device, double seconds,
          const BenchmarkGeometry& geometry);

} // namespace GpuBenchmarkOpenCL
