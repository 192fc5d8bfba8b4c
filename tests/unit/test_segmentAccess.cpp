// Operations on an attached segment: lock, write, map, check that it is still there.
#include <limits>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QFile>
#include <QTest>

#include "SegmentBench.h"
#include "support/qzSharedMemory.h"
#include "tests/unit/testRows.h"

class TestSegmentAccess : public QObject {
    Q_OBJECT

  private slots:
    void data() {
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        qzSharedMemory reader(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, false));
        QVERIFY(reader.attach());
        char* bytes = static_cast<char*>(segment.data());
        QVERIFY(bytes != nullptr);
        QCOMPARE(segment.data(), static_cast<void*>(bytes));
        bytes[0] = 'a';
        bytes[blockSize - 1] = 'z';
        QCOMPARE(directory.bytes(key).at(0), 'a');
        QCOMPARE(directory.bytes(key).at(int(blockSize) - 1), 'z');
        QVERIFY(reader.data() != nullptr && reader.data() != bytes);
        QCOMPARE(static_cast<char*>(reader.data())[0], 'a');
        QVERIFY(segment.write("b", 1));
        QCOMPARE(bytes[0], 'b');
    }

    void dataThatCanNotBeMapped() {
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile(key, "x"));
        QCOMPARE(truncate(directory.file(key).constData(), off_t(1) << 50),
                 0); // more than there are addresses
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.attach());
        QVERIFY(segment.data() == nullptr);
        QCOMPARE(segment.error(), int(qzSharedMemory::OutOfResources));
        QVERIFY(isSentenceAbout(textOf(segment), key));
    }

    void dataOfAShrunkenSegment() {
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, false));
        QCOMPARE(truncate(directory.file(key).constData(), 10), 0);
        QVERIFY(segment.data() == nullptr);
        QCOMPARE(segment.error(), int(qzSharedMemory::InvalidSize));
    }

    void readersMappingRefusesWriting() {
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile(key, QByteArray(int(blockSize), 'x')));
        qzSharedMemory reader(key, qzSharedMemory::ModeRead, directory.path());
        qzSharedMemory writer(key, mode, directory.path());
        QVERIFY(reader.attach() && writer.attach());
        // The kernel reports what may be written, without a signal.
        const int zero = open("/dev/zero", O_RDONLY | O_CLOEXEC);
        QCOMPARE(read(zero, writer.data(), 1), ssize_t(1));
        QCOMPARE(read(zero, reader.data(), 1), ssize_t(-1));
        close(zero);
        QVERIFY(!reader.write("y", 1));
        QCOMPARE(reader.error(), int(qzSharedMemory::PermissionDenied));
        QVERIFY(reader.lock() && reader.unlock() && reader.detach());
        QCOMPARE(directory.names(), QStringList{key});
    }

    void write() {
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, false));
        const timespec old[2] = {{1000, 0}, {1000, 0}};
        QCOMPARE(utimensat(AT_FDCWD, directory.file(key).constData(), old, 0), 0);
        const QByteArray block(7469, 'b');
        const std::time_t before = std::time(nullptr);
        QVERIFY(segment.write(block.constData(), block.size()));
        QCOMPARE(segment.error(), 0);
        QCOMPARE(directory.bytes(key), block + QByteArray(3, '\0'));
        QVERIFY(directory.status(key).st_mtime >= before - 1);
    }

    void writeFromAnOffsetOn() {
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.create(10, true, false));
        QVERIFY(segment.write("abc", 3, 2));
        QVERIFY(segment.write("z", 1, 9));
        QVERIFY(segment.write("", 0, 10));
        const QByteArray held("\0\0abc\0\0\0\0z", 10);
        QCOMPARE(directory.bytes(key), held);
        constexpr qint64 largest = std::numeric_limits<qint64>::max();
        for (const qint64 offset : {qint64(10), qint64(-1), largest, std::numeric_limits<qint64>::min()}) {
            QVERIFY(!segment.write("y", 1, offset));
            QCOMPARE(segment.error(), int(qzSharedMemory::InvalidSize));
        }
        QVERIFY(!segment.write("y", 2, 9));
        QVERIFY(!segment.write("y", largest, largest));
        QCOMPARE(directory.bytes(key), held);
    }

    /// Writing through a mapping would not change the time, and neither does writing nothing.
    void writeOfNothingSetsTheTime() {
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, false));
        const timespec old[2] = {{1000, 0}, {1000, 0}};
        QCOMPARE(utimensat(AT_FDCWD, directory.file(key).constData(), old, 0), 0);
        QVERIFY(segment.write("", 0));
        QVERIFY(directory.status(key).st_mtime > 1000);
    }

    void writeRefused_data() {
        const auto row = testColumns<qint64>("count");
        row("one byte more", blockSize + 1);
        row("negative", qint64(-1));
        row("huge", std::numeric_limits<qint64>::max());
    }

    void writeRefused() {
        QFETCH(qint64, count);
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, false));
        const QByteArray bytes(int(blockSize) + 1, 'x');
        QVERIFY(!segment.write(bytes.constData(), count));
        QCOMPARE(segment.error(), int(qzSharedMemory::InvalidSize));
        QVERIFY(isSentenceAbout(textOf(segment), key));
        QCOMPARE(directory.bytes(key), QByteArray(int(blockSize), '\0'));
    }

    void truncatedWhileMapped() {
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, false));
        QVERIFY(segment.data() != nullptr);
        QCOMPARE(truncate(directory.file(key).constData(), 0), 0);
        const QByteArray block(int(blockSize), 'b');
        QVERIFY(!segment.write(block.constData(), block.size()));
        QCOMPARE(segment.error(), int(qzSharedMemory::InvalidSize));
        QCOMPARE(qint64(directory.status(key).st_size), qint64(0));
        QVERIFY(!segment.isIntact());
        QCOMPARE(segment.error(), int(qzSharedMemory::InvalidSize));
        QVERIFY(isSentenceAbout(textOf(segment), key));
        QVERIFY(segment.lock() && segment.unlock());
        QVERIFY(segment.detach());
        // Smaller than requested: another segment, so it is not removed.
        QCOMPARE(directory.names(), QStringList{key});
    }

    void isIntact_data() {
        const auto row = testColumns<int, bool, bool>("size", "asked", "intact");
        row("exact", 7472, true, true);
        row("larger", 10000, true, true);
        row("a byte too small", 7471, true, false);
        row("small, but none was asked for", 10, false, true);
    }

    void isIntact() {
        QFETCH(int, size);
        QFETCH(bool, asked);
        QFETCH(bool, intact);
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile(key, QByteArray(size, 'x')));
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(!asked || !segment.create(blockSize, true, false));
        QVERIFY(segment.attach());
        QCOMPARE(segment.isIntact(), intact);
        QCOMPARE(segment.error(), int(intact ? qzSharedMemory::None : qzSharedMemory::InvalidSize));
        QVERIFY(segment.detach());
        QCOMPARE(directory.names(), intact ? QStringList() : QStringList{key});
    }

    void nameGoneOrAnothers_data() {
        const auto row = testColumns<QString>("now");
        row("gone", QString());
        row("another file", QStringLiteral("file"));
        row("a link to the segment itself", QStringLiteral("link"));
    }

    void nameGoneOrAnothers() {
        QFETCH(QString, now);
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, false));
        QVERIFY(segment.data() != nullptr);
        if (now == QLatin1String("link")) {
            QCOMPARE(rename(directory.file(key).constData(), directory.file("moved").constData()), 0);
            QCOMPARE(symlink("moved", directory.file(key).constData()), 0);
        } else {
            QVERIFY(QFile::remove(directory.file(key)));
            QVERIFY(now.isEmpty() || directory.makeFile(key, QByteArray(int(blockSize), 'x')));
        }
        const QStringList names = directory.names();
        QVERIFY(!segment.isIntact());
        QCOMPARE(segment.error(), int(qzSharedMemory::NotFound));
        QVERIFY(isSentenceAbout(textOf(segment), key));
        QVERIFY(segment.write("still writable", 14));
        QVERIFY(segment.detach());
        QCOMPARE(directory.names(), names);
    }

    void lock() {
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, false));
        const int reader = open(directory.file(key).constData(), O_RDONLY | O_CLOEXEC);
        QVERIFY(segment.lock());
        QVERIFY(segment.lock());
        QVERIFY(flock(reader, LOCK_EX | LOCK_NB) != 0);
        QVERIFY(segment.unlock());
        QCOMPARE(flock(reader, LOCK_EX | LOCK_NB), 0);
        close(reader);
        QVERIFY(segment.lock());
        QCOMPARE(segment.error(), 0);
    }

    void lockWaitsABoundedTime() {
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        qzSharedMemory other(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, false) && other.attach() && other.lock());
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!segment.lock());
        const qint64 waited = timer.elapsed();
        QVERIFY2(waited >= 990 && waited < 1500, QByteArray::number(waited).constData());
        QCOMPARE(segment.error(), int(qzSharedMemory::LockFailed));
        QVERIFY(isSentenceAbout(textOf(segment), key));
        QVERIFY(textOf(segment).contains("lock was not free in time"));
        QVERIFY(other.unlock() && segment.lock());
        QCOMPARE(textOf(segment), QByteArray());
    }

    void lockIsTakenWhenItGetsFree() {
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        qzSharedMemory other(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, false) && other.attach() && other.lock());
        std::thread release([&other] {
            QTest::qSleep(200);
            other.unlock();
        });
        QElapsedTimer timer;
        timer.start();
        const bool locked = segment.lock();
        const qint64 waited = timer.elapsed();
        release.join();
        QVERIFY(locked);
        QVERIFY2(waited >= 150 && waited < 900, QByteArray::number(waited).constData());
    }
};

QTEST_APPLESS_MAIN(TestSegmentAccess)
#include "test_segmentAccess.moc"
