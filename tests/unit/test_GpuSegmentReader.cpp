// The reader's library alone: whose segment it reads, how it waits for one, and one that changes during a
// read.
#include <atomic>
#include <cerrno>
#include <cstring>
#include <optional>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include "ChildProcess.h"
#include "RefusedCall.h"
#include "ValidBlock.h"
#include "reader/GpuSegmentReader.h"
#include "tests/unit/testRows.h"

using namespace std::chrono_literals;

Q_DECLARE_METATYPE(SegmentResult)

namespace {

int openDescriptors() {
    return static_cast<int>(QDir(QStringLiteral("/proc/self/fd"))
                                .entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System)
                                .size());
}

/// This test's own segment file.
class SegmentFile {
  public:
    SegmentFile() { write(&initial, sizeof initial); }

    std::string directory() const { return folder.path().toStdString(); }
    std::string path() const { return directory() + "/" + segmentKey; }

    void write(const void* data, std::size_t size) const {
        const int file = open(O_RDWR | O_CREAT | O_TRUNC);
        QCOMPARE(::write(file, data, size), static_cast<ssize_t>(size));
        ::close(file);
    }

    int open(int flags = O_RDWR) const { return ::open(path().c_str(), flags | O_CLOEXEC, 0600); }

  private:
    QTemporaryDir folder;
    GpuInfoBlock initial = validBlock();
};

} // namespace

class TestGpuSegmentReader : public QObject {
    Q_OBJECT

  private slots:
    void pathsAndKeys() {
        QCOMPARE(GpuSegmentReader().path(), std::string("/dev/shm/qzGpuInfo_v2"));
        QCOMPARE(GpuSegmentReader("/a", "b").path(), std::string("/a/b"));
    }

    void everyResultHasATextOfItsOwn() {
        QSet<QString> texts;
        for (int i = 0; i <= static_cast<int>(SegmentResult::IoError); ++i)
            texts.insert(QString::fromUtf8(segmentResultText(static_cast<SegmentResult>(i))));
        QCOMPARE(texts.size(), 8);
        QVERIFY(!texts.contains(QString()));
        QVERIFY(!texts.contains(QStringLiteral("unknown result")));
    }

    void readsAndLeavesNothingBehind() {
        const SegmentFile file;
        const GpuSegmentReader reader(file.directory());
        const int before = openDescriptors();
        for (int i = 0; i < 100; ++i) {
            GpuSnapshot snapshot;
            QCOMPARE(reader.read(snapshot), SegmentResult::Ok);
            QVERIFY(snapshot.opened);
            QVERIFY(!snapshot.writerAttached);
            QVERIFY(snapshot.ageSeconds >= 0.0 && snapshot.ageSeconds < 60.0);
            QCOMPARE(snapshot.systemError, 0);
        }
        QCOMPARE(openDescriptors(), before);
        const int other = file.open();
        QCOMPARE(::flock(other, LOCK_EX | LOCK_NB), 0);
        ::close(other);
    }

    void onlyAnObjectOfItsUserAlone_data() {
        const auto row = testColumns<uint, SegmentResult>("mode", "result");
        row("as a companion makes it", 0600U, SegmentResult::Ok);
        for (const uint mode : {0640U, 0660U, 0604U, 0606U, 0400U, 0700U, 01600U, 04600U})
            row(qPrintable(QString::number(mode, 8)), mode, SegmentResult::PermissionDenied);
    }
    void onlyAnObjectOfItsUserAlone() {
        QFETCH(uint, mode);
        const SegmentFile file;
        QCOMPARE(::chmod(file.path().c_str(), mode), 0);
        GpuSnapshot snapshot;
        QTEST(GpuSegmentReader(file.directory()).read(snapshot), "result");
        QCOMPARE(snapshot.opened, mode == 0600);
    }

    void onlyTheSegmentOfTheExpectedUser() {
        const SegmentFile file;
        GpuSnapshot snapshot;
        const auto readFor = [&](std::optional<uid_t> owner) {
            return GpuSegmentReader(file.directory(), segmentKey, owner).read(snapshot);
        };
        QCOMPARE(readFor(::geteuid()), SegmentResult::Ok);
        QCOMPARE(readFor(::geteuid() + 1), SegmentResult::PermissionDenied);
        QVERIFY(!snapshot.opened);
    }

    void rootReadsForAnotherUser() {
        constexpr uid_t other = 1;
        const SegmentFile file;
        if (::chown(file.path().c_str(), other, static_cast<gid_t>(-1)) != 0)
            QSKIP("SKIPPED: only root can give a file to another user");
        GpuSnapshot snapshot;
        QCOMPARE(GpuSegmentReader(file.directory(), segmentKey, other).read(snapshot), SegmentResult::Ok);
        for (const std::optional<uid_t> owner : {std::optional<uid_t>(), std::optional<uid_t>(0)})
            QCOMPARE(GpuSegmentReader(file.directory(), segmentKey, owner).read(snapshot),
                     SegmentResult::PermissionDenied);
    }

    void aSnapshotIsFilledAfresh() {
        const SegmentFile file;
        GpuSnapshot snapshot;
        QCOMPARE(GpuSegmentReader(file.directory()).read(snapshot), SegmentResult::Ok);
        QCOMPARE(GpuSegmentReader(file.directory(), "none").read(snapshot), SegmentResult::Missing);
        QVERIFY(!snapshot.opened);
        QCOMPARE(snapshot.gpuCount(), 0);
    }

    void theLockIsWaitedForNoLongerThanAllowed() {
        const SegmentFile file;
        const int holder = file.open();
        QCOMPARE(::flock(holder, LOCK_EX), 0);
        GpuSnapshot snapshot;
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(GpuSegmentReader(file.directory()).read(snapshot, 200ms), SegmentResult::Locked);
        QVERIFY2(timer.elapsed() >= 200 && timer.elapsed() < 1000,
                 qPrintable(QString::number(timer.elapsed())));
        QVERIFY(snapshot.opened);

        for (const auto wait : {0ms, -5ms}) {
            timer.restart();
            QCOMPARE(GpuSegmentReader(file.directory()).read(snapshot, wait), SegmentResult::Locked);
            QVERIFY(timer.elapsed() < 100);
        }
        ::close(holder);
        QCOMPARE(GpuSegmentReader(file.directory()).read(snapshot, 0ms), SegmentResult::Ok);
    }

    void anyWaitIsHonoured_data() {
        const auto row = testColumns<qint64>("wait");
        row("the longest", qint64{std::chrono::milliseconds::max().count()});
        row("beyond the clock's end", qint64{std::chrono::milliseconds::max().count() / 1000});
        row("a century", qint64{std::chrono::milliseconds{24h * 36525}.count()});
    }
    void anyWaitIsHonoured() {
        QFETCH(qint64, wait);
        const SegmentFile file;
        const int holder = file.open();
        QCOMPARE(::flock(holder, LOCK_EX), 0);
        std::thread releasing([&] {
            std::this_thread::sleep_for(50ms);
            ::close(holder);
        });
        GpuSnapshot snapshot;
        const SegmentResult result =
            GpuSegmentReader(file.directory()).read(snapshot, std::chrono::milliseconds{wait});
        releasing.join();
        QCOMPARE(result, SegmentResult::Ok);
    }

    /// A shared lock keeps the reader out as well, since it requests an exclusive one.
    void aSharedLockIsALock() {
        const SegmentFile file;
        const int holder = file.open();
        QCOMPARE(::flock(holder, LOCK_SH), 0);
        GpuSnapshot snapshot;
        QCOMPARE(GpuSegmentReader(file.directory()).read(snapshot, 0ms), SegmentResult::Locked);
        ::close(holder);
    }

    void aSegmentReplacedDuringTheWaitIsReadFromItsSuccessor() {
        const SegmentFile file;
        const int holder = file.open();
        QCOMPARE(::flock(holder, LOCK_EX), 0);
        std::thread replacing([&] {
            std::this_thread::sleep_for(100ms);
            ::unlink(file.path().c_str());
            GpuInfoBlock successor = validBlock();
            setGpuName(successor.cudaGpus[0], "successor");
            file.write(&successor, sizeof successor);
            ::close(holder);
        });
        GpuSnapshot snapshot;
        const SegmentResult result = GpuSegmentReader(file.directory()).read(snapshot);
        replacing.join();
        QCOMPARE(result, SegmentResult::Ok);
        QCOMPARE(snapshot.gpu(0).name, "successor");
    }

    void aSegmentRemovedDuringTheWaitIsMissing() {
        const SegmentFile file;
        const int holder = file.open();
        QCOMPARE(::flock(holder, LOCK_EX), 0);
        std::thread removing([&] {
            std::this_thread::sleep_for(100ms);
            ::unlink(file.path().c_str());
            ::close(holder);
        });
        GpuSnapshot snapshot;
        const SegmentResult result = GpuSegmentReader(file.directory()).read(snapshot);
        removing.join();
        QCOMPARE(result, SegmentResult::Missing);
    }

    /// No read goes through a mapping: an object that shrinks gives a result, never a SIGBUS.
    void aSegmentThatShrinksAndGrows() {
        const SegmentFile file;
        std::atomic<bool> done{false};
        std::thread changing([&] {
            const int object = file.open();
            const GpuInfoBlock block = validBlock();
            while (!done) {
                if (::ftruncate(object, 100) != 0 || ::pwrite(object, &block, sizeof block, 0) < 0)
                    break;
            }
            ::close(object);
        });
        int answered = 0;
        for (int i = 0; i < 3000; ++i) {
            GpuSnapshot snapshot;
            const SegmentResult result = GpuSegmentReader(file.directory()).read(snapshot);
            answered += result == SegmentResult::Ok || result == SegmentResult::TooSmall ||
                        result == SegmentResult::NotReady || result == SegmentResult::Foreign;
        }
        done = true;
        changing.join();
        QCOMPARE(answered, 3000);
    }

    void whatTheSystemRefuses_data() {
        const auto row = testColumns<int, uint, uint>("call", "flags", "argument");
        row("the lock", int(SYS_flock), 0u, 1u);
        row("reading", int(SYS_pread64), 0u, 2u);
        row("what the object is", int(SYS_fstat), 0u, 1u);
    }

    void whatTheSystemRefuses() {
        QFETCH(int, call);
        QFETCH(uint, flags);
        QFETCH(uint, argument);
        const SegmentFile file;
        passesWithRefused({{call, flags, EIO, argument}}, [&] {
            GpuSnapshot snapshot;
            const SegmentResult result = GpuSegmentReader(file.directory()).read(snapshot);
            return result == SegmentResult::IoError && snapshot.systemError == EIO ? 0 : 1;
        });
    }

    void noDescriptorToBeHad() {
        const SegmentFile file;
        rlimit before{};
        QCOMPARE(::getrlimit(RLIMIT_NOFILE, &before), 0);
        const rlimit none{0, before.rlim_max};
        QCOMPARE(::setrlimit(RLIMIT_NOFILE, &none), 0);
        GpuSnapshot snapshot;
        const SegmentResult result = GpuSegmentReader(file.directory()).read(snapshot);
        QCOMPARE(::setrlimit(RLIMIT_NOFILE, &before), 0);
        QCOMPARE(result, SegmentResult::IoError);
        QCOMPARE(snapshot.systemError, EMFILE);
    }
};

QTEST_GUILESS_MAIN(TestGpuSegmentReader)
#include "test_GpuSegmentReader.moc"
