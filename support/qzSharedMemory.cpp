#include "support/qzSharedMemory.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/qzLastOSError.h"
#include "support/qzTimer.h"
#include "support/segmentObject.h"

namespace {

qzSharedMemory::Error codeOf(int reason) {
    switch (reason) {
    case EACCES:
    case EPERM:
    case EROFS:
        return qzSharedMemory::PermissionDenied;
    case EEXIST:
        return qzSharedMemory::AlreadyExists;
    case ENOENT:
        return qzSharedMemory::NotFound;
    case EAGAIN:
        return qzSharedMemory::LockFailed;
    case EDQUOT:
    case EFBIG:
    case EMFILE:
    case ENFILE:
    case ENOMEM:
    case ENOSPC:
        return qzSharedMemory::OutOfResources;
    default:
        return qzSharedMemory::Unknown;
    }
}

/// For messages only, so that a long key leaves room for the rest of the sentence.
QByteArray shortened(const _qzString8_allSize<250>& key) {
    constexpr int longest = 100;
    const QByteArray text(key.c_str());
    return text.size() <= longest ? text : text.left(longest) + "...";
}

bool writeAll(int object, const char* bytes, qint64 count, qint64 offset) {
    qint64 done = 0;
    while (done < count) {
        const ssize_t written =
            pwrite(object, bytes + done, static_cast<std::size_t>(count - done), offset + done);
        if (written == 0 || (written < 0 && errno != EINTR))
            return false;
        done += std::max<qint64>(written, 0);
    }
    return true;
}

} // namespace

qzSharedMemory::qzSharedMemory(const _qzString8_allSize<250>& key, unsigned char mode,
                               const char* inDirectory)
    : segmentKey(key), directory(inDirectory), path(directory + '/' + key.c_str()), modeBits(mode) {}

qzSharedMemory::~qzSharedMemory() {
    detach();
}

bool qzSharedMemory::create(qint64 size, bool, bool replace) {
    if (!isValidKey())
        return fail(BadKey, EINVAL, "can't be created, its key is not a file name");
    if (size <= 0)
        return fail(InvalidSize, EINVAL, "can't be created, its size has to be above 0");
    askedSize = size;
    FileDescriptor created = createSegmentObject(directory, path, size, replace);
    if (!created.isOpen()) {
        if (errno == EEXIST)
            return fail(AlreadyExists, EEXIST, "can't be created, the name is taken");
        if (errno == ENOENT || errno == ENOTDIR)
            return fail(OutOfResources, errno, "can't be created, there is no directory for it");
        return failAs(errno, "can't be created");
    }
    detach();
    return adopt(std::move(created));
}

bool qzSharedMemory::attach() {
    if (isAttached())
        return succeed();
    if (!isValidKey())
        return fail(BadKey, EINVAL, "can't be attached, its key is not a file name");
    // Removing the segment takes an exclusive record lock, which takes a descriptor open for writing.
    FileDescriptor opened = openSegmentObject(path, (modeBits & (ModeWrite | ModeLifetime)) != 0);
    if (!opened.isOpen()) {
        if (errno == ENOENT || errno == ENOTDIR)
            return fail(NotFound, ENOENT, "does not exist");
        if (errno == EPERM)
            return fail(PermissionDenied, EPERM, "is refused, it is not a segment of this user's own");
        if (errno == EAGAIN)
            return fail(LockFailed, EAGAIN, "can't be attached, it is being removed");
        return failAs(errno, "can't be attached");
    }
    return adopt(std::move(opened));
}

bool qzSharedMemory::detach() {
    if (!isAttached())
        return fail(NotFound, ENOENT, "is not attached");
    unmap();
    // A child forked meanwhile shares the descriptor, and would keep what is not released here.
    flock(object.get(), LOCK_UN);
    setFlag(object.get(), SegmentFlag::HasPublished, F_UNLCK);
    setFlag(object.get(), SegmentFlag::Measuring, F_UNLCK);
    if ((modeBits & ModeLifetime) != 0 && leadsToOwned())
        removeIfLast();
    setFlag(object.get(), SegmentFlag::Attached, F_UNLCK);
    object.reset();
    attachedSize = 0;
    return succeed();
}

void qzSharedMemory::removeIfLast() {
    // The shared lock is released before the exclusive one is requested: otherwise two processes that detach
    // together would refuse each other, and the segment would stay. This way the second is alone.
    if (setFlag(object.get(), SegmentFlag::Attached, F_UNLCK) &&
        setFlag(object.get(), SegmentFlag::Attached, F_WRLCK) && leadsToOwned())
        unlink(path.constData());
}

qint64 qzSharedMemory::size() const {
    return attachedSize;
}

bool qzSharedMemory::lock() {
    if (!isAttached())
        return fail(LockFailed, ENOENT, "can't be locked, it is not attached");
    constexpr timespec pause{0, 1000 * 1000};
    const qzTimer waiting;
    while (flock(object.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            return fail(LockFailed, errno, "can't be locked, the system refuses it");
        if (waiting.elapsed() >= lockWaitMs)
            return fail(LockFailed, EWOULDBLOCK, "can't be locked, its lock was not free in time");
        nanosleep(&pause, nullptr);
    }
    return succeed();
}

bool qzSharedMemory::unlock() {
    if (!isAttached())
        return fail(LockFailed, ENOENT, "can't be unlocked, it is not attached");
    if (flock(object.get(), LOCK_UN) != 0)
        return fail(LockFailed, errno, "can't be unlocked, the system refuses it");
    return succeed();
}

bool qzSharedMemory::mark(SegmentFlag flag, bool isSet) {
    if (!isAttached())
        return fail(NotFound, ENOENT, "can't be marked, it is not attached");
    if (!setFlag(object.get(), flag, isSet ? F_RDLCK : F_UNLCK))
        return failAs(errno, "can't be marked");
    return succeed();
}

void* qzSharedMemory::data() {
    if (!isAttached()) {
        fail(NotFound, ENOENT, "has no data, it is not attached");
        return nullptr;
    }
    if (mapping == nullptr && attachedSize > 0) {
        const int access =
            ((modeBits & ModeRead) != 0 ? PROT_READ : 0) | ((modeBits & ModeWrite) != 0 ? PROT_WRITE : 0);
        if (objectSize(object.get()) < attachedSize) {
            fail(InvalidSize, EINVAL, "has become smaller since it was attached");
            return nullptr;
        }
        void* mapped =
            mmap(nullptr, static_cast<std::size_t>(attachedSize), access, MAP_SHARED, object.get(), 0);
        if (mapped == MAP_FAILED) {
            failAs(errno, "can't be mapped");
            return nullptr;
        }
        mapping = mapped;
    }
    succeed();
    return mapping;
}

bool qzSharedMemory::write(const void* bytes, qint64 count, qint64 offset) {
    if (!isAttached())
        return fail(NotFound, ENOENT, "can't be written, it is not attached");
    if ((modeBits & ModeWrite) == 0)
        return fail(PermissionDenied, EACCES, "can't be written, it is attached for reading");
    const qint64 room = objectSize(object.get());
    if (count < 0 || offset < 0 || room < count || room - count < offset)
        return fail(InvalidSize, EINVAL, "can't be written, it is too small");
    if (!isWithinFileSizeLimit(offset + count))
        return failAs(EFBIG, "can't be written");
    if (!writeAll(object.get(), static_cast<const char*>(bytes), count, offset) ||
        futimens(object.get(), nullptr) != 0)
        return failAs(errno, "can't be written");
    return succeed();
}

bool qzSharedMemory::isIntact() {
    if (!isAttached())
        return fail(NotFound, ENOENT, "is not attached");
    if (!isSameObject(object.get(), path))
        return fail(NotFound, ENOENT, "is gone, its name no longer leads to it");
    if (objectSize(object.get()) < askedSize)
        return fail(InvalidSize, EINVAL, "has become too small");
    return succeed();
}

bool qzSharedMemory::isValidKey() const {
    const QByteArray name(segmentKey.c_str());
    return !name.isEmpty() && name != "." && name != ".." && !name.contains('/');
}

bool qzSharedMemory::adopt(FileDescriptor opened) {
    const qint64 bytes = objectSize(opened.get());
    if (bytes < 0)
        return failAs(errno, "can't be attached");
    object = std::move(opened);
    attachedSize = bytes;
    return succeed();
}

bool qzSharedMemory::leadsToOwned() const {
    return isSameObject(object.get(), path) && objectSize(object.get()) >= askedSize;
}

void qzSharedMemory::unmap() {
    if (mapping != nullptr)
        munmap(mapping, static_cast<std::size_t>(attachedSize));
    mapping = nullptr;
}

bool qzSharedMemory::succeed() {
    lastError = None;
    lastErrorText = {};
    return true;
}

bool qzSharedMemory::fail(Error code, int reason, const char* what) {
    lastError = code;
    const QByteArray text = "The shared memory \"" + shortened(segmentKey) + "\" " + what + '.';
    lastErrorText = text.constData();
    errno = reason;
    return false;
}

bool qzSharedMemory::failAs(int reason, const char* what) {
    const QString cause = qzLastOSError(reason);
    return fail(codeOf(reason), reason, (QByteArray(what) + " (" + cause.toUtf8() + ')').constData());
}
