// Reads the GPU list that qzGpuInfo publishes in shared memory. Needs the C++ library and nothing else.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include <sys/types.h>

#include "qzgpuinfo/Snapshot.h"

namespace qzgpuinfo {

/// The segment in one directory. Holds no descriptor between two readings, so one object serves for hours
/// while companions come and go. Several threads may read through one object.
class Reader {
  public:
    /// `owner`: the user whose segment is read, by default the effective user of the reading process. The
    /// segment of anyone else is refused with `PermissionDenied`.
    explicit Reader(std::string directory = "/dev/shm", std::optional<uid_t> owner = {});

    /// Copies the list under the segment's lock and fills `snapshot`, which it clears first. Waits for the
    /// lock for at most `lockWait` (0 or less: not at all) and for nothing else. Writes nothing. Throws
    /// std::bad_alloc alone, and is not noexcept so that a thread may be cancelled in it.
    SegmentResult read(Snapshot& snapshot,
                       std::chrono::milliseconds lockWait = std::chrono::milliseconds{1000}) const;

    /// The segment's path.
    std::string path() const;

  private:
    std::string segmentDirectory;
    std::optional<uid_t> segmentOwner;
};

} // namespace qzgpuinfo
