#include "reader/GpuSegmentReader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "reader/isMappedUser.h"
#include "support/FileDescriptor.h"
#include "support/segmentFlags.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr timespec lockPollInterval{0, 500'000};

/// The result of a failed system call; keeps `errno` where the result alone is ambiguous.
SegmentResult failure(GpuSnapshot& snapshot, int error) {
    switch (error) {
    case ENOENT:
    case ENOTDIR: // the directory itself is not a directory
        return SegmentResult::Missing;
    case ELOOP: // a symbolic link under the name
    case ENXIO: // a socket
        return SegmentResult::Foreign;
    case EACCES:
    case EPERM:
        snapshot.systemError = error;
        return SegmentResult::PermissionDenied;
    default:
        snapshot.systemError = error;
        return SegmentResult::IoError;
    }
}

SegmentResult checkObject(const struct stat& info, uid_t owner) {
    if (!S_ISREG(info.st_mode))
        return SegmentResult::Foreign;
    if (info.st_uid != owner || !isMappedUser(info.st_uid))
        return SegmentResult::PermissionDenied;
    if (info.st_nlink > 1)
        return SegmentResult::Foreign;
    // Other users may have written to an object that is open to them; a companion's never is.
    if ((info.st_mode & ALLPERMS) != (S_IRUSR | S_IWUSR))
        return SegmentResult::PermissionDenied;
    if (info.st_size < static_cast<off_t>(sizeof(GpuInfoBlock)))
        return SegmentResult::TooSmall;
    return SegmentResult::Ok;
}

/// The clock's last instant for a wait that exceeds it.
Clock::time_point deadlineAfter(std::chrono::milliseconds wait) {
    const auto now = Clock::now();
    const auto longest = std::chrono::floor<std::chrono::milliseconds>(Clock::time_point::max() - now);
    return now + std::clamp(wait, std::chrono::milliseconds::zero(), longest);
}

SegmentResult takeLock(int descriptor, Clock::time_point deadline, GpuSnapshot& snapshot) {
    while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR)
            continue;
        if (errno != EWOULDBLOCK)
            return failure(snapshot, errno);
        if (Clock::now() >= deadline)
            return SegmentResult::Locked;
        ::nanosleep(&lockPollInterval, nullptr);
    }
    return SegmentResult::Ok;
}

bool isSet(int descriptor, SegmentFlag flag) {
    struct flock request = flagLock(flag, F_WRLCK);
    return ::fcntl(descriptor, F_OFD_GETLK, &request) == 0 && request.l_type != F_UNLCK;
}

double secondsOf(const timespec& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void noteFreshness(int descriptor, const struct stat& info, GpuSnapshot& snapshot) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    snapshot.opened = true;
    snapshot.writerAttached = isSet(descriptor, SegmentFlag::Attached);
    snapshot.published = isSet(descriptor, SegmentFlag::HasPublished);
    snapshot.measuring = isSet(descriptor, SegmentFlag::Measuring);
    snapshot.publishedAt = secondsOf(info.st_mtim);
    const double age = secondsOf(now) - snapshot.publishedAt;
    snapshot.ageSeconds = std::max(0.0, age);
    snapshot.aheadSeconds = std::max(0.0, -age);
}

/// Reads through the descriptor: a mapping would end the process if the object shrank meanwhile.
SegmentResult copyOut(int descriptor, GpuSnapshot& snapshot) {
    std::array<unsigned char, sizeof(GpuInfoBlock)> bytes{};
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t count =
            ::pread(descriptor, bytes.data() + filled, bytes.size() - filled, static_cast<off_t>(filled));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return failure(snapshot, errno);
        if (count == 0)
            break;
        filled += static_cast<std::size_t>(count);
    }
    return parseSegment(bytes.data(), filled, snapshot.block);
}

struct Attempt {
    SegmentResult result;
    bool nameMoved; ///< the object lost its name meanwhile: it may have been replaced by another
};

Attempt readOnce(const char* path, uid_t owner, Clock::time_point deadline, GpuSnapshot& snapshot) {
    // O_NONBLOCK: with a FIFO under the name, `open` would otherwise wait for a writer.
    const FileDescriptor file(::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.isOpen())
        return {failure(snapshot, errno), false};

    struct stat info{};
    if (::fstat(file.get(), &info) != 0)
        return {failure(snapshot, errno), false};
    SegmentResult result = checkObject(info, owner);
    if (result != SegmentResult::Ok && result != SegmentResult::TooSmall)
        return {result, false};

    noteFreshness(file.get(), info, snapshot);
    if (result == SegmentResult::TooSmall)
        return {result, false};

    result = takeLock(file.get(), deadline, snapshot);
    if (result != SegmentResult::Ok)
        return {result, false};

    // The object may have changed during the wait.
    if (::fstat(file.get(), &info) != 0)
        return {failure(snapshot, errno), false};
    if (info.st_nlink == 0)
        return {SegmentResult::Missing, true};
    noteFreshness(file.get(), info, snapshot);
    return {copyOut(file.get(), snapshot), false};
}

} // namespace

GpuSegmentReader::GpuSegmentReader(std::string directory, const std::string& key, std::optional<uid_t> owner)
    : segmentPath(std::move(directory) + "/" + key), segmentOwner(owner) {}

SegmentResult GpuSegmentReader::read(GpuSnapshot& snapshot, std::chrono::milliseconds lockWait) const {
    const auto deadline = deadlineAfter(lockWait);
    constexpr int mostReplacements = 3;
    Attempt attempt{};
    for (int i = 0; i <= mostReplacements; ++i) {
        snapshot = GpuSnapshot{};
        attempt =
            readOnce(segmentPath.c_str(), segmentOwner ? *segmentOwner : ::geteuid(), deadline, snapshot);
        if (!attempt.nameMoved)
            break;
    }
    return attempt.result;
}
