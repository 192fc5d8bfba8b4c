// What an outside program gets of a list: qzgpuinfo::Reader fills a qzgpuinfo::Snapshot.
#include <cmath>
#include <limits>

#include <QTest>

#include "SegmentDirectory.h"
#include "ValidBlock.h"
#include "qzgpuinfo/Reader.h"
#include "tests/unit/testRows.h"

using qzgpuinfo::Gpu;
using qzgpuinfo::GpuKind;
using qzgpuinfo::Reader;
using qzgpuinfo::SegmentResult;
using qzgpuinfo::Snapshot;

Q_DECLARE_METATYPE(GpuKind)

namespace {

/// A record in which each member has a value of its own.
GpuDevice fullRecord() {
    GpuDevice gpu = gpuNamed("RTX");
    gpu.gpuType = GpuType_Cuda;
    gpu.deviceIndex = 7;
    gpu.usagePercent = 1;
    gpu.temperature = 2;
    gpu.memTotalMb = 3;
    gpu.memUsedMb = 4;
    gpu.memFreeMb = 5;
    gpu.speedGps = 6.5F;
    return gpu;
}

} // namespace

class TestReader : public QObject {
    Q_OBJECT

  private slots:
    void init() { QVERIFY(directory.path() != nullptr); }
    void cleanup() { QFile::remove(QString::fromUtf8(directory.file(segmentKey))); }

    void path() {
        QCOMPARE(Reader("/folder").path(), std::string("/folder/qzGpuInfo_v2"));
        QCOMPARE(Reader().path(), std::string("/dev/shm/qzGpuInfo_v2"));
    }

    void onlyTheOwnersSegment() {
        QVERIFY(write(validBlock()));
        Snapshot snapshot;
        QCOMPARE(Reader(directory.path(), geteuid()).read(snapshot), SegmentResult::Ok);
        QCOMPARE(Reader(directory.path(), geteuid() + 1).read(snapshot), SegmentResult::PermissionDenied);
    }

    void allInTheGlobalOrder() {
        const Snapshot snapshot = readBlock(validBlock());
        QCOMPARE(snapshot.gpuCount(), 3);
        QCOMPARE(snapshot.gpus[0].name, std::string("cuda"));
        QCOMPARE(snapshot.gpus[1].name, std::string("amd"));
        QCOMPARE(snapshot.gpus[2].name, std::string("metal"));
        QCOMPARE(snapshot.summary.name, std::string("Summary"));
        QVERIFY(snapshot.opened);
        QVERIFY(snapshot.publishedAt > 0.0);
    }

    void refusesAnIndexOutOfRange() {
        const Snapshot snapshot = readBlock(validBlock());
        for (const int index : {-1, 3, 4, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()})
            QVERIFY2(snapshot.gpu(index) == nullptr, qPrintable(QString::number(index)));
        QCOMPARE(snapshot.gpu(0), &snapshot.gpus[0]);
        QCOMPARE(snapshot.gpu(2), &snapshot.gpus[2]);
        QVERIFY(Snapshot{}.gpu(0) == nullptr);
    }

    void figures_data() {
        QTest::addColumn<QByteArray>(
            "markers"); // those that are set: u(sage) t(emperature) T(otal) m(emory) s(peed)
        QTest::addColumn<bool>("answering");

        QTest::newRow("none") << QByteArray() << false;
        QTest::newRow("usage") << QByteArray("u") << true;
        QTest::newRow("temperature") << QByteArray("t") << true;
        QTest::newRow("memory size") << QByteArray("T") << false;
        QTest::newRow("memory in use") << QByteArray("m") << true;
        QTest::newRow("score") << QByteArray("s") << false;
        QTest::newRow("all") << QByteArray("utTms") << true;
    }
    void figures() {
        QFETCH(QByteArray, markers);
        QFETCH(bool, answering);
        GpuInfoBlock block = validBlock();
        GpuDevice& record = block.cudaGpus[0] = fullRecord();
        record.hasUsage = markers.contains('u');
        record.hasTemperature = markers.contains('t');
        record.hasMemTotal = markers.contains('T');
        record.hasMemUsage = markers.contains('m');
        record.hasSpeed = markers.contains('s');

        const Gpu gpu = readBlock(block).gpus.at(0);
        const auto valueIf = [&markers](char marker, int value) {
            return markers.contains(marker) ? std::optional<std::int32_t>(value) : std::nullopt;
        };
        QVERIFY(gpu.usagePercent == valueIf('u', 1));
        QVERIFY(gpu.temperatureCelsius == valueIf('t', 2));
        QVERIFY(gpu.memoryTotalMiB == valueIf('T', 3));
        QVERIFY(gpu.memoryUsedMiB == valueIf('m', 4));
        QVERIFY(gpu.memoryFreeMiB == valueIf('m', 5));
        QVERIFY(gpu.speedGps == (markers.contains('s') ? std::optional(6.5F) : std::nullopt));
        QCOMPARE(gpu.answering, answering);
        QVERIFY(gpu.listed);
        QCOMPARE(gpu.deviceIndex, 7);
    }

    void aGpuThatIsNotListedHasNoFigure() {
        GpuInfoBlock block = validBlock();
        block.cudaGpus[0] = fullRecord();
        block.cudaGpus[0].hasUsage = 1;
        block.cudaGpus[0].statsValid = 0;
        const Gpu gpu = readBlock(block).gpus.at(0);
        QVERIFY(!gpu.listed && !gpu.answering && !gpu.usagePercent);
    }

    void aScoreThatIsNoNumber() {
        for (const float score :
             {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
            GpuInfoBlock block = validBlock();
            block.cudaGpus[0].hasSpeed = 1;
            block.cudaGpus[0].speedGps = score;
            QVERIFY(!readBlock(block).gpus.at(0).speedGps);
        }
    }

    void abilities() {
        GpuInfoBlock block = validBlock();
        block.cudaGpus[0].clDevice = 9;
        block.amdGpus[0].optixCapable = 1;
        block.metalGpus[0].amdRayTracing = 1;
        QString found;
        for (const Gpu& gpu : readBlock(block).gpus)
            found +=
                QStringLiteral("%1%2%3 ").arg(gpu.openclMatched).arg(gpu.optixCapable).arg(gpu.amdRayTracing);
        QCOMPARE(found, QStringLiteral("100 010 001 "));
    }

    void kinds_data() {
        const auto row = testColumns<int, GpuKind, QByteArray>("code", "kind", "text");

        row("other", 0, GpuKind::Other, "Other");
        row("NVIDIA", 1, GpuKind::Cuda, "Cuda");
        row("AMD", 2, GpuKind::Amd, "AMD");
        row("Apple", 3, GpuKind::Metal, "Metal");
        row("summary", 4, GpuKind::Summary, "-");
        row("one more", 5, GpuKind::Unknown, "unknown");
        row("the last", 255, GpuKind::Unknown, "unknown");
    }
    void kinds() {
        QFETCH(int, code);
        GpuInfoBlock block = validBlock();
        block.cudaGpus[0].gpuType = static_cast<std::uint8_t>(code);
        const GpuKind kind = readBlock(block).gpus.at(0).kind;
        QTEST(kind, "kind");
        QTEST(QByteArray(kindText(kind)), "text");
    }

    void namesAreUtf8_data() {
        const auto row = testColumns<QByteArray, QByteArray>("bytes", "name");

        const QByteArray replaced("\xef\xbf\xbd");
        row("empty", QByteArray(), QByteArray());
        row("two bytes each", QByteArray("\xc3\xa4\xc3\xb6"), QByteArray("\xc3\xa4\xc3\xb6"));
        row("Latin-1", QByteArray("GT\xdc 1"), "GT" + replaced + " 1");
        row("cut short", QByteArray("x\xe2\x82"), "x" + replaced);
        row("63 bytes, none valid", QByteArray(63, '\xff'), replaced.repeated(63));
        row("no end", QByteArray(64, 'y'), QByteArray(63, 'y'));
    }
    void namesAreUtf8() {
        QFETCH(QByteArray, bytes);
        GpuInfoBlock block = validBlock();
        std::copy(bytes.cbegin(), bytes.cend(), block.cudaGpus[0].name);
        block.cudaGpus[0].name[std::min(bytes.size(), 63)] = bytes.size() < 64 ? '\0' : 'y';
        QTEST(QByteArray::fromStdString(readBlock(block).gpus.at(0).name), "name");
    }

    void nothingIsLeftOfAnEarlierReading() {
        Snapshot snapshot = readBlock(validBlock());
        QFile::remove(QString::fromUtf8(directory.file(segmentKey)));
        QCOMPARE(Reader(directory.path()).read(snapshot), SegmentResult::Missing);
        QVERIFY(snapshot.gpus.empty() && snapshot.summary.name.empty());
        QVERIFY(!snapshot.opened && snapshot.publishedAt == 0.0);

        GpuInfoBlock notReady = validBlock();
        notReady.dataReady = 0;
        QVERIFY(write(notReady));
        QCOMPARE(Reader(directory.path()).read(snapshot), SegmentResult::NotReady);
        QVERIFY(snapshot.gpus.empty() && snapshot.opened);
    }

  private:
    SegmentDirectory directory;

    bool write(const GpuInfoBlock& block) const {
        return directory.makeFile(segmentKey,
                                  QByteArray(reinterpret_cast<const char*>(&block), sizeof block));
    }

    Snapshot readBlock(const GpuInfoBlock& block) const {
        Snapshot snapshot;
        if (!write(block) || Reader(directory.path()).read(snapshot) != SegmentResult::Ok)
            qFatal("the block could not be written and read");
        return snapshot;
    }
};

QTEST_APPLESS_MAIN(TestReader)
#include "test_Reader.moc"
