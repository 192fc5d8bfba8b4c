// A segment that is replaced while its reader waits for the lock: once, by a restarted companion, or
// endlessly.
#include <cstdio>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <QTemporaryDir>
#include <QTest>

#include "reader/GpuSegmentReader.h"
#include "tests/unit/testRows.h"

namespace {

int replacementsLeft = 0;
int locksTaken = 0;
std::string segmentPath;

void makeSegment(const std::string& path) {
    GpuInfoBlock block;
    block.dataReady = 1;
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    QCOMPARE(write(file, &block, sizeof block), static_cast<ssize_t>(sizeof block));
    close(file);
}

} // namespace

// Before the C library's: another object takes the name as soon as the reader has the lock.
extern "C" int flockAndReplace(int descriptor, int operation) __asm__("flock");
extern "C" int flockAndReplace(int descriptor, int operation) {
    static auto* const next = reinterpret_cast<decltype(&flockAndReplace)>(dlsym(RTLD_NEXT, "flock"));
    const int result = next(descriptor, operation);
    if (result == 0 && (operation & LOCK_EX) != 0) {
        ++locksTaken;
        if (replacementsLeft > 0) {
            --replacementsLeft;
            makeSegment(segmentPath + "_next");
            std::rename((segmentPath + "_next").c_str(), segmentPath.c_str());
        }
    }
    return result;
}

class TestGpuSegmentReader_replaced : public QObject {
    Q_OBJECT

  private slots:
    void following_data() {
        const auto row = testColumns<int, bool, int>("replacements", "found", "attempts");
        row("never", 0, true, 1);
        row("once", 1, true, 2);
        row("as often as it follows", 3, true, 4);
        row("once more", 4, false, 4);
        row("again and again", 50, false, 4);
    }
    void following() {
        QFETCH(int, replacements);
        QFETCH(bool, found);
        const QTemporaryDir folder;
        const std::string directory = folder.path().toStdString();
        segmentPath = directory + "/" + segmentKey;
        makeSegment(segmentPath);
        replacementsLeft = replacements;
        locksTaken = 0;
        GpuSnapshot snapshot;
        QCOMPARE(GpuSegmentReader(directory).read(snapshot),
                 found ? SegmentResult::Ok : SegmentResult::Missing);
        QTEST(locksTaken, "attempts");
    }
};

QTEST_APPLESS_MAIN(TestGpuSegmentReader_replaced)
#include "test_GpuSegmentReader_replaced.moc"
