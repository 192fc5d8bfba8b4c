// Named shared memory with a lock between processes.
#pragma once

#include <QByteArray>
#include <QtGlobal>

#include "support/FileDescriptor.h"
#include "support/qzString.h"
#include "support/segmentFlags.h"

/// One named segment: the POSIX shared-memory object "/" + key, a file of exactly the segment's size.
///
/// Only processes of the same user share it. An object of that name is refused (PermissionDenied) unless it
/// is a regular object of this user with one name; its mode is set to 0600.
///
/// For readers in any language:
/// - the lock is `flock(LOCK_EX)` on the object, released by the kernel when its holder dies;
/// - processes publish their state by shared record locks, see `SegmentFlag`;
/// - the object's modification time is that of the last `write`.
///
/// Failing operations set `error` and `errorString`, and leave the system's reason in `errno`; successful
/// ones clear the former two. Not thread-safe.
class qzSharedMemory {
  public:
    enum Error {
        None = 0,
        PermissionDenied = 1, ///< no right, a read-only file system, or not this user's segment
        InvalidSize = 2,
        BadKey = 3,        ///< empty, ".", ".." or with a slash
        AlreadyExists = 4, ///< the name is taken, whatever the object is
        NotFound = 5,
        LockFailed = 6,
        OutOfResources = 7, ///< no memory, descriptor or space; for `create`, also no directory to create in
        Unknown = 8,
    };

    /// Bits of the mode byte.
    enum Mode : unsigned char {
        ModeLifetime = 1, ///< the last one to detach removes the segment
        ModeWrite = 2,
        ModeRead = 4,
    };

    static constexpr int lockWaitMs = 1000; ///< the longest that `lock` waits

    /// Stores its arguments; touches nothing. `inDirectory`: where shared-memory objects are mounted.
    qzSharedMemory(const _qzString8_allSize<250>& key, unsigned char mode,
                   const char* inDirectory = "/dev/shm");

    /// Detaches.
    ~qzSharedMemory();

    qzSharedMemory(const qzSharedMemory&) = delete;
    qzSharedMemory& operator=(const qzSharedMemory&) = delete;

    /// Creates a segment of `size` bytes and attaches to it, in place of the one attached so far. Its memory
    /// is allocated at once, and no process sees it before it has its full size. A segment starts as zeros,
    /// with or without `clear`. An existing name is error AlreadyExists, unless `replace` makes the new
    /// segment take it over.
    bool create(qint64 size, bool clear, bool replace);

    /// Attaches to the segment under the key, whatever its size. Returns true immediately if already
    /// attached.
    bool attach();

    bool isAttached() const { return object.isOpen(); }

    /// Detaches from the segment, releases its lock and drops this process's flags. The last process to
    /// detach removes it (ModeLifetime), but only while the name leads to the segment held, and not if it is
    /// smaller than the size last passed to `create`. False if nothing was attached.
    bool detach();

    /// Size of the segment in bytes when it was attached; 0 if none is.
    qint64 size() const;

    /// Acquires the lock, waiting at most `lockWaitMs`. Returns true immediately if already held.
    bool lock();
    bool unlock();

    /// Sets or drops a flag of this process; what is set lasts until `detach` or the process's end.
    bool mark(SegmentFlag flag, bool isSet = true);

    /// The segment's bytes, mapped at the first call; valid until `detach`. Null (with the reason in `error`)
    /// if they cannot be mapped, null without an error for a segment of size 0. If the segment is truncated
    /// later, touching them raises SIGBUS; `write` does not.
    void* data();

    /// Copies `count` bytes into the segment from `offset` on, all or false, and sets its modification time.
    /// Writes through the descriptor, never the mapping. Fails (InvalidSize) if the segment is now smaller
    /// than that. A process killed meanwhile leaves the pages written so far: a write that spans more than
    /// one page (4096 bytes) is not atomic.
    bool write(const void* bytes, qint64 count, qint64 offset = 0);

    /// Whether the segment is attached, the name still leads to it (else NotFound), and it is not smaller
    /// than the size last passed to `create` (else InvalidSize).
    bool isIntact();

    int error() const { return lastError; }

    /// One sentence that names the segment; empty without an error.
    _qzString8_allSize<250> errorString() const { return lastErrorText; }

  private:
    bool isValidKey() const;
    bool adopt(FileDescriptor opened);
    bool leadsToOwned() const;
    void removeIfLast();
    void unmap();
    bool succeed();
    bool fail(Error code, int reason, const char* what);
    bool failAs(int reason, const char* what);

    _qzString8_allSize<250> segmentKey;
    _qzString8_allSize<250> lastErrorText;
    QByteArray directory;
    QByteArray path;
    FileDescriptor object;
    void* mapping = nullptr;
    qint64 attachedSize = 0; ///< bytes, while attached
    qint64 askedSize = 0;    ///< the size last passed to `create`
    int lastError = None;
    unsigned char modeBits;
};
