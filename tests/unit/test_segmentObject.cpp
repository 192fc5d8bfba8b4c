// How an object gets its name where the system lacks one of the ways.
#include <cerrno>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <QTest>

#include "ChildProcess.h"
#include "RefusedCall.h"
#include "SegmentDirectory.h"
#include "support/segmentObject.h"
#include "tests/unit/testRows.h"

namespace {

constexpr qint64 size = 7472;

/// The flag of O_TMPFILE that no other way of opening has.
constexpr unsigned unnamedFlag = unsigned(O_TMPFILE) & ~unsigned(O_DIRECTORY);

FileDescriptor create(const SegmentDirectory& directory, bool replace = false) {
    return createSegmentObject(directory.path(), directory.file("segment"), size, replace);
}

bool isWhole(const SegmentDirectory& directory) {
    const struct stat found = directory.status("segment");
    return directory.names() == QStringList{"segment"} && found.st_size == size && found.st_nlink == 1 &&
           found.st_mode == (S_IFREG | 0600);
}

} // namespace

Q_DECLARE_METATYPE(std::vector<RefusedCall>)

class TestSegmentObject : public QObject {
    Q_OBJECT

  private slots:
    void otherWays_data() {
        const auto row = testColumns<std::vector<RefusedCall>>("refused");
        row("all there", {});
        row("no unnamed files: not supported", {{SYS_openat, unnamedFlag, EOPNOTSUPP}});
        row("no unnamed files: taken for a directory", {{SYS_openat, unnamedFlag, EISDIR}});
        row("no unnamed files: unknown flag", {{SYS_openat, unnamedFlag, EINVAL}});
        row("nothing can be linked", {{SYS_linkat, 0, EPERM}});
    }

    void otherWays() {
        QFETCH(std::vector<RefusedCall>, refused);
        const SegmentDirectory directory;
        if (!passesWithRefused(refused, [&] {
                const FileDescriptor object = create(directory);
                if (!object.isOpen() || !isWhole(directory) || objectSize(object.get()) != size)
                    return 1;
                if (create(directory).isOpen() || errno != EEXIST || !isWhole(directory))
                    return 2;
                return 0;
            }))
            return;
        QVERIFY(isWhole(directory));
    }

    void linkedByTheDescriptorAlone() {
        const SegmentDirectory directory;
        passesInChild("SKIPPED: a file can't be linked by its descriptor here", [&] {
            // A privilege, before Linux 6.10.
            const FileDescriptor probe(open(directory.path(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
            if (linkat(probe.get(), "", AT_FDCWD, directory.file("probe").constData(), AT_EMPTY_PATH) != 0 ||
                unlink(directory.file("probe").constData()) != 0)
                return notPossible;
            constexpr unsigned linkFlags = 4;
            if (!refuse({SYS_linkat, AT_SYMLINK_FOLLOW, ENOENT, linkFlags}) ||
                !refuse({SYS_openat, O_EXCL, EPERM}))
                return notPossible;
            const FileDescriptor object = create(directory);
            return object.isOpen() && isWhole(directory) ? 0 : 1;
        });
    }

    /// Whether the name is free is decided when it is given, not when it was checked.
    void nameTakenMeanwhile_data() {
        // The check doesn't see it.
        const std::vector<RefusedCall> unseen = {{SYS_newfstatat, 0, ENOENT}, {SYS_lstat, 0, ENOENT}};
        std::vector<RefusedCall> renamed = unseen;
        renamed.push_back({SYS_openat, unnamedFlag, EOPNOTSUPP});
        const auto row = testColumns<std::vector<RefusedCall>>("refused");
        row("linked", unseen);
        row("renamed", renamed);
    }

    void nameTakenMeanwhile() {
        QFETCH(std::vector<RefusedCall>, refused);
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile("segment", "another's"));
        passesWithRefused(refused, [&] {
            const FileDescriptor object = create(directory);
            return !object.isOpen() && errno == EEXIST ? 0 : 1;
        });
        QCOMPARE(directory.bytes("segment"), QByteArray("another's"));
        QCOMPARE(directory.names(), QStringList{"segment"});
    }

    void failedReasonsStay_data() {
        const auto row = testColumns<int, uint, int, bool>("call", "flags", "reason", "replace");
        for (const bool replace : {false, true}) {
            const char* how = replace ? "replace" : "create";
            QTest::addRow("%s: no rights set", how) << int(SYS_fchmod) << 0u << EPERM << replace;
            QTest::addRow("%s: no room", how) << int(SYS_fallocate) << 0u << ENOSPC << replace;
            QTest::addRow("%s: no record lock", how) << int(SYS_fcntl) << 0u << ENOLCK << replace;
            QTest::addRow("%s: no descriptor", how)
                << int(SYS_openat) << unsigned(O_RDWR) << EMFILE << replace;
        }
        row("replace: no renaming", int(SYS_renameat), 0u, EIO, true);
    }

    void failedReasonsStay() {
        QFETCH(int, call);
        QFETCH(uint, flags);
        QFETCH(int, reason);
        QFETCH(bool, replace);
        const SegmentDirectory directory;
        passesWithRefused({{call, flags, reason}}, [&] {
            const FileDescriptor object = create(directory, replace);
            return !object.isOpen() && errno == reason ? 0 : 1;
        });
        QCOMPARE(directory.names(), QStringList());
    }

    void renamingFails() {
        const SegmentDirectory directory;
        passesWithRefused({{SYS_openat, unnamedFlag, EOPNOTSUPP}, {SYS_renameat2, 0, EINVAL}}, [&] {
            const FileDescriptor object = create(directory);
            return !object.isOpen() && errno == EINVAL ? 0 : 1;
        });
        QCOMPARE(directory.names(), QStringList());
    }

    /// Refusing only calls that have all the flags shows that this one has them.
    void openedWithEveryGuard() {
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile("segment", QByteArray(int(size), 'x')));
        for (const bool isWritable : {false, true}) {
            constexpr unsigned guards = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
            passesWithRefused({{SYS_openat, guards, EIO}}, [&] {
                const FileDescriptor object = openSegmentObject(directory.file("segment"), isWritable);
                return !object.isOpen() && errno == EIO ? 0 : 1;
            });
        }
    }

    void openFails_data() {
        const auto row = testColumns<int, int>("call", "reason");
        row("interrupted without end", int(SYS_openat), EINTR);
        row("no record lock", int(SYS_fcntl), ENOLCK);
    }

    void openFails() {
        QFETCH(int, call);
        QFETCH(int, reason);
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile("segment", "x"));
        passesWithRefused({{call, 0, reason}}, [&] {
            const FileDescriptor object = openSegmentObject(directory.file("segment"), true);
            return !object.isOpen() && errno == (reason == EINTR ? EAGAIN : reason) ? 0 : 1;
        });
    }

    void rightsThatCanNotBeNarrowed() {
        const SegmentDirectory directory;
        QVERIFY(directory.makeFile("segment", "x"));
        QCOMPARE(chmod(directory.file("segment").constData(), 0644), 0);
        passesWithRefused({{SYS_fchmod, 0, EPERM}}, [&] {
            const FileDescriptor object = openSegmentObject(directory.file("segment"), true);
            return !object.isOpen() && errno == EPERM ? 0 : 1;
        });
    }

    void temporaryNameIsFresh() {
        const SegmentDirectory directory;
        ChildProcess child([&] {
            const QByteArray taken = ".qzSegment-" + QByteArray::number(getpid()) + "-0";
            if (!directory.makeFile(taken.constData(), "another's"))
                return 1;
            const FileDescriptor object = create(directory, true);
            if (!object.isOpen() || directory.bytes(taken.constData()) != "another's")
                return 2;
            return directory.names().size() == 2 ? 0 : 3;
        });
        QCOMPARE(child.result(), 0);
    }

    void fileSizeLimit() {
        QVERIFY(isWithinFileSizeLimit(std::numeric_limits<qint64>::max()));
        ChildProcess child([] {
            const struct rlimit small{100, 100};
            setrlimit(RLIMIT_FSIZE, &small);
            return isWithinFileSizeLimit(100) && !isWithinFileSizeLimit(101) ? 0 : 1;
        });
        QCOMPARE(child.result(), 0);
    }

    void sizeOfNothing() { QCOMPARE(objectSize(-1), qint64(-1)); }
};

QTEST_APPLESS_MAIN(TestSegmentObject)
#include "test_segmentObject.moc"
