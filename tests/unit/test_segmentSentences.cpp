// The sentence for each failure, word for word, as a person finds it in a log.
#include <functional>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <QTest>

#include "ChildProcess.h"
#include "RefusedCall.h"
#include "SegmentBench.h"
#include "support/FileDescriptor.h"

class TestSegmentSentences : public QObject {
    Q_OBJECT

    using Operation = std::function<void(qzSharedMemory&, const SegmentDirectory&)>;

    static void say(const char* keyOfSegment, const char* directory, const Operation& operation,
                    const char* expected) {
        const SegmentDirectory scratch;
        qzSharedMemory segment(keyOfSegment, mode, directory != nullptr ? directory : scratch.path());
        operation(segment, scratch);
        QCOMPARE(textOf(segment), "The shared memory \"" + QByteArray(keyOfSegment) + "\" " + expected);
    }

    static void say(const Operation& operation, const char* expected) {
        say(key, nullptr, operation, expected);
    }

  private slots:
    void ofMaking() {
        const Operation create = [](qzSharedMemory& segment, const SegmentDirectory&) {
            segment.create(blockSize, true, false);
        };
        say("a/b", nullptr, create, "can't be created, its key is not a file name.");
        say(key, "/nowhere/at/all", create, "can't be created, there is no directory for it.");
        say([](qzSharedMemory& segment, const SegmentDirectory&) { segment.create(0, true, false); },
            "can't be created, its size has to be above 0.");
        say(
            [&](qzSharedMemory& segment, const SegmentDirectory& scratch) {
                scratch.makeFile(key, "x");
                create(segment, scratch);
            },
            "can't be created, the name is taken.");
    }

    void ofJoining() {
        const Operation attach = [](qzSharedMemory& segment, const SegmentDirectory&) { segment.attach(); };
        say("a/b", nullptr, attach, "can't be attached, its key is not a file name.");
        say(attach, "does not exist.");
        say(
            [&](qzSharedMemory& segment, const SegmentDirectory& scratch) {
                QVERIFY(mkfifo(scratch.file(key).constData(), 0600) == 0);
                attach(segment, scratch);
            },
            "is refused, it is not a segment of this user's own.");
        say(
            [&](qzSharedMemory& segment, const SegmentDirectory& scratch) {
                scratch.makeFile(key, "x");
                const FileDescriptor leaving(
                    open(scratch.file(key).constData(), O_RDWR | O_CLOEXEC)); // and does not get on with it
                struct flock all{};
                all.l_type = F_WRLCK;
                QVERIFY(fcntl(leaving.get(), F_OFD_SETLK, &all) == 0);
                attach(segment, scratch);
            },
            "can't be attached, it is being removed.");
    }

    void ofUsingWhatIsNotAttached() {
        const auto unattached = [](auto call) {
            return [call](qzSharedMemory& segment, const SegmentDirectory&) { call(segment); };
        };
        say(unattached([](qzSharedMemory& segment) { segment.detach(); }), "is not attached.");
        say(unattached([](qzSharedMemory& segment) { segment.isIntact(); }), "is not attached.");
        say(unattached([](qzSharedMemory& segment) { segment.lock(); }),
            "can't be locked, it is not attached.");
        say(unattached([](qzSharedMemory& segment) { segment.unlock(); }),
            "can't be unlocked, it is not attached.");
        say(unattached([](qzSharedMemory& segment) { segment.data(); }), "has no data, it is not attached.");
        say(unattached([](qzSharedMemory& segment) { segment.write("x", 1); }),
            "can't be written, it is not attached.");
    }

    void ofLosing() {
        const auto after = [](auto loss, auto call) {
            return [=](qzSharedMemory& segment, const SegmentDirectory& scratch) {
                QVERIFY(segment.create(blockSize, true, false));
                QCOMPARE(loss(scratch.file(key).constData()), 0);
                call(segment);
            };
        };
        const auto remove = [](const char* path) { return unlink(path); };
        const auto cut = [](const char* path) { return truncate(path, 10); };
        const auto check = [](qzSharedMemory& segment) { segment.isIntact(); };
        say(after(remove, check), "is gone, its name no longer leads to it.");
        say(after(cut, check), "has become too small.");
        say(after(cut, [](qzSharedMemory& segment) { segment.data(); }),
            "has become smaller since it was attached.");
        say(after(cut, [](qzSharedMemory& segment) { segment.write("x", 1, 10); }),
            "can't be written, it is too small.");
    }

    void ofWhatTheSystemRefuses_data() {
        QTest::addColumn<int>("call");
        QTest::addColumn<uint>("argument");
        QTest::addColumn<uint>("flags");
        QTest::addColumn<QByteArray>("operation");
        QTest::addColumn<QByteArray>("expected");
        const auto row = [](const char* operation, int call, const char* expected, uint argument = 1,
                            uint flags = 0) {
            QTest::newRow(operation) << call << argument << flags << QByteArray(operation)
                                     << QByteArray(expected);
        };
        row("create", SYS_fstat, "can't be attached (Input/output error).");
        row("lock", SYS_flock, "can't be locked, the system refuses it.");
        row("unlock", SYS_flock, "can't be unlocked, the system refuses it.");
        row("write", SYS_pwrite64, "can't be written (Input/output error).");
        row("time of writing", SYS_utimensat, "can't be written (Input/output error).");
        row("data", SYS_mmap, "can't be mapped (Input/output error).", 3, MAP_SHARED);
    }

    void ofWhatTheSystemRefuses() {
        QFETCH(int, call);
        QFETCH(uint, argument);
        QFETCH(uint, flags);
        QFETCH(QByteArray, operation);
        QFETCH(QByteArray, expected);
        const SegmentDirectory scratch;
        passesInChild("SKIPPED: system calls can't be filtered here", [&] {
            qzSharedMemory segment(key, mode, scratch.path());
            if (operation != "create")
                segment.create(blockSize, true, false);
            if (!refuse({call, flags, EIO, argument}))
                return notPossible;
            const bool isDone = operation == "create"   ? segment.create(blockSize, true, false)
                                : operation == "lock"   ? segment.lock()
                                : operation == "unlock" ? segment.unlock()
                                : operation == "data"   ? segment.data() != nullptr
                                                        : segment.write("x", 1);
            return !isDone && textOf(segment) == "The shared memory \"segment\" " + expected ? 0 : 1;
        });
    }

    void ofLockingAndWriting() {
        say(
            [](qzSharedMemory& segment, const SegmentDirectory& scratch) {
                QVERIFY(segment.create(blockSize, true, false));
                const FileDescriptor holder(open(scratch.file(key).constData(), O_RDONLY | O_CLOEXEC));
                QCOMPARE(flock(holder.get(), LOCK_EX), 0);
                segment.lock();
            },
            "can't be locked, its lock was not free in time.");
        say(
            [](qzSharedMemory& segment, const SegmentDirectory&) {
                QVERIFY(segment.create(blockSize, true, false));
                struct rlimit before{};
                getrlimit(RLIMIT_FSIZE, &before);
                const struct rlimit small{1, before.rlim_max};
                setrlimit(RLIMIT_FSIZE, &small);
                segment.write("xx", 2);
                setrlimit(RLIMIT_FSIZE, &before);
            },
            "can't be written (File too large).");
        const SegmentDirectory scratch;
        qzSharedMemory writer(key, mode, scratch.path());
        QVERIFY(writer.create(blockSize, true, false));
        qzSharedMemory reader(key, qzSharedMemory::ModeRead, scratch.path());
        QVERIFY(reader.attach());
        QVERIFY(!reader.write("x", 1));
        QCOMPARE(textOf(reader),
                 QByteArray("The shared memory \"segment\" can't be written, it is attached for reading."));
    }
};

QTEST_APPLESS_MAIN(TestSegmentSentences)
#include "test_segmentSentences.moc"
