#pragma once

#include "gpu/GpuDevice.h"

/// Runs the benchmark for `benchmarkSeconds` on the record's OpenCL device and stores the score, which is 0.0
/// when the benchmark fails. A record without a device loses its score's marker, with a message.
void benchmarkGpu(GpuDevice& record);
