#include "gpu/GpuInfoBlock.h"

#include <algorithm>

#include "gpu/GpuVendor.h"

int GpuInfoBlock::totalCount() const {
    if (onlyCuda != 0)
        return static_cast<int>(cudaCount);
    std::uint32_t total = 0;
    for (const GpuVendor& vendor : gpuVendors)
        total += this->*vendor.count;
    return static_cast<int>(total);
}

GpuDevice GpuInfoBlock::gpuAt(int index) const {
    int i = std::max(std::min(index, totalCount() - 1), 0);
    for (const GpuVendor& vendor : gpuVendors) {
        const int count = static_cast<int>(this->*vendor.count);
        if (i < count)
            return (this->*vendor.gpus)[i];
        i -= count;
    }
    return {};
}
