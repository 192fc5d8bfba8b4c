#include "gpu/GpuInfoBlock.h"

#include <algorithm>

int GpuInfoBlock::totalCount() const {
    return static_cast<int>(onlyCuda != 0 ? cudaCount : cudaCount + amdCount + metalCount);
}

GpuDevice GpuInfoBlock::gpuAt(int index) const {
    const int cuda = static_cast<int>(cudaCount);
    const int amd = static_cast<int>(amdCount);
    const int i = std::max(std::min(index, totalCount() - 1), 0);
    if (i < cuda)
        return cudaGpus[i];
    if (i < cuda + amd)
        return amdGpus[i - cuda];
    return metalGpus[i - cuda - amd];
}
