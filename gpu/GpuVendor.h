// The vendors whose GPUs a block can hold, one row each, in the block's global order.
#pragma once

#include <cstdint>

#include "gpu/GpuInfoBlock.h"

/// A vendor's records in the block, and how the report names them.
struct GpuVendor {
    GpuDevice (GpuInfoBlock::*gpus)[GpuInfoBlock::capacity];
    std::uint32_t GpuInfoBlock::* count;  ///< records in use
    const char* countLine;                ///< %1: the GPUs that the vendor's provider has
    const char* countLineWithoutProvider; ///< %1: 0
};

inline constexpr GpuVendor gpuVendors[] = {
    {&GpuInfoBlock::cudaGpus, &GpuInfoBlock::cudaCount, "CUDA GPU Count : %1", "CUDA GPU Count: %1"},
    {&GpuInfoBlock::amdGpus, &GpuInfoBlock::amdCount, "AMD GPU Count: %1", "AMD GPU Count: %1"},
    {&GpuInfoBlock::metalGpus, &GpuInfoBlock::metalCount, "METAL GPU Count: %1", "METAL GPU Count: %1"},
};
