// Record locks beyond a segment's bytes: facts about living processes, which the system drops when they die.
#pragma once

#include <cstdint>

#include <fcntl.h>
#include <unistd.h>

/// Byte of the first flag, far beyond any payload.
constexpr std::int64_t attachedLockOffset = std::int64_t{1} << 62;

/// Each flag is a shared record lock on one byte, `attachedLockOffset` plus its value.
enum class SegmentFlag : std::int64_t {
    Attached = 0,
    HasPublished = 1, ///< has published on this object since it attached
    Measuring = 2,    ///< in an update cycle with benchmarks
};

/// The argument of `fcntl`: `F_OFD_SETLK` with F_RDLCK or F_UNLCK sets or drops the flag, `F_OFD_GETLK` with
/// F_WRLCK leaves F_UNLCK in `l_type` when no other open file has it set.
inline struct flock flagLock(SegmentFlag flag, short type) noexcept {
    struct flock range{};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = attachedLockOffset + static_cast<std::int64_t>(flag);
    range.l_len = 1;
    return range;
}
