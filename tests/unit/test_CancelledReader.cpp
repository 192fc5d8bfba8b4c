// A reading program's thread may be cancelled at any system call.
#include <chrono>

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <unistd.h>

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include "reader/GpuSegmentReader.h"

namespace {

int openDescriptors() {
    return static_cast<int>(QDir(QStringLiteral("/proc/self/fd"))
                                .entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System)
                                .size());
}

void* readForLong(void* reader) {
    GpuSnapshot snapshot;
    static_cast<const GpuSegmentReader*>(reader)->read(snapshot, std::chrono::minutes{10});
    return nullptr;
}

} // namespace

class TestCancelledReader : public QObject {
    Q_OBJECT

  private slots:
    void aThreadThatWaitsForTheLock() {
        const QTemporaryDir folder;
        GpuSegmentReader reader(folder.path().toStdString());
        const int holder = ::open(reader.path().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        QCOMPARE(::ftruncate(holder, sizeof(GpuInfoBlock)), 0);
        QCOMPARE(::flock(holder, LOCK_EX), 0);
        const int before = openDescriptors();

        pthread_t thread{};
        QCOMPARE(::pthread_create(&thread, nullptr, readForLong, &reader), 0);
        QTRY_VERIFY(openDescriptors() > before);
        QCOMPARE(::pthread_cancel(thread), 0);
        void* result = nullptr;
        QCOMPARE(::pthread_join(thread, &result), 0);
        QCOMPARE(result, PTHREAD_CANCELED);
        QCOMPARE(openDescriptors(), before);
        ::close(holder);
    }
};

QTEST_GUILESS_MAIN(TestCancelledReader)
#include "test_CancelledReader.moc"
