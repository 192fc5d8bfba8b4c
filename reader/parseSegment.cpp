#include <algorithm>
#include <cstring>

#include "gpu/GpuFigures.h"
#include "gpu/GpuVendor.h"
#include "reader/GpuSegmentReader.h"

namespace {

/// Whether each vendor's count satisfies `isRight`.
template <class Predicate>
bool allCounts(const GpuInfoBlock& block, Predicate isRight) {
    return std::all_of(std::begin(gpuVendors), std::end(gpuVendors),
                       [&](const GpuVendor& vendor) { return isRight(block.*vendor.count); });
}

bool countsAreValid(const GpuInfoBlock& block) {
    return allCounts(block, [](std::uint32_t count) { return count <= GpuInfoBlock::capacity; });
}

/// A segment that was created and not written yet is all zero, its version too.
bool isUnwritten(const GpuInfoBlock& block) {
    return block.blockVersion == 0 && block.dataReady == 0 &&
           allCounts(block, [](std::uint32_t count) { return count == 0; });
}

void clearMarkers(GpuDevice& gpu) {
    walkFigures([&](const auto& figure) { gpu.*figure.marker = 0; });
}

/// The publisher sets the summary's markers and never clears them: those that no listed GPU has are left
/// over. The GPUs are settled, so that one that is not listed has none.
void clearLeftOverMarkers(GpuInfoBlock& block) {
    GpuDevice listed; // has each marker that some listed GPU has
    for (int i = 0; i < block.totalCount(); ++i)
        walkFigures([&listed, gpu = block.gpuAt(i)](const auto& figure) {
            listed.*figure.marker |= gpu.*figure.marker;
        });
    walkFigures([&](const auto& figure) {
        if (!(listed.*figure.marker))
            block.summary.*figure.marker = 0;
    });
}

/// Makes a record safe to use as text and its markers true.
void settle(GpuDevice& gpu) {
    gpu.name[sizeof gpu.name - 1] = '\0';
    if (gpu.statsValid == 0)
        clearMarkers(gpu);
}

} // namespace

SegmentResult parseSegment(const void* data, std::size_t size, GpuInfoBlock& block) noexcept {
    if (size < sizeof(GpuInfoBlock))
        return SegmentResult::TooSmall;

    GpuInfoBlock read;
    // The publisher never writes the bytes after the last field.
    std::memcpy(static_cast<void*>(&read), data, publishedSize);
    if (isUnwritten(read))
        return SegmentResult::NotReady;
    if (read.blockVersion != GpuInfoBlock::version || !countsAreValid(read))
        return SegmentResult::Foreign;
    if (read.dataReady == 0)
        return SegmentResult::NotReady;

    for (const GpuVendor& vendor : gpuVendors)
        std::for_each(std::begin(read.*vendor.gpus), std::end(read.*vendor.gpus), settle);
    settle(read.summary);
    clearLeftOverMarkers(read);
    block = read;
    return SegmentResult::Ok;
}
