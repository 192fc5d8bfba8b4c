// What the driver does with the shared-memory segment.
#include "app/GpuInfo_Main.h"
#include "app/log/logLine.h"
#include "support/qzLastOSError.h"

bool GpuInfo_Main::createSharedMemory() {
    constexpr qint64 size = sizeof(GpuInfoBlock);
    for (int triesLeft = 10; !segment.isAttached(); --triesLeft) {
        if (segment.create(size, true, false)) {
            logLine(3, QStringLiteral("Created shared memory"));
            return true;
        }
        if (segment.error() != qzSharedMemory::AlreadyExists) {
            const QString systemError = qzLastOSError(-1);
            logLine(1,
                    "Unable to create shared memory!; " + QString(segment.errorString()) + " " + systemError);
            return false;
        }
        // The last attached process may detach, and so remove it, between the two calls: the name is free
        // again.
        if (!segment.attach() && (segment.error() != qzSharedMemory::NotFound || triesLeft == 0)) {
            logLine(0, "Unable to attach shared memory!; " + QString(segment.errorString()));
            return false;
        }
    }
    if (segment.size() < size) {
        logLine(0,
                QStringLiteral("Shared memory has wrong data size! (%1!=%2)").arg(segment.size()).arg(size));
        segment.detach();
        return false;
    }
    logLine(3, QStringLiteral("Using existing shared memory"));
    return true;
}

/// A process killed during a write leaves what it has written so far, and its lock is free at once. So the
/// block is marked not ready before its first byte changes, and ready after its last.
bool GpuInfo_Main::writeList() {
    constexpr qint64 head = offsetof(GpuInfoBlock, cudaCount);
    constexpr qint64 body = publishedSize - head;
    constexpr std::uint32_t notReady[] = {GpuInfoBlock::version, 0};
    static_assert(sizeof notReady == head);
    return segment.write(notReady, head) &&
           segment.write(reinterpret_cast<const char*>(&list) + head, body, head) &&
           segment.write(&list, head);
}

bool GpuInfo_Main::publish() {
    if ((!segment.isAttached() && !segment.attach()) || !segment.isIntact()) {
        logLine(0, "Unable to attach shared memory!; " + QString(segment.errorString()));
        const bool nameIsGone = segment.error() == qzSharedMemory::NotFound;
        segment.detach();
        // The name was removed (a logout does that): with a new one the next cycle can publish.
        if (nameIsGone)
            createSharedMemory();
        return false;
    }
    if (!segment.lock()) {
        logLine(2, "Unable to lock shared memory!; " + QString(segment.errorString()));
        return false;
    }
    const bool written = writeList();
    const QString reason = segment.errorString(); // cleared by the calls below
    // Before the lock is free, so that no reader finds the list without its flag.
    if (written)
        segment.mark(SegmentFlag::HasPublished);
    segment.unlock();
    if (!written) {
        logLine(0, "Unable to attach shared memory!; " + reason);
        return false;
    }
    logLine(4, QStringLiteral("Updated shared memory block"));
    return true;
}
