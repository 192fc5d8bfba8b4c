#include "support/segmentObject.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;

bool allocate(int object, qint64 size) {
    if (!isWithinFileSizeLimit(size)) {
        errno = EFBIG;
        return false;
    }
    int reason = 0;
    do {
        reason = posix_fallocate(object, 0, size);
    } while (reason == EINTR);
    errno = reason;
    return reason == 0;
}

/// Prepares the object before it has its name. The mode is set again because the umask has reduced that of
/// `open`.
bool prepare(const FileDescriptor& object, qint64 size) {
    return object.isOpen() && fchmod(object.get(), ownerOnly) == 0 && allocate(object.get(), size) &&
           setFlag(object.get(), SegmentFlag::Attached, F_RDLCK);
}

bool giveName(const FileDescriptor& object, const QByteArray& path) {
    char link[32] = {};
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", object.get());
    if (linkat(AT_FDCWD, link, AT_FDCWD, path.constData(), AT_SYMLINK_FOLLOW) == 0)
        return true;
    // Without /proc; older kernels require a privilege for this one.
    return errno != EEXIST && linkat(object.get(), "", AT_FDCWD, path.constData(), AT_EMPTY_PATH) == 0;
}

/// An object under a unique temporary name, exclusively created; `path` is set to it.
FileDescriptor openTemporary(const QByteArray& directory, QByteArray& path) {
    static std::atomic<unsigned> counter{0};
    constexpr int tries = 100;
    FileDescriptor object;
    for (int i = 0; i < tries && !object.isOpen(); ++i) {
        path =
            directory + "/.qzSegment-" + QByteArray::number(getpid()) + '-' + QByteArray::number(counter++);
        object = FileDescriptor(
            open(path.constData(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, ownerOnly));
        if (!object.isOpen() && errno != EEXIST)
            break;
    }
    return object;
}

FileDescriptor createRenamed(const QByteArray& directory, const QByteArray& path, qint64 size, bool replace) {
    QByteArray temporary;
    FileDescriptor object = openTemporary(directory, temporary);
    if (!object.isOpen())
        return {};
    if (prepare(object, size) && renameat2(AT_FDCWD, temporary.constData(), AT_FDCWD, path.constData(),
                                           replace ? 0 : RENAME_NOREPLACE) == 0)
        return object;
    const int reason = errno;
    unlink(temporary.constData());
    errno = reason;
    return {};
}

/// Not a segment of this user: planted by another one, a link, a FIFO, a second name of some other file.
bool isForeign(const struct stat& found) {
    return !S_ISREG(found.st_mode) || found.st_uid != geteuid() || found.st_nlink > 1;
}

enum class Opening { Done, Failed, Again };

/// One attempt of `openSegmentObject`. Again: the object is being removed, and another may have the name by
/// now.
Opening tryOpen(const QByteArray& path, int flags, FileDescriptor& object) {
    object = FileDescriptor(open(path.constData(), flags));
    if (!object.isOpen()) {
        if (errno == EINTR)
            return Opening::Again;
        // A symbolic link, a directory, a socket or a device without a driver.
        if (errno == ELOOP || errno == EISDIR || errno == ENXIO || errno == ENODEV)
            errno = EPERM;
        return Opening::Failed;
    }
    struct stat found{};
    if (fstat(object.get(), &found) != 0)
        return Opening::Failed;
    if (isForeign(found)) {
        errno = EPERM;
        return Opening::Failed;
    }
    if ((found.st_mode & ALLPERMS) != ownerOnly && fchmod(object.get(), ownerOnly) != 0)
        return Opening::Failed;
    if (!setFlag(object.get(), SegmentFlag::Attached, F_RDLCK))
        return errno == EAGAIN || errno == EACCES ? Opening::Again : Opening::Failed;
    // Between `open` and the lock the last attached process may have removed it.
    if (fstat(object.get(), &found) != 0)
        return Opening::Failed;
    if (found.st_nlink == 0) {
        errno = EAGAIN;
        return Opening::Again;
    }
    return Opening::Done;
}

} // namespace

FileDescriptor createSegmentObject(const QByteArray& directory, const QByteArray& path, qint64 size,
                                   bool replace) {
    if (replace)
        return createRenamed(directory, path, size, replace);
    // Checked first, so that an existing segment is reported as such even if there is no room for another
    // one.
    struct stat existing{};
    if (lstat(path.constData(), &existing) == 0) {
        errno = EEXIST;
        return {};
    }
    {
        FileDescriptor object(open(directory.constData(), O_TMPFILE | O_RDWR | O_CLOEXEC, ownerOnly));
        if (object.isOpen()) {
            if (!prepare(object, size))
                return {};
            if (giveName(object, path))
                return object;
            if (errno == EEXIST)
                return {};
        } else if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {
            return {};
        }
    }
    return createRenamed(directory, path, size, replace);
}

FileDescriptor openSegmentObject(const QByteArray& path, bool writable) {
    // Without O_NONBLOCK, opening a FIFO would wait for its other end.
    const int flags = (writable ? O_RDWR : O_RDONLY) | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    constexpr int tries = 20;
    FileDescriptor object;
    for (int i = 0; i < tries; ++i) {
        const Opening outcome = tryOpen(path, flags, object);
        if (outcome == Opening::Done)
            return object;
        object.reset();
        if (outcome == Opening::Failed)
            return {};
        std::this_thread::sleep_for(std::chrono::milliseconds(i));
    }
    errno = EAGAIN;
    return {};
}

bool setFlag(int object, SegmentFlag flag, short type) {
    struct flock range = flagLock(flag, type);
    return fcntl(object, F_OFD_SETLK, &range) == 0;
}

bool isSameObject(int object, const QByteArray& path) {
    struct stat held{};
    struct stat named{};
    return fstat(object, &held) == 0 && lstat(path.constData(), &named) == 0 && held.st_dev == named.st_dev &&
           held.st_ino == named.st_ino;
}

qint64 objectSize(int object) {
    struct stat now{};
    return fstat(object, &now) == 0 ? now.st_size : -1;
}

bool isWithinFileSizeLimit(qint64 size) {
    struct rlimit limit{};
    return getrlimit(RLIMIT_FSIZE, &limit) != 0 || static_cast<rlim_t>(size) <= limit.rlim_cur;
}
