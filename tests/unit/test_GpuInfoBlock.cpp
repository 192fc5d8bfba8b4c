#include <cstring>

#include <QTest>

#include "gpu/GpuInfoBlock.h"
#include "tests/unit/testRows.h"

namespace {

/// A record's number shows its place: 100 + place for NVIDIA, 200 for AMD, 300 for Apple.
GpuInfoBlock listOf(int cuda, int amd, int metal) {
    GpuInfoBlock list;
    list.cudaCount = static_cast<std::uint32_t>(cuda);
    list.amdCount = static_cast<std::uint32_t>(amd);
    list.metalCount = static_cast<std::uint32_t>(metal);
    for (int i = 0; i < GpuInfoBlock::capacity; ++i) {
        list.cudaGpus[i].deviceIndex = 100 + i;
        list.amdGpus[i].deviceIndex = 200 + i;
        list.metalGpus[i].deviceIndex = 300 + i;
    }
    return list;
}

QByteArray bytesOf(const GpuInfoBlock& list) {
    return {reinterpret_cast<const char*>(&list), sizeof list};
}

} // namespace

class TestGpuInfoBlock : public QObject {
    Q_OBJECT

  private slots:
    void bytesOfANewList() {
        const QByteArray header = QByteArray::fromHex("010d0100 00000000 00000000 00000000 00000000");
        QByteArray record(152, '\0');
        record.replace(72, 4, "\xff\xff\xff\xff");
        QCOMPARE(bytesOf(GpuInfoBlock()).toHex(),
                 (header + record.repeated(3 * 16 + 1) + QByteArray(4, '\0')).toHex());
    }

    void offsets() {
        GpuInfoBlock list;
        std::memset(static_cast<void*>(&list), 0, sizeof list);
        list.blockVersion = 0x01020304;
        list.dataReady = 1;
        list.cudaCount = 2;
        list.amdCount = 3;
        list.metalCount = 4;
        for (int i = 0; i < 16; ++i) {
            list.cudaGpus[i].statsValid = 0x10;
            list.amdGpus[i].statsValid = 0x20;
            list.metalGpus[i].statsValid = 0x30;
        }
        list.summary.statsValid = 0x40;
        list.onlyCuda = 0x50;

        QByteArray expected(7472, '\0');
        expected.replace(0, 20, QByteArray::fromHex("04030201 01000000 02000000 03000000 04000000"));
        for (int i = 0; i < 16; ++i) {
            expected[20 + i * 152] = 0x10;
            expected[2452 + i * 152] = 0x20;
            expected[4884 + i * 152] = 0x30;
        }
        expected[7316] = 0x40;
        expected[7468] = 0x50;
        QCOMPARE(bytesOf(list).toHex(), expected.toHex());
    }

    void figuresThatOthersCountOn() {
        QCOMPARE(GpuInfoBlock::version, 68865U);
        QCOMPARE(GpuInfoBlock::capacity, 16);
        QCOMPARE(publishedSize, std::size_t(7469));
        QCOMPARE(QByteArray(segmentKey), QByteArray("qzGpuInfo_v2"));
    }

    void totalCount_data() {
        const auto row = testColumns<int, int, int, bool, int>("cuda", "amd", "metal", "onlyCuda", "total");
        row("none", 0, 0, 0, false, 0);
        row("each vendor counts", 1, 2, 4, false, 7);
        row("NVIDIA only", 1, 2, 4, true, 1);
        row("NVIDIA only, without any", 0, 2, 4, true, 0);
        row("full", 16, 16, 16, false, 48);
    }

    void totalCount() {
        QFETCH(int, cuda);
        QFETCH(int, amd);
        QFETCH(int, metal);
        QFETCH(bool, onlyCuda);
        QFETCH(int, total);
        GpuInfoBlock list = listOf(cuda, amd, metal);
        list.onlyCuda = onlyCuda ? 0xff : 0;
        QCOMPARE(list.totalCount(), total);
    }

    void gpuAt_data() {
        const auto row = testColumns<QVector<int>, int, int, int>("counts", "onlyCuda", "index", "found");
        const QVector<int> mixed{2, 3, 2};
        row("first", mixed, 0, 0, 100);
        row("last NVIDIA", mixed, 0, 1, 101);
        row("first AMD", mixed, 0, 2, 200);
        row("last AMD", mixed, 0, 4, 202);
        row("first Apple", mixed, 0, 5, 300);
        row("last Apple", mixed, 0, 6, 301);
        row("one beyond", mixed, 0, 7, 301);
        row("far beyond", mixed, 0, 1000, 301);
        row("largest integer", mixed, 0, std::numeric_limits<int>::max(), 301);
        row("below", mixed, 0, -1, 100);
        row("far below", mixed, 0, -5, 100);
        row("smallest integer", mixed, 0, std::numeric_limits<int>::min(), 100);
        row("AMD after NVIDIA", {2, 1, 0}, 0, 2, 200);
        row("beyond the last AMD", {2, 1, 0}, 0, 1000, 200);
        row("NVIDIA only clamps to its last", {2, 1, 0}, 1, 2, 101);
        row("without NVIDIA", {0, 2, 0}, 0, 0, 200);
        row("Apple alone", {0, 0, 1}, 0, -5, 300);
        row("Apple right after NVIDIA", {1, 0, 1}, 0, 1, 300);
        row("full, last AMD", {16, 16, 16}, 0, 31, 215);
        row("full, last", {16, 16, 16}, 0, 47, 315);
    }

    void gpuAt() {
        QFETCH(QVector<int>, counts);
        QFETCH(int, onlyCuda);
        QFETCH(int, index);
        QFETCH(int, found);
        GpuInfoBlock list = listOf(counts[0], counts[1], counts[2]);
        list.onlyCuda = static_cast<std::uint8_t>(onlyCuda);
        QCOMPARE(list.gpuAt(index).deviceIndex, found);
    }

    void gpuAtGivesACopy() {
        GpuInfoBlock list = listOf(1, 0, 0);
        setGpuName(list.cudaGpus[0], "kept");
        GpuDevice copy = list.gpuAt(0);
        setGpuName(copy, "changed");
        QCOMPARE(QByteArray(list.cudaGpus[0].name), QByteArray("kept"));
    }

    /// No caller does this; if one did, it must not read beyond the list.
    void gpuAtOfAnEmptyList() {
        for (const int onlyCuda : {0, 1}) {
            GpuInfoBlock list;
            list.onlyCuda = static_cast<std::uint8_t>(onlyCuda);
            for (const int index : {-1, 0, 1})
                QCOMPARE(list.gpuAt(index).deviceIndex, -1);
        }
    }
};

QTEST_APPLESS_MAIN(TestGpuInfoBlock)
#include "test_GpuInfoBlock.moc"
