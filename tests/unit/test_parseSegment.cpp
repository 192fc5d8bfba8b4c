// The reader's result for a block of any bytes.
#include <cstring>
#include <random>

#include <QTest>

#include "ValidBlock.h"
#include "reader/GpuSegmentReader.h"
#include "tests/unit/testRows.h"

Q_DECLARE_METATYPE(SegmentResult)
Q_DECLARE_METATYPE(std::uint8_t GpuDevice::*)

namespace {

void setAllMarkers(GpuDevice& gpu) {
    gpu.hasTemperature = gpu.hasMemTotal = gpu.hasMemUsage = gpu.hasUsage = gpu.hasSpeed = 1;
}

int markerCount(const GpuDevice& gpu) {
    return gpu.hasTemperature + gpu.hasMemTotal + gpu.hasMemUsage + gpu.hasUsage + gpu.hasSpeed;
}

} // namespace

class TestParseSegment : public QObject {
    Q_OBJECT

  private slots:
    void results_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<SegmentResult>("result");

        const auto row = [](const char* name, SegmentResult result, auto change) {
            GpuInfoBlock block = validBlock();
            change(block);
            QTest::newRow(name) << QByteArray(reinterpret_cast<const char*>(&block), sizeof block) << result;
        };
        row("as published", SegmentResult::Ok, [](GpuInfoBlock&) {});
        row("version below", SegmentResult::Foreign, [](GpuInfoBlock& block) { block.blockVersion = 68864; });
        row("version above", SegmentResult::Foreign, [](GpuInfoBlock& block) { block.blockVersion = 68866; });
        row("version 0", SegmentResult::Foreign, [](GpuInfoBlock& block) { block.blockVersion = 0; });
        row("version 0, not ready", SegmentResult::Foreign,
            [](GpuInfoBlock& block) { block.blockVersion = block.dataReady = 0; });
        row("16 of each", SegmentResult::Ok,
            [](GpuInfoBlock& block) { block.cudaCount = block.amdCount = block.metalCount = 16; });
        row("17 NVIDIA", SegmentResult::Foreign, [](GpuInfoBlock& block) { block.cudaCount = 17; });
        row("17 AMD", SegmentResult::Foreign, [](GpuInfoBlock& block) { block.amdCount = 17; });
        row("17 Apple", SegmentResult::Foreign, [](GpuInfoBlock& block) { block.metalCount = 17; });
        row("the highest count", SegmentResult::Foreign,
            [](GpuInfoBlock& block) { block.cudaCount = 0xFFFFFFFF; });
        row("the highest count behind onlyCuda", SegmentResult::Foreign, [](GpuInfoBlock& block) {
            block.onlyCuda = 1;
            block.amdCount = 0xFFFFFFFF;
        });
        row("17 and not ready", SegmentResult::Foreign, [](GpuInfoBlock& block) {
            block.cudaCount = 17;
            block.dataReady = 0;
        });
        row("not ready", SegmentResult::NotReady, [](GpuInfoBlock& block) { block.dataReady = 0; });
        QTest::newRow("all zero") << QByteArray(7472, '\0') << SegmentResult::NotReady;
        QTest::newRow("nothing") << QByteArray() << SegmentResult::TooSmall;
        QTest::newRow("7471 bytes") << QByteArray(7471, '\0') << SegmentResult::TooSmall;
        QTest::newRow("larger") << QByteArray(10000, '\0') << SegmentResult::NotReady;
        QTest::newRow("all ones") << QByteArray(7472, '\xff') << SegmentResult::Foreign;
    }
    void results() {
        QFETCH(QByteArray, bytes);
        GpuInfoBlock block;
        QTEST(parseSegment(bytes.constData(), static_cast<std::size_t>(bytes.size()), block), "result");
    }

    void aBlockIsLeftAloneUnlessItWasRead() {
        GpuInfoBlock foreign = validBlock();
        foreign.blockVersion = 1;
        GpuInfoBlock block = validBlock();
        block.cudaCount = 5;
        parseSegment(&foreign, sizeof foreign, block);
        QCOMPARE(block.cudaCount, 5U);
    }

    void globalOrder() {
        GpuSnapshot snapshot;
        const GpuInfoBlock block = validBlock();
        QCOMPARE(parseSegment(&block, sizeof block, snapshot.block), SegmentResult::Ok);
        QCOMPARE(snapshot.gpuCount(), 3);
        QCOMPARE(snapshot.gpu(0).name, "cuda");
        QCOMPARE(snapshot.gpu(1).name, "amd");
        QCOMPARE(snapshot.gpu(2).name, "metal");
    }

    void namesEnd() {
        GpuInfoBlock block = validBlock();
        for (GpuDevice* gpu : {&block.cudaGpus[15], &block.amdGpus[0], &block.metalGpus[0], &block.summary})
            std::memset(gpu->name, 'x', sizeof gpu->name);
        GpuInfoBlock read;
        parseSegment(&block, sizeof block, read);
        for (const GpuDevice* gpu : {&read.cudaGpus[15], &read.amdGpus[0], &read.metalGpus[0], &read.summary})
            QCOMPARE(::strnlen(gpu->name, sizeof gpu->name), std::size_t{63});
    }

    void noFigureOfAnEarlierCycle() {
        GpuInfoBlock block = validBlock();
        setAllMarkers(block.cudaGpus[0]);
        setAllMarkers(block.amdGpus[0]);
        block.cudaGpus[0].statsValid = 0;
        GpuInfoBlock read;
        parseSegment(&block, sizeof block, read);
        QCOMPARE(markerCount(read.cudaGpus[0]), 0);
        QCOMPARE(markerCount(read.amdGpus[0]), 5);
    }

    void summaryMarkersThatNoGpuHas() {
        GpuInfoBlock block = validBlock();
        setAllMarkers(block.summary);
        setAllMarkers(block.cudaGpus[1]); // beyond the count
        block.amdGpus[0].hasMemTotal = 1;
        GpuInfoBlock read;
        parseSegment(&block, sizeof block, read);
        QCOMPARE(markerCount(read.summary), 1);
        QCOMPARE(read.summary.hasMemTotal, std::uint8_t{1});

        block.amdGpus[0].hasMemTotal = 0x80; // any value but 0 is set
        parseSegment(&block, sizeof block, read);
        QCOMPARE(markerCount(read.summary), 1);

        setAllMarkers(block.metalGpus[0]);
        parseSegment(&block, sizeof block, read);
        QCOMPARE(markerCount(read.summary), 5);

        block.metalGpus[0].statsValid = 0; // not listed
        parseSegment(&block, sizeof block, read);
        QCOMPARE(markerCount(read.summary), 1);
    }

    void theBytesBehindTheLastFieldMeanNothing() {
        GpuInfoBlock block = validBlock();
        std::memset(block.filler7469, 0xFF, sizeof block.filler7469);
        GpuInfoBlock read;
        parseSegment(&block, sizeof block, read);
        QCOMPARE(read.filler7469[0], std::uint8_t{0});
        QCOMPARE(read.filler7469[2], std::uint8_t{0});
    }

    void damagedBlocks() {
        std::mt19937 random(4711);
        for (int round = 0; round < 20000; ++round) {
            GpuInfoBlock damaged = validBlock();
            for (int i = 0; i < 8; ++i)
                reinterpret_cast<unsigned char*>(&damaged)[random() % (i < 2 ? 24 : sizeof damaged)] =
                    static_cast<unsigned char>(random());
            GpuSnapshot snapshot;
            if (parseSegment(&damaged, random() % 16 == 0 ? random() % sizeof damaged : sizeof damaged,
                             snapshot.block) != SegmentResult::Ok)
                continue;
            QVERIFY(snapshot.gpuCount() >= 0 && snapshot.gpuCount() <= 48);
            for (int i = 0; i < snapshot.gpuCount(); ++i)
                QVERIFY(::strnlen(snapshot.gpu(i).name, 64) < 64);
        }
    }

    void answering_data() {
        const auto row = testColumns<std::uint8_t GpuDevice::*, bool>("marker", "answers");
        row("load", &GpuDevice::hasUsage, true);
        row("temperature", &GpuDevice::hasTemperature, true);
        row("used memory", &GpuDevice::hasMemUsage, true);
        row("total memory", &GpuDevice::hasMemTotal, false);
        row("score", &GpuDevice::hasSpeed, false);
    }
    void answering() {
        QFETCH(std::uint8_t GpuDevice::*, marker);
        QFETCH(bool, answers);
        GpuDevice gpu = gpuNamed("one");
        QVERIFY(!isAnswering(gpu));
        gpu.*marker = 1;
        QCOMPARE(isAnswering(gpu), answers);
        gpu.statsValid = 0;
        QVERIFY(!isAnswering(gpu)); // the marker is an earlier cycle's
    }
};

QTEST_APPLESS_MAIN(TestParseSegment)
#include "test_parseSegment.moc"
