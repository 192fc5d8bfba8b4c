// The GPU list of one machine, and byte for byte what the shared-memory segment holds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "gpu/GpuDevice.h"

/// Key of the shared-memory segment; its object is named "/" + key.
constexpr const char* segmentKey = "qzGpuInfo_v2";

#pragma pack(push, 4)

/// Up to 16 GPUs per vendor. Entries at or beyond a vendor's count hold stale or initial data.
/// The global order is all NVIDIA GPUs, then all AMD GPUs, then all Apple GPUs.
struct GpuInfoBlock {
    static constexpr std::uint32_t version = 68865;
    static constexpr int capacity = 16; ///< GPUs per vendor

    std::uint32_t blockVersion = version;
    std::uint32_t dataReady = 0; ///< 1 once an update cycle has filled the block
    std::uint32_t cudaCount = 0;
    std::uint32_t amdCount = 0;
    std::uint32_t metalCount = 0;
    GpuDevice cudaGpus[capacity];
    GpuDevice amdGpus[capacity];
    GpuDevice metalGpus[capacity];
    GpuDevice summary;
    std::uint8_t onlyCuda = 0; ///< when set, the list counts NVIDIA GPUs only
    std::uint8_t filler7469[3] = {};

    /// Number of GPUs in the global order.
    int totalCount() const;

    /// A copy of the record at a global index; an index out of range is clamped. The list must not be
    /// empty.
    GpuDevice gpuAt(int index) const;
};

#pragma pack(pop)

static_assert(sizeof(GpuInfoBlock) == 7472);
static_assert(std::is_trivially_copyable_v<GpuInfoBlock> && std::is_standard_layout_v<GpuInfoBlock>);
static_assert(offsetof(GpuInfoBlock, blockVersion) == 0);
static_assert(offsetof(GpuInfoBlock, dataReady) == 4);
static_assert(offsetof(GpuInfoBlock, cudaCount) == 8);
static_assert(offsetof(GpuInfoBlock, amdCount) == 12);
static_assert(offsetof(GpuInfoBlock, metalCount) == 16);
static_assert(offsetof(GpuInfoBlock, cudaGpus) == 20);
static_assert(offsetof(GpuInfoBlock, amdGpus) == 2452);
static_assert(offsetof(GpuInfoBlock, metalGpus) == 4884);
static_assert(offsetof(GpuInfoBlock, summary) == 7316);
static_assert(offsetof(GpuInfoBlock, onlyCuda) == 7468);

/// Bytes of the block that are published; the segment's last three are never written.
constexpr std::size_t publishedSize = offsetof(GpuInfoBlock, onlyCuda) + sizeof(GpuInfoBlock::onlyCuda);
