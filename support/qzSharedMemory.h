// Named shared memory with a lock between processes.
#pragma once

#include <QByteArray>
#include <QtGlobal>

#include "support/FileDescriptor.h"
#include "support/qzString.h"
#include "support/segmentFlags.h"

/// One named segment: the POSIX shared-memory object "/" + key, a file of exactly the segment's size.
///
/// Only processes of the same user share it. What stands under the name is refused (PermissionDenied) unless
/// it is a regular object of this user with one name; rights other than 0600 are set to that.
///
/// For readers in any language:
/// - the lock is `flock(LOCK_EX)` on the object, given back by the system when its holder dies;
/// - processes show what they are doing with it by shared record locks, see `SegmentFlag`;
/// - the object's modification time is that of the last `write`.
///
/// Failing operations leave the reason in `error` and `errorString`, and the system's in `errno`; operations
/// that succeed clear the former two. Not for use by several threads at once.
class qzSharedMemory {
  public:
    enum Error {
        None = 0,
        PermissionDenied = 1, ///< no right, a read-only file system, or not a segment of this user's own
        InvalidSize = 2,
        BadKey = 3,        ///< empty, ".", ".." or with a slash
        AlreadyExists = 4, ///< something stands under the name, whatever it is
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

    /// Remembers its arguments; touches nothing. `inDirectory`: where shared-memory objects are mounted.
    qzSharedMemory(const _qzString8_allSize<250>& key, unsigned char mode,
                   const char* inDirectory = "/dev/shm");

    /// Detaches.
    ~qzSharedMemory();

    qzSharedMemory(const qzSharedMemory&) = delete;
    qzSharedMemory& operator=(const qzSharedMemory&) = delete;

    /// Creates a segment of `size` bytes and attaches to it, instead of the one attached so far. Its memory
    /// is allocated at once, and nobody sees it before it has its whole size. A segment starts as zeros,
    /// whether `clear` asks for that or not. An existing name is error AlreadyExists, unless `replace` lets
    /// the new segment take it.
    bool create(qint64 size, bool clear, bool replace);

    /// Attaches to the segment under the key, whatever its size. True at once when attached already.
    bool attach();

    bool isAttached() const { return object.isOpen(); }

    /// Leaves the segment, releases its lock and drops this process's flags. The last process to leave
    /// removes it (ModeLifetime), but only while the name leads to the segment held, and none that is smaller
    /// than the size last asked of `create`. False when nothing was attached.
    bool detach();

    /// Bytes of the segment when it was attached; 0 when none is.
    qint64 size() const;

    /// Takes the lock, waiting at most `lockWaitMs` for it. True at once for who holds it already.
    bool lock();
    bool unlock();

    /// Sets or drops a flag of this process; what is set lasts until `detach` or the process's end.
    bool mark(SegmentFlag flag, bool isSet = true);

    /// The segment's bytes, mapped at the first call; valid until `detach`. Null (with the reason in `error`)
    /// when they can't be mapped, null without an error for a segment of size 0. The bytes of a segment that
    /// somebody truncates later can't be touched without a SIGBUS: `write` has no such danger.
    void* data();

    /// Copies `count` bytes into the segment from `offset` on, all or false, and sets its modification time.
    /// Goes by the descriptor, never by the mapping. Refuses (InvalidSize) when the segment is now smaller
    /// than that. A process that is killed meanwhile leaves the pages written so far: what spans more than
    /// one page (4096 bytes) is not written as a whole.
    bool write(const void* bytes, qint64 count, qint64 offset = 0);

    /// Whether the segment is attached, the name still leads to it (else NotFound), and it is not smaller
    /// than the size last asked of `create` (else InvalidSize).
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
    qint64 askedSize = 0;    ///< the size last asked of `create`
    int lastError = None;
    unsigned char modeBits;
};
