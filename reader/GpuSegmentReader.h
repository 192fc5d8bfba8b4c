// Reads the GPU list that `qzGpuInfo` publishes in shared memory, as the block that it is. Programs outside
// this tree get it through qzgpuinfo/Reader.h.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include <sys/types.h>

#include "gpu/GpuInfoBlock.h"
#include "qzgpuinfo/SegmentState.h"

using qzgpuinfo::SegmentResult;
using qzgpuinfo::segmentResultText;

/// The block at one instant, and the segment it was read from. Only `Ok` fills `block`.
struct GpuSnapshot : qzgpuinfo::SegmentState {
    GpuInfoBlock block; ///< see `parseSegment` for what is guaranteed of it

    /// Number of GPUs in the global order: all NVIDIA, then all AMD, then all Apple.
    int gpuCount() const { return block.totalCount(); }

    /// The GPU at a place of the global order, 0 to `gpuCount() - 1`.
    GpuDevice gpu(int index) const { return block.gpuAt(index); }
};

/// Parses a block from `size` bytes of any content. Returns `Ok`, `NotReady`, `Foreign` or `TooSmall`. After
/// `Ok`, version and counts are valid, every name is NUL-terminated, and a marker that is set belongs to a
/// figure of the latest update cycle: those of a GPU that was not read in that cycle are cleared, and so are
/// summary markers that no listed GPU has set (the publisher never clears one).
SegmentResult parseSegment(const void* data, std::size_t size, GpuInfoBlock& block) noexcept;

/// Whether a GPU answered in the latest update cycle: its load, its temperature or its used memory is known.
/// The memory's size and the score do not count, since a lost GPU may keep them.
inline bool isAnswering(const GpuDevice& gpu) noexcept {
    return gpu.statsValid != 0 && (gpu.hasUsage != 0 || gpu.hasTemperature != 0 || gpu.hasMemUsage != 0);
}

/// The segment of one directory and key. Holds no descriptor between two readings, so one object serves
/// for hours while publishers come and go. Several threads may read through one object.
class GpuSegmentReader {
  public:
    static constexpr std::chrono::milliseconds defaultLockWait{1000};

    /// `owner`: the user whose segment is read, by default the effective user of the reading process. The
    /// segment of anyone else is refused with `PermissionDenied`.
    explicit GpuSegmentReader(std::string directory = "/dev/shm", const std::string& key = segmentKey,
                              std::optional<uid_t> owner = {});

    /// Copies the block under the segment's lock, for which it waits at most `lockWait` (below zero: not at
    /// all). Never writes, and blocks on nothing but that wait. Throws nothing, and is not noexcept so that a
    /// thread may be cancelled in it.
    SegmentResult read(GpuSnapshot& snapshot, std::chrono::milliseconds lockWait = defaultLockWait) const;

    const std::string& path() const noexcept { return segmentPath; }

  private:
    std::string segmentPath;
    std::optional<uid_t> segmentOwner;
};
