// Reads the GPU list that `qzGpuInfo` publishes in shared memory. Needs the C library and nothing else.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include <sys/types.h>

#include "gpu/GpuInfoBlock.h"

/// What came of reading the segment. Only `Ok` fills `GpuSnapshot::block`.
enum class SegmentResult {
    Ok,
    Missing,          ///< nothing under this name: no companion runs, or it has only just started
    NotReady,         ///< the segment is there, its first update cycle is not done yet
    Foreign,          ///< another layout version, impossible counts, or not a plain file with one name
    TooSmall,         ///< fewer bytes than a block has
    Locked,           ///< somebody else held the lock for the whole time allowed
    PermissionDenied, ///< not readable, or not the expected user's alone: its bytes are not trusted
    IoError,          ///< the system refused an operation; `GpuSnapshot::systemError` tells which error
};

/// One plain sentence without a full stop, never null.
const char* segmentResultText(SegmentResult result) noexcept;

/// The block at one instant, and what the object itself tells about it.
struct GpuSnapshot {
    GpuInfoBlock block; ///< see `parseSegment` for what is guaranteed of it

    bool opened = false; ///< an object of the expected user was there; what follows is meaningful then

    bool writerAttached = false; ///< a living process may publish on it
    bool published = false;      ///< a living process has published on it
    bool measuring = false;      ///< a living process is in an update cycle with benchmarks

    double publishedAt = 0.0;  ///< last publication (before the first: creation), seconds since 1970 (UTC)
    double ageSeconds = 0.0;   ///< time since then, 0 if that lies ahead
    double aheadSeconds = 0.0; ///< by how much it lies ahead, as after the clock was set back; else 0

    int systemError = 0; ///< `errno` of the failed operation for `IoError` and `PermissionDenied`, else 0

    /// Number of GPUs in the global order: all NVIDIA, then all AMD, then all Apple.
    int gpuCount() const { return block.totalCount(); }

    /// The GPU at a place of the global order, 0 to `gpuCount() - 1`.
    GpuDevice gpu(int index) const { return block.gpuAt(index); }
};

/// Takes a block out of `size` bytes of any content; touches nothing else. `Ok`, `NotReady`, `Foreign` or
/// `TooSmall`. After `Ok`: version and counts are valid, every name is NUL-terminated, and a marker that is
/// set belongs to a figure of the latest update cycle. For that the markers of a GPU whose figures were not
/// read in that cycle are cleared, and those of the summary that no listed GPU stands behind (the publisher
/// never takes one back).
SegmentResult parseSegment(const void* data, std::size_t size, GpuInfoBlock& block) noexcept;

/// Whether a GPU answered in the latest update cycle: its load, its temperature or its used memory is there.
/// The memory's size and the score do not count, which a lost GPU may keep.
inline bool isAnswering(const GpuDevice& gpu) noexcept {
    return gpu.statsValid != 0 && (gpu.hasUsage != 0 || gpu.hasTemperature != 0 || gpu.hasMemUsage != 0);
}

/// The segment under one directory and key. Holds no descriptor between two readings, so one object serves
/// for hours over restarts of the publisher. Several threads may read through one object.
class GpuSegmentReader {
  public:
    static constexpr std::chrono::milliseconds defaultLockWait{1000};

    /// `owner`: the user whose segment is read, by default the effective user of the reading process. The
    /// segment of anyone else is refused with `PermissionDenied`.
    explicit GpuSegmentReader(std::string directory = "/dev/shm", const std::string& key = segmentKey,
                              std::optional<uid_t> owner = {});

    /// Copies the block out under the segment's lock, waiting for that at most `lockWait` (below zero: not at
    /// all). Never writes, never blocks on anything but that wait, never waits on an object that is no plain
    /// file.
    /// Throws nothing, and is not noexcept so that a thread may be cancelled meanwhile.
    SegmentResult read(GpuSnapshot& snapshot, std::chrono::milliseconds lockWait = defaultLockWait) const;

    const std::string& path() const noexcept { return segmentPath; }

  private:
    std::string segmentPath;
    std::optional<uid_t> segmentOwner;
};
