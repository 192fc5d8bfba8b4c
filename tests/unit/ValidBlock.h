// A block as a companion publishes it.
#pragma once

#include "gpu/GpuInfoBlock.h"

inline GpuDevice gpuNamed(const char* name) {
    GpuDevice gpu;
    setGpuName(gpu, name);
    gpu.statsValid = 1;
    return gpu;
}

/// One GPU of each kind, ready.
inline GpuInfoBlock validBlock() {
    GpuInfoBlock block;
    block.dataReady = 1;
    block.cudaCount = block.amdCount = block.metalCount = 1;
    block.cudaGpus[0] = gpuNamed("cuda");
    block.amdGpus[0] = gpuNamed("amd");
    block.metalGpus[0] = gpuNamed("metal");
    block.summary = gpuNamed("Summary");
    return block;
}
