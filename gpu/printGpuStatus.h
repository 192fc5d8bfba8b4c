#pragma once

#include "gpu/GpuDevice.h"

/// Logs one GPU's report at level 4: a header, a line for each figure present, a closing line.
/// `index` is the GPU's place in the global order; 90 and above print as the summary.
void printGpuStatus(const GpuDevice& record, const int& index);
