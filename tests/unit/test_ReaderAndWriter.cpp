// The reader on segments of the program's own writer: both sides use the same lock, bytes and
// instant.
#include <atomic>
#include <cstring>
#include <memory>
#include <thread>
#include <tuple>

#include <fcntl.h>
#include <sys/stat.h>

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>

#include "reader/GpuSegmentReader.h"
#include "support/qzSharedMemory.h"

using namespace std::chrono_literals;

namespace {

/// Every record and count of the block carries the same number, so that a torn copy shows.
GpuInfoBlock uniformBlock(std::int32_t number) {
    GpuInfoBlock block;
    block.dataReady = 1;
    block.cudaCount = block.amdCount = block.metalCount = GpuInfoBlock::capacity;
    for (GpuDevice* gpus : {block.cudaGpus, block.amdGpus, block.metalGpus})
        for (int i = 0; i < GpuInfoBlock::capacity; ++i) {
            gpus[i].statsValid = gpus[i].hasUsage = 1;
            gpus[i].usagePercent = number;
        }
    block.summary.statsValid = block.summary.hasUsage = 1;
    block.summary.usagePercent = number;
    return block;
}

bool isTorn(const GpuSnapshot& snapshot) {
    for (int i = 0; i < snapshot.gpuCount(); ++i)
        if (snapshot.gpu(i).usagePercent != snapshot.block.summary.usagePercent)
            return true;
    return snapshot.gpuCount() != 3 * GpuInfoBlock::capacity;
}

} // namespace

class TestReaderAndWriter : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> folder;
    std::unique_ptr<qzSharedMemory> writer;

    SegmentResult read(GpuSnapshot& snapshot, std::chrono::milliseconds wait = 1000ms) const {
        return GpuSegmentReader(folder->path().toStdString()).read(snapshot, wait);
    }

    void publish(const GpuInfoBlock& block) const {
        QVERIFY(writer->lock());
        QVERIFY(writer->write(&block, publishedSize));
        QVERIFY(writer->unlock());
    }

  private slots:
    void init() {
        folder = std::make_unique<QTemporaryDir>();
        writer = std::make_unique<qzSharedMemory>(_qzString8_allSize<250>(segmentKey), 7,
                                                  folder->path().toUtf8().constData());
        QVERIFY(writer->create(sizeof(GpuInfoBlock), true, false));
    }
    void cleanup() { writer.reset(); }

    void createdIsNotReady() {
        GpuSnapshot snapshot;
        QCOMPARE(read(snapshot), SegmentResult::NotReady);
        QVERIFY(snapshot.writerAttached);
    }

    void publishedIsRead() {
        GpuInfoBlock block = uniformBlock(42);
        setGpuName(block.amdGpus[2], "Navi");
        publish(block);
        GpuSnapshot snapshot;
        QCOMPARE(read(snapshot), SegmentResult::Ok);
        QVERIFY(snapshot.writerAttached);
        QVERIFY(snapshot.ageSeconds < 10.0);
        QCOMPARE(snapshot.gpu(18).name, "Navi");
        QVERIFY(!isTorn(snapshot));
    }

    void aPublishingMakesTheDataYoungAgain() {
        const QByteArray path = (folder->path() + "/" + segmentKey).toUtf8();
        const timespec longAgo[] = {{1000, 0}, {1000, 0}};
        publish(uniformBlock(1));
        QCOMPARE(::utimensat(AT_FDCWD, path.constData(), longAgo, 0), 0);
        GpuSnapshot snapshot;
        QCOMPARE(read(snapshot), SegmentResult::Ok);
        QCOMPARE(snapshot.publishedAt, 1000.0);
        QVERIFY(snapshot.ageSeconds > 1e9);
        publish(uniformBlock(2));
        QCOMPARE(read(snapshot), SegmentResult::Ok);
        QVERIFY(snapshot.ageSeconds < 10.0);
    }

    void bothMeanTheSameFlags() {
        GpuSnapshot snapshot;
        publish(uniformBlock(1));
        const auto seen = [&] {
            read(snapshot);
            return std::make_tuple(snapshot.writerAttached, snapshot.published, snapshot.measuring);
        };
        QCOMPARE(seen(), std::make_tuple(true, false, false));
        QVERIFY(writer->mark(SegmentFlag::HasPublished));
        QCOMPARE(seen(), std::make_tuple(true, true, false));
        QVERIFY(writer->mark(SegmentFlag::Measuring));
        QCOMPARE(seen(), std::make_tuple(true, true, true));
    }

    /// Facts from before the wait would call the list of a moment ago unpublished, or an old one young.
    void whatHoldsOnceTheLockIsFree() {
        publish(uniformBlock(1));
        const QByteArray path = (folder->path() + "/" + segmentKey).toUtf8();
        const timespec longAgo[] = {{1000, 0}, {1000, 0}};
        QCOMPARE(::utimensat(AT_FDCWD, path.constData(), longAgo, 0), 0);
        QVERIFY(writer->lock());
        std::thread publishing([&] {
            std::this_thread::sleep_for(100ms);
            const GpuInfoBlock block = uniformBlock(2);
            writer->write(&block, publishedSize);
            writer->mark(SegmentFlag::HasPublished);
            writer->mark(SegmentFlag::Measuring);
            writer->unlock();
        });
        GpuSnapshot snapshot;
        const SegmentResult result = read(snapshot, 60s);
        publishing.join();
        QCOMPARE(result, SegmentResult::Ok);
        QCOMPARE(snapshot.block.summary.usagePercent, 2);
        QVERIFY(snapshot.published && snapshot.measuring);
        QVERIFY(snapshot.ageSeconds < 100.0);
    }

    void aLockedSegmentHasItsFlagsToo() {
        publish(uniformBlock(1));
        QVERIFY(writer->mark(SegmentFlag::HasPublished));
        QVERIFY(writer->lock());
        GpuSnapshot snapshot;
        QCOMPARE(read(snapshot, 0ms), SegmentResult::Locked);
        QVERIFY(snapshot.opened && snapshot.writerAttached && snapshot.published && !snapshot.measuring);
        QVERIFY(snapshot.ageSeconds < 100.0);
    }

    void ahead() {
        publish(uniformBlock(1));
        const QByteArray path = (folder->path() + "/" + segmentKey).toUtf8();
        const timespec tomorrow[2] = {{::time(nullptr) + 86400, 0}, {::time(nullptr) + 86400, 0}};
        QCOMPARE(::utimensat(AT_FDCWD, path.constData(), tomorrow, 0), 0);
        GpuSnapshot snapshot;
        QCOMPARE(read(snapshot), SegmentResult::Ok);
        QCOMPARE(snapshot.ageSeconds, 0.0);
        QVERIFY(snapshot.aheadSeconds > 86000.0 && snapshot.aheadSeconds <= 86400.0);
    }

    void theWritersLockKeepsTheReaderOut() {
        publish(uniformBlock(1));
        QVERIFY(writer->lock());
        GpuSnapshot snapshot;
        QCOMPARE(read(snapshot, 50ms), SegmentResult::Locked);
        QVERIFY(writer->unlock());
        QCOMPARE(read(snapshot, 50ms), SegmentResult::Ok);
    }

    /// A reader never counts as attached: the writer is still the last one, and removes the segment.
    void readingKeepsNothingAlive() {
        publish(uniformBlock(1));
        GpuSnapshot snapshot;
        QCOMPARE(read(snapshot), SegmentResult::Ok);
        writer->detach();
        QCOMPARE(read(snapshot), SegmentResult::Missing);
    }

    void noCopyIsTorn() {
        publish(uniformBlock(0));
        std::atomic<bool> done{false};
        std::atomic<int> published{0};
        std::thread writing([&] {
            for (std::int32_t number = 1; !done; ++number) {
                const GpuInfoBlock block = uniformBlock(number);
                if (writer->lock()) {
                    writer->write(&block, publishedSize);
                    writer->unlock();
                    ++published;
                }
            }
        });
        int torn = 0;
        int readings = 0;
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 1000) {
            GpuSnapshot snapshot;
            if (read(snapshot) == SegmentResult::Ok) {
                ++readings;
                torn += isTorn(snapshot);
            }
        }
        done = true;
        writing.join();
        QCOMPARE(torn, 0);
        QVERIFY2(
            readings > 10 && published > 10,
            qPrintable(QStringLiteral("%1 readings, %2 publishings").arg(readings).arg(published.load())));
    }
};

QTEST_GUILESS_MAIN(TestReaderAndWriter)
#include "test_ReaderAndWriter.moc"
