// One process and a segment in real shared memory.
#include <cerrno>
#include <cstring>
#include <limits>

#include <fcntl.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTest>

#include "SegmentBench.h"
#include "support/qzSharedMemory.h"
#include "tests/unit/testRows.h"

class TestQzSharedMemory : public QObject {
    Q_OBJECT

  private slots:
    void errorCodes() {
        QCOMPARE(int(qzSharedMemory::None), 0);
        QCOMPARE(int(qzSharedMemory::PermissionDenied), 1);
        QCOMPARE(int(qzSharedMemory::InvalidSize), 2);
        QCOMPARE(int(qzSharedMemory::BadKey), 3);
        QCOMPARE(int(qzSharedMemory::AlreadyExists), 4);
        QCOMPARE(int(qzSharedMemory::NotFound), 5);
        QCOMPARE(int(qzSharedMemory::LockFailed), 6);
        QCOMPARE(int(qzSharedMemory::OutOfResources), 7);
        QCOMPARE(int(qzSharedMemory::Unknown), 8);
        QCOMPARE(int(qzSharedMemory::ModeRead), 4);
        QCOMPARE(int(qzSharedMemory::ModeWrite), 2);
        QCOMPARE(int(qzSharedMemory::ModeLifetime), 1);
    }

    void standsInDevShm() {
        const QByteArray name = "qzTest-key-" + QByteArray::number(getpid());
        const QByteArray path = "/dev/shm/" + name;
        struct stat found{};
        qzSharedMemory segment(name.constData(), mode);
        QVERIFY(segment.create(blockSize, true, false));
        QCOMPARE(stat(path.constData(), &found), 0);
        QCOMPARE(qint64(found.st_size), blockSize);
        QVERIFY(segment.detach());
        QVERIFY(stat(path.constData(), &found) != 0);
    }

    void constructorTouchesNothing() {
        const SegmentDirectory directory;
        const qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(!segment.isAttached());
        QCOMPARE(segment.size(), qint64(0));
        QCOMPARE(segment.error(), 0);
        QCOMPARE(textOf(segment), QByteArray());
        QCOMPARE(directory.names(), QStringList());
    }

    void create_data() {
        const auto row = testColumns<qint64, bool, int>("size", "clear", "mask");
        row("the block", blockSize, true, 022);
        row("not to be cleared", blockSize, false, 022);
        row("one byte", qint64(1), true, 022);
        row("a page", qint64(4096), true, 022);
        row("a megabyte", qint64(1024 * 1024), true, 022);
        row("umask 0", blockSize, true, 0);
        row("umask 0777", blockSize, true, 0777);
    }

    void create() {
        QFETCH(qint64, size);
        QFETCH(bool, clear);
        QFETCH(int, mask);
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        const mode_t before = umask(mode_t(mask));
        const bool created = segment.create(size, clear, false);
        umask(before);
        QVERIFY2(created, textOf(segment).constData());
        QVERIFY(segment.isAttached());
        QCOMPARE(segment.error(), 0);
        QCOMPARE(textOf(segment), QByteArray());
        QCOMPARE(segment.size(), size);
        QCOMPARE(directory.names(), QStringList{key});
        const struct stat found = directory.status(key);
        QCOMPARE(qint64(found.st_size), size);
        QCOMPARE(int(found.st_mode), int(S_IFREG | 0600));
        QCOMPARE(qint64(found.st_nlink), qint64(1));
        QVERIFY(found.st_blocks * 512 >= size);
        QCOMPARE(directory.bytes(key), QByteArray(int(size), '\0'));
        QVERIFY(segment.isIntact());
    }

    void createWithoutASize_data() {
        const auto row = testColumns<qint64>("size");
        row("none", qint64(0));
        row("negative", qint64(-1));
        row("most negative", std::numeric_limits<qint64>::min());
    }

    void createWithoutASize() {
        QFETCH(qint64, size);
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(!segment.create(size, true, false));
        QCOMPARE(segment.error(), int(qzSharedMemory::InvalidSize));
        QVERIFY(isSentenceAbout(textOf(segment), key));
        QCOMPARE(directory.names(), QStringList());
    }

    void createTooLarge_data() {
        const auto row = testColumns<qint64>("size");
        row("more than there is", (qint64(1) << 50));
        row("as large as a number gets", std::numeric_limits<qint64>::max());
    }

    void createTooLarge() {
        QFETCH(qint64, size);
        const SegmentDirectory directory;
        const QStringList descriptors = openDescriptors();
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(!segment.create(size, true, false));
        QCOMPARE(segment.error(), int(qzSharedMemory::OutOfResources));
        QVERIFY(isSentenceAbout(textOf(segment), key));
        QVERIFY(!segment.isAttached());
        QCOMPARE(directory.names(), QStringList());
        QCOMPARE(openDescriptors(), descriptors);
    }

    void keys_data() {
        const auto row = testColumns<QByteArray, bool>("name", "good");
        row("empty", QByteArray(), false);
        row("slash inside", "a/b", false);
        row("slash first", "/a", false);
        row("the directory", ".", false);
        row("the one above", "..", false);
        row("three dots", "...", true);
        row("bytes above 0x7f", QByteArray("\xc3\xa4\xff"), true);
        row("placeholder", "%1", true);
        row("250 bytes", QByteArray(250, 'k'), true);
    }

    void keys() {
        QFETCH(QByteArray, name);
        QFETCH(bool, good);
        const SegmentDirectory directory;
        qzSharedMemory segment(name.constData(), mode, directory.path());
        QCOMPARE(segment.create(blockSize, true, false), good);
        QCOMPARE(segment.error(), int(good ? qzSharedMemory::None : qzSharedMemory::BadKey));
        if (good)
            QVERIFY(S_ISREG(directory.status(name.constData()).st_mode));
        else
            QCOMPARE(directory.names(), QStringList());
        segment.detach();
        QVERIFY(!segment.attach());
        QCOMPARE(segment.error(), int(good ? qzSharedMemory::NotFound : qzSharedMemory::BadKey));
        QVERIFY(textOf(segment).size() <= 250 && textOf(segment).endsWith('.'));
    }

    void createOnATakenName() {
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile(key, "somebody's"));
        qzSharedMemory segment(key, mode, directory.path());
        errno = 0;
        const bool created = segment.create(blockSize, true, false);
        const int reason = errno;
        QVERIFY(!created);
        QCOMPARE(reason, EEXIST);
        QCOMPARE(segment.error(), 4);
        QVERIFY(isSentenceAbout(textOf(segment), key));
        QVERIFY(!segment.isAttached());
        QCOMPARE(directory.bytes(key), QByteArray("somebody's"));
        QCOMPARE(directory.names(), QStringList{key});
    }

    void createFails_data() {
        const auto row = testColumns<QString>("path");
        row("no directory", QStringLiteral("/missing"));
        row("a file in its place", QStringLiteral("/file"));
    }

    void createFails() {
        QFETCH(QString, path);
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile("file", ""));
        qzSharedMemory segment(key, mode, (directory.path() + path.toUtf8()).constData());
        QVERIFY(!segment.create(blockSize, true, false));
        const int reason = errno;
        QCOMPARE(segment.error(), int(qzSharedMemory::OutOfResources));
        QVERIFY(reason == ENOENT || reason == ENOTDIR);
        QVERIFY(isSentenceAbout(textOf(segment), key));
        QVERIFY(!segment.attach());
        QCOMPARE(segment.error(), int(qzSharedMemory::NotFound));
        QVERIFY(isSentenceAbout(textOf(segment), key));
    }

    void replaceTakesTheName() {
        const SegmentDirectory directory;
        qzSharedMemory old(key, mode, directory.path());
        qzSharedMemory fresh(key, mode, directory.path());
        QVERIFY(old.create(4000, true, false));
        QVERIFY(old.write("old", 3));
        QVERIFY(fresh.create(blockSize, false, true));
        QCOMPARE(directory.names(), QStringList{key});
        QCOMPARE(directory.bytes(key), QByteArray(int(blockSize), '\0'));
        QCOMPARE(int(directory.status(key).st_mode & 07777), 0600);
        QVERIFY(fresh.isIntact());
        QVERIFY(!old.isIntact());
        QCOMPARE(old.error(), int(qzSharedMemory::NotFound));
        QVERIFY(old.detach());
        QCOMPARE(directory.names(), QStringList{key});
        QVERIFY(fresh.detach());
        QCOMPARE(directory.names(), QStringList());
    }

    void replaceWhereNothingIs() {
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, true));
        QCOMPARE(directory.names(), QStringList{key});
    }

    void replaceFails() {
        const SegmentDirectory directory;
        QVERIFY(QDir().mkdir(directory.file(key)));
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(!segment.create(blockSize, true, true));
        QVERIFY(!segment.isAttached());
        QCOMPARE(directory.names(), QStringList{key}); // no temporary name is left
    }

    void createWhileAttached() {
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.create(blockSize, true, false));
        QVERIFY(!segment.create(4000, true, false));
        QCOMPARE(segment.error(), int(qzSharedMemory::AlreadyExists));
        QVERIFY(segment.isAttached());
        QCOMPARE(segment.size(), blockSize);
        QVERIFY(segment.data() != nullptr && QFile::remove(directory.file(key)));
        QVERIFY(!segment.isIntact());
        QVERIFY(segment.create(4000, true, false)); // created again
        QVERIFY(segment.write("n", 1));
        QCOMPARE(*static_cast<char*>(segment.data()), 'n');
        QCOMPARE(segment.size(), qint64(4000));
        QVERIFY(segment.isIntact());
        QCOMPARE(directory.names(), QStringList{key});
    }

    void attach_data() {
        testColumns<int>("size");
        for (const int size : {0, 1, 4000, 7472, 10000})
            QTest::addRow("%d bytes", size) << size;
    }

    void attach() {
        QFETCH(int, size);
        const SegmentDirectory directory;
        const QByteArray content(size, 'x');
        QVERIFY(directory.makeFile(key, content));
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(segment.attach());
        QVERIFY(segment.isAttached());
        QCOMPARE(segment.size(), qint64(size));
        QCOMPARE(segment.error(), 0);
        QCOMPARE(directory.bytes(key), content);
        QVERIFY(segment.isIntact());
        QVERIFY(segment.attach());
        QCOMPARE(segment.error(), 0);
        const void* bytes = segment.data();
        QCOMPARE(bytes == nullptr, size == 0);
        QCOMPARE(segment.error(), 0);
        QVERIFY(bytes == nullptr || std::memcmp(bytes, content.constData(), std::size_t(size)) == 0);
    }

    void attachToNothing() {
        const SegmentDirectory directory;
        const QStringList descriptors = openDescriptors();
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(!segment.attach());
        QCOMPARE(segment.error(), int(qzSharedMemory::NotFound));
        QVERIFY(isSentenceAbout(textOf(segment), key));
        QVERIFY(!segment.isAttached());
        QCOMPARE(openDescriptors(), descriptors);
    }

    void withoutASegment() {
        const SegmentDirectory directory;
        qzSharedMemory segment(key, mode, directory.path());
        QVERIFY(!segment.lock());
        QCOMPARE(segment.error(), int(qzSharedMemory::LockFailed));
        QVERIFY(!segment.unlock());
        QCOMPARE(segment.error(), int(qzSharedMemory::LockFailed));
        QVERIFY(segment.data() == nullptr);
        QCOMPARE(segment.error(), int(qzSharedMemory::NotFound));
        QVERIFY(!segment.write("x", 1));
        QCOMPARE(segment.error(), int(qzSharedMemory::NotFound));
        QVERIFY(!segment.isIntact());
        QCOMPARE(segment.error(), int(qzSharedMemory::NotFound));
        QVERIFY(!segment.detach());
        QCOMPARE(segment.error(), int(qzSharedMemory::NotFound));
    }

    void detach_data() {
        testColumns<int, bool>("modeBits", "removed");
        for (int bits = 0; bits < 8; ++bits)
            QTest::addRow("mode %d", bits) << bits << ((bits & 1) != 0);
    }

    void detach() {
        QFETCH(int, modeBits);
        QFETCH(bool, removed);
        const SegmentDirectory directory;
        const QStringList descriptors = openDescriptors();
        qzSharedMemory segment(key, static_cast<unsigned char>(modeBits), directory.path());
        QVERIFY(segment.create(blockSize, true, false));
        QVERIFY(segment.detach());
        QCOMPARE(segment.error(), 0);
        QVERIFY(!segment.isAttached());
        QCOMPARE(segment.size(), qint64(0));
        QCOMPARE(directory.names(), removed ? QStringList() : QStringList{key});
        QCOMPARE(openDescriptors(), descriptors);
        QVERIFY(directory.makeFile(key, "x"));
        QVERIFY(segment.attach());
    }

    void lastOneOutRemoves() {
        const SegmentDirectory directory;
        qzSharedMemory first(key, mode, directory.path());
        qzSharedMemory second(key, mode, directory.path());
        qzSharedMemory third(key, qzSharedMemory::ModeRead, directory.path());
        QVERIFY(first.create(blockSize, true, false) && second.attach() && third.attach());
        QVERIFY(first.detach());
        QCOMPARE(directory.names(), QStringList{key});
        QVERIFY(third.detach());
        QCOMPARE(directory.names(), QStringList{key});
        QVERIFY(second.detach());
        QCOMPARE(directory.names(), QStringList());
    }

    void destructorDetaches() {
        const SegmentDirectory directory;
        const QStringList descriptors = openDescriptors();
        {
            qzSharedMemory segment(key, mode, directory.path());
            QVERIFY(segment.create(blockSize, true, false));
            QVERIFY(segment.data() != nullptr);
        }
        QCOMPARE(directory.names(), QStringList());
        QCOMPARE(openDescriptors(), descriptors);
    }

    void everyErrorTextNamesTheSegment() {
        const SegmentDirectory directory;
        qzSharedMemory segment(QByteArray(250, 'k').constData(), mode, directory.path());
        QVERIFY(!segment.attach());
        const QByteArray text = textOf(segment);
        QVERIFY2(text.startsWith("The shared memory \"" + QByteArray(100, 'k') + "...\" "), text.constData());
        QVERIFY(text.endsWith("does not exist."));
    }

    void descriptorsAreClosedOnExec() {
        const SegmentDirectory directory;
        qzSharedMemory made(key, mode, directory.path());
        qzSharedMemory replaced("other", mode, directory.path());
        qzSharedMemory attached(key, mode, directory.path());
        QVERIFY(made.create(blockSize, true, false) && replaced.create(blockSize, true, true) &&
                attached.attach());
        int checked = 0;
        const QStringList numbers = openDescriptors();
        for (const QString& number : numbers) {
            const QString target = QFile::symLinkTarget(QStringLiteral("/proc/self/fd/") + number);
            const bool ours = target.startsWith(QLatin1String(directory.path()));
            QVERIFY(!ours || (fcntl(number.toInt(), F_GETFD) & FD_CLOEXEC) != 0);
            checked += ours ? 1 : 0;
        }
        QCOMPARE(checked, 3);
    }
};

QTEST_APPLESS_MAIN(TestQzSharedMemory)
#include "test_qzSharedMemory.moc"
