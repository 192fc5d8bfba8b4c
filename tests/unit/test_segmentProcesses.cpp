// Several processes on one segment: which removes it, what a killed one leaves, which wins a race.
#include <algorithm>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QTest>

#include "ChildProcess.h"
#include "SegmentDirectory.h"
#include "SegmentFlags.h"
#include "support/qzSharedMemory.h"

namespace {

constexpr char key[] = "segment";
constexpr unsigned char mode = 7;
constexpr qint64 blockSize = 7472;

bool setRecordLock(int object, short type) {
    struct flock range{};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = 4611686018427387904;
    range.l_len = 1;
    return fcntl(object, F_OFD_SETLK, &range) == 0;
}

} // namespace

class TestSegmentProcesses : public QObject {
    Q_OBJECT

  private slots:
    void lastProcessRemoves() {
        const SegmentDirectory directory;
        Signpost attached;
        Signpost leave;
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, false));
        ChildProcess child([&] {
            qzSharedMemory other(key, mode, directory.path());
            if (!other.attach())
                return 1;
            attached.give();
            leave.await();
            return other.isIntact() && other.detach() ? 0 : 2;
        });
        QVERIFY(attached.await());
        // The child's copy of this object shares the descriptor, which must not keep the segment attached.
        QVERIFY(segment.detach());
        QCOMPARE(directory.names(), QStringList{key});
        leave.give();
        QCOMPARE(child.result(), 0);
        QCOMPARE(directory.names(), QStringList());
    }

    void attachedIsVisible() {
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile(key, QByteArray(int(blockSize), '\0')));
        QCOMPARE(flagsOn(directory.file(key)), QString());
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.attach());
        QCOMPARE(flagsOn(directory.file(key)), QString("attached"));
        QVERIFY(segment.detach());
        qzSharedMemory created(key, mode & ~1, directory.path());
        QVERIFY(created.create(blockSize, true, false));
        QCOMPARE(flagsOn(directory.file(key)), QString("attached"));
        QVERIFY(created.detach());
        QCOMPARE(flagsOn(directory.file(key)), QString());
    }

    void flagsAreEachOnesOwn() {
        const SegmentDirectory directory;
        const QByteArray path = directory.file(key);
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(!segment.mark(SegmentFlag::HasPublished));
        QCOMPARE(segment.error(), int(qzSharedMemory::NotFound));
        QVERIFY(segment.create(blockSize, true, false));
        QVERIFY(segment.mark(SegmentFlag::Measuring));
        QCOMPARE(flagsOn(path), QString("attached measuring"));
        qzSharedMemory other(key, mode, directory.path());
        QVERIFY(other.attach());
        QVERIFY(other.mark(SegmentFlag::Measuring)); // shared
        QVERIFY(other.mark(SegmentFlag::HasPublished));
        QVERIFY(segment.mark(SegmentFlag::Measuring, false));
        QCOMPARE(flagsOn(path), QString("attached published measuring"));
        QVERIFY(other.mark(SegmentFlag::Measuring, false));
        QCOMPARE(flagsOn(path), QString("attached published"));
        QVERIFY(other.mark(SegmentFlag::Measuring));
        const ChildProcess child([] { return pause(); }); // has copies of the descriptors
        QVERIFY(other.detach());
        QCOMPARE(flagsOn(path), QString("attached"));
    }

    void killedProcessLeavesASegmentToReuse() {
        const SegmentDirectory directory;
        Signpost attached;
        ChildProcess child([&] {
            qzSharedMemory other(key, mode, directory.path());
            if (!other.create(blockSize, true, false) || !other.lock() ||
                !other.mark(SegmentFlag::HasPublished) || !other.mark(SegmentFlag::Measuring))
                return 1;
            attached.give();
            pause();
            return 2;
        });
        QVERIFY(attached.await());
        child.kill();
        QCOMPARE(child.result(), 1000 + SIGKILL);
        QCOMPARE(directory.names(), QStringList{key});
        QCOMPARE(flagsOn(directory.file(key)), QString());
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(!segment.create(blockSize, true, false));
        QCOMPARE(segment.error(), int(qzSharedMemory::AlreadyExists));
        QVERIFY(segment.attach());
        QCOMPARE(segment.size(), blockSize);
        QVERIFY(segment.lock());
        QVERIFY(segment.detach());
        QCOMPARE(directory.names(), QStringList());
    }

    void stoppedLockHolder() {
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, false));
        Signpost locked;
        ChildProcess child([&] {
            const int object = open(directory.file(key).constData(), O_RDONLY | O_CLOEXEC);
            if (flock(object, LOCK_EX) != 0)
                return 1;
            locked.give();
            pause();
            return 2;
        });
        QVERIFY(locked.await());
        child.signal(SIGSTOP);
        QVERIFY(!segment.lock());
        QCOMPARE(segment.error(), int(qzSharedMemory::LockFailed));
        child.kill();
        child.result();
        QVERIFY(segment.lock());
    }

    /// A driver that forks inherits the descriptors; it must keep neither the lock nor the segment.
    void forkedChildKeepsNothing() {
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, false));
        QVERIFY(segment.lock());
        qzSharedMemory other(key, mode, directory.path());
        QVERIFY(other.attach());
        const ChildProcess child([] { return pause(); });
        QVERIFY(segment.detach());
        QVERIFY(other.lock());
        QVERIFY(other.detach());
        QCOMPARE(directory.names(), QStringList());
    }

    void attachWaitsForOneThatIsLeaving() {
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile(key, QByteArray(int(blockSize), '\0')));
        Signpost locked;
        ChildProcess child([&] {
            const int object = open(directory.file(key).constData(), O_RDWR | O_CLOEXEC);
            if (!setRecordLock(object, F_WRLCK))
                return 1;
            locked.give();
            QTest::qSleep(30);
            return 0; // and the name stays
        });
        QVERIFY(locked.await());
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.attach());
        QCOMPARE(child.result(), 0);
    }

    void attachToOneThatIsBeingRemoved() {
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile(key, QByteArray(int(blockSize), '\0')));
        Signpost locked;
        ChildProcess child([&] {
            const int object = open(directory.file(key).constData(), O_RDWR | O_CLOEXEC);
            if (!setRecordLock(object, F_WRLCK))
                return 1;
            locked.give();
            QTest::qSleep(30);
            return unlink(directory.file(key).constData());
        });
        QVERIFY(locked.await());
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(!segment.attach());
        QCOMPARE(segment.error(), int(qzSharedMemory::NotFound));
        QCOMPARE(child.result(), 0);
    }

    void attachToOneThatIsNeverRemoved() {
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile(key, QByteArray(int(blockSize), '\0')));
        const int object = open(directory.file(key).constData(), O_RDWR | O_CLOEXEC);
        QVERIFY(setRecordLock(object, F_WRLCK));
        const QStringList descriptors = openDescriptors();
        QElapsedTimer timer;
        timer.start();
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(!segment.attach());
        QVERIFY(timer.elapsed() < 1000);
        QCOMPARE(segment.error(), int(qzSharedMemory::LockFailed));
        QCOMPARE(openDescriptors(), descriptors);
        close(object);
    }

    void racingCreators() {
        constexpr int rounds = 200;
        const SegmentDirectory directory;
        Signpost watcherReady;
        ChildProcess watcher([&] {
            watcherReady.give();
            for (;;) {
                const struct stat found = directory.status(key);
                if (found.st_ino != 0 && (found.st_size != blockSize || (found.st_mode & 07777) != 0600))
                    return 1;
            }
        });
        QVERIFY(watcherReady.await());
        for (int round = 0; round < rounds; ++round) {
            Signpost start;
            Signpost tried;
            Signpost leave;
            const auto create = [&] {
                qzSharedMemory segment(key, mode, directory.path());
                start.await();
                const bool created = segment.create(blockSize, true, false);
                tried.give();
                leave.await();
                return created ? 100 : segment.error();
            };
            ChildProcess first(create);
            ChildProcess second(create);
            start.give(2);
            QVERIFY(tried.await() && tried.await());
            leave.give(2);
            const int results[] = {first.result(), second.result()};
            QCOMPARE(std::min(results[0], results[1]), int(qzSharedMemory::AlreadyExists));
            QCOMPARE(std::max(results[0], results[1]), 100);
            QCOMPARE(directory.names(), QStringList());
        }
        watcher.kill();
        QCOMPARE(watcher.result(), 1000 + SIGKILL);
    }

    void comingAndGoingLeavesNothing() {
        constexpr int processes = 4;
        constexpr int rounds = 200;
        const SegmentDirectory directory;
        Signpost start;
        std::vector<std::unique_ptr<ChildProcess>> children;
        for (int i = 0; i < processes; ++i)
            children.push_back(std::make_unique<ChildProcess>([&] {
                start.await();
                for (int round = 0; round < rounds; ++round) {
                    qzSharedMemory segment(key, mode, directory.path());
                    if (!segment.create(blockSize, true, false) &&
                        segment.error() != qzSharedMemory::AlreadyExists)
                        return 10 + segment.error();
                    if (!segment.isAttached() && !segment.attach() &&
                        segment.error() != qzSharedMemory::NotFound)
                        return 20 + segment.error();
                    if (!segment.isAttached())
                        continue;
                    if (segment.size() != blockSize)
                        return 30;
                    // Any attached process keeps the name for all.
                    if (!segment.isIntact())
                        return 40 + segment.error();
                    if (!segment.detach())
                        return 50;
                }
                return 0;
            }));
        start.give(processes);
        for (const auto& child : children)
            QCOMPARE(child->result(), 0);
        QCOMPARE(directory.names(), QStringList());
    }

    /// Two that leave at the same instant must not each leave the removal to the other.
    void leavingTogetherLeavesNothing() {
        constexpr int rounds = 200;
        const SegmentDirectory directory;
        for (int round = 0; round < rounds; ++round) {
            Signpost attached;
            Signpost leave;
            const auto stay = [&] {
                qzSharedMemory segment(key, mode, directory.path());
                if (!segment.create(blockSize, true, false) && !segment.attach())
                    return 1;
                attached.give();
                leave.await();
                return segment.detach() ? 0 : 2;
            };
            ChildProcess first(stay);
            ChildProcess second(stay);
            QVERIFY(attached.await() && attached.await());
            leave.give(2);
            QCOMPARE(first.result(), 0);
            QCOMPARE(second.result(), 0);
            QCOMPARE(directory.names(), QStringList());
        }
    }
};

QTEST_APPLESS_MAIN(TestSegmentProcesses)
#include "test_segmentProcesses.moc"
