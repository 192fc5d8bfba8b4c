// A segment of any content, as a reader handles it.
#include <cstring>

#include "reader/GpuSegmentReader.h"
#include "tests/fuzz/FuzzInput.h"

namespace {

void checkRecord(const GpuDevice& gpu) {
    require(std::memchr(gpu.name, '\0', sizeof gpu.name) != nullptr, "a name ends");
    if (gpu.statsValid == 0)
        require(!gpu.hasTemperature && !gpu.hasMemTotal && !gpu.hasMemUsage && !gpu.hasUsage && !gpu.hasSpeed,
                "figures that were not read are not there");
}

void checkBlock(const GpuInfoBlock& block) {
    require(block.blockVersion == GpuInfoBlock::version && block.dataReady != 0,
            "a block is of this version");
    const auto most = static_cast<std::uint32_t>(GpuInfoBlock::capacity);
    require(block.cudaCount <= most && block.amdCount <= most && block.metalCount <= most,
            "a block has room for what it counts");
    require(block.totalCount() >= 0 && block.totalCount() <= 3 * GpuInfoBlock::capacity,
            "a block has a total");
    for (int i = 0; i < block.totalCount(); ++i)
        checkRecord(block.gpuAt(i));
    checkRecord(block.summary);
}

/// The first bytes of a valid block, so that the fuzzer need not find them: whatever follows is the input.
GpuInfoBlock blockAround(const std::uint8_t* data, std::size_t size) {
    GpuInfoBlock block;
    constexpr std::size_t head = offsetof(GpuInfoBlock, cudaCount);
    std::memcpy(reinterpret_cast<char*>(&block) + head, data, std::min(size, sizeof block - head));
    block.dataReady = 1;
    return block;
}

void checkBytes(const void* data, std::size_t size) {
    GpuInfoBlock block;
    std::memset(static_cast<void*>(&block), 0xA5, sizeof block);
    const GpuInfoBlock before = block;
    const SegmentResult result = parseSegment(data, size, block);
    if (result == SegmentResult::Ok)
        checkBlock(block);
    else
        require(std::memcmp(&before, &block, sizeof block) == 0, "what is refused is not copied");
    require((result == SegmentResult::TooSmall) == (size < sizeof(GpuInfoBlock)),
            "a short segment is too small");
    require(std::strlen(segmentResultText(result)) > 0, "a result has a text");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    checkBytes(data, size);
    const GpuInfoBlock block = blockAround(data, size);
    checkBytes(&block, sizeof block);
    return 0;
}
