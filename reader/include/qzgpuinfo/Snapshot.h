// The list at one instant.
#pragma once

#include <cstddef>
#include <vector>

#include "qzgpuinfo/Gpu.h"
#include "qzgpuinfo/SegmentState.h"

namespace qzgpuinfo {

/// What one reading gave. Without a list, `gpus` is empty and `summary` has no figure.
struct Snapshot : SegmentState {
    std::vector<Gpu> gpus; ///< all NVIDIA, then all AMD, then all Apple

    /// Over all GPUs: usage and score are sums, the temperature is the highest, total and free memory are the
    /// smallest (at most 65535), used memory is the largest.
    Gpu summary;

    int gpuCount() const noexcept { return static_cast<int>(gpus.size()); }

    /// The GPU at an index of `gpus`; null if there is none.
    const Gpu* gpu(int index) const noexcept {
        return index >= 0 && index < gpuCount() ? &gpus[static_cast<std::size_t>(index)] : nullptr;
    }
};

} // namespace qzgpuinfo
