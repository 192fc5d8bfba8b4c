#include <cstring>

#include <QTest>

#include "gpu/GpuDevice.h"
#include "tests/unit/testRows.h"

namespace {

QByteArray bytesOf(const GpuDevice& record) {
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

GpuDevice recordOf(const QByteArray& bytes) {
    GpuDevice record;
    std::memcpy(&record, bytes.constData(), sizeof record);
    return record;
}

using Write = void (*)(GpuDevice&);

} // namespace

Q_DECLARE_METATYPE(Write)

class TestGpuDevice : public QObject {
    Q_OBJECT

  private slots:
    /// The offsets that readers in other languages rely on; each field touches only its own bytes.
    void offset_data() {
        QTest::addColumn<Write>("write");
        QTest::addColumn<int>("offset");
        QTest::addColumn<QByteArray>("bytes");
        const auto row = [](const char* field, Write write, int offset, const char* hex) {
            QTest::newRow(field) << write << offset << QByteArray::fromHex(hex);
        };
        row("statsValid", [](GpuDevice& gpu) { gpu.statsValid = 0x11; }, 0, "11");
        row("name's first byte", [](GpuDevice& gpu) { gpu.name[0] = 'A'; }, 1, "41");
        row("name's last byte", [](GpuDevice& gpu) { gpu.name[63] = 'z'; }, 64, "7a");
        row("reserved65", [](GpuDevice& gpu) { gpu.reserved65 = 0x12; }, 65, "12");
        row("optixCapable", [](GpuDevice& gpu) { gpu.optixCapable = 0x13; }, 66, "13");
        row("amdRayTracing", [](GpuDevice& gpu) { gpu.amdRayTracing = 0x14; }, 67, "14");
        row("gpuType", [](GpuDevice& gpu) { gpu.gpuType = 0x15; }, 68, "15");
        row("deviceIndex", [](GpuDevice& gpu) { gpu.deviceIndex = -2; }, 72, "feffffff");
        row("clDevice", [](GpuDevice& gpu) { gpu.clDevice = 0x1122334455667788U; }, 76, "8877665544332211");
        row("hasTemperature", [](GpuDevice& gpu) { gpu.hasTemperature = 0x16; }, 84, "16");
        row("temperature", [](GpuDevice& gpu) { gpu.temperature = 0x01020304; }, 88, "04030201");
        row("hasMemTotal", [](GpuDevice& gpu) { gpu.hasMemTotal = 0x17; }, 92, "17");
        row("memTotalMb", [](GpuDevice& gpu) { gpu.memTotalMb = 0x05060708; }, 96, "08070605");
        row("hasMemUsage", [](GpuDevice& gpu) { gpu.hasMemUsage = 0x18; }, 100, "18");
        row("memUsedMb", [](GpuDevice& gpu) { gpu.memUsedMb = 0x11121314; }, 104, "14131211");
        row("memFreeMb", [](GpuDevice& gpu) { gpu.memFreeMb = 0x21222324; }, 108, "24232221");
        row("hasUsage", [](GpuDevice& gpu) { gpu.hasUsage = 0x19; }, 112, "19");
        row("usagePercent", [](GpuDevice& gpu) { gpu.usagePercent = 0x31323334; }, 116, "34333231");
        row("hasSpeed", [](GpuDevice& gpu) { gpu.hasSpeed = 0x1a; }, 120, "1a");
        row("speedGps", [](GpuDevice& gpu) { gpu.speedGps = 12.5F; }, 124, "00004841");
        row("tail's first byte", [](GpuDevice& gpu) { gpu.tail[0] = 0x1b; }, 128, "1b");
        row("tail's last byte", [](GpuDevice& gpu) { gpu.tail[23] = 0x1c; }, 151, "1c");
    }

    void offset() {
        QFETCH(Write, write);
        QFETCH(int, offset);
        QFETCH(QByteArray, bytes);
        const QByteArray before(152, '\xee');
        GpuDevice record = recordOf(before);
        write(record);
        QByteArray expected = before;
        expected.replace(offset, bytes.size(), bytes);
        QCOMPARE(bytesOf(record).toHex(' '), expected.toHex(' '));
    }

    void aNewRecordIsZeroButForItsNumber() {
        QByteArray expected(152, '\0');
        expected.replace(72, 4, "\xff\xff\xff\xff");
        QCOMPARE(bytesOf(GpuDevice()).toHex(' '), expected.toHex(' '));
    }

    void initialiseLeavesWhatHasNoInitialValue() {
        GpuDevice record = recordOf(QByteArray(152, '\xee'));
        initialiseGpuDevice(record);
        QByteArray expected = bytesOf(GpuDevice());
        const QByteArray kept(64, '\xee');
        expected.replace(2, 63, kept.left(63)); // name, but for its first byte
        for (const int filler : {69, 85, 93, 101, 113, 121})
            expected.replace(filler, 3, kept.left(3));
        expected.replace(128, 24, kept.left(24));
        QCOMPARE(bytesOf(record).toHex(' '), expected.toHex(' '));
    }

    void name_data() {
        const auto row = testColumns<QByteArray, QByteArray>("text", "stored");
        const QByteArray full = QByteArray("0123456789").repeated(6) + "abc";
        row("empty", "", "");
        row("ordinary", "Some GPU", "Some GPU");
        row("62 bytes", full.left(62), full.left(62));
        row("63 bytes", full, full);
        row("64 bytes", full + "d", full);
        row("200 bytes", full + QByteArray(137, 'x'), full);
        row("bytes above 0x7f", QByteArray("\xc3\xa4\xff"), QByteArray("\xc3\xa4\xff"));
    }

    void name() {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, stored);
        const QByteArray before(152, '\xee');
        GpuDevice record = recordOf(before);
        setGpuName(record, text.constData());
        QByteArray expected = before;
        expected.replace(1, 64, stored.leftJustified(64, '\0'));
        QCOMPARE(bytesOf(record).toHex(' '), expected.toHex(' '));
    }

    void noNameIsAnEmptyOne() {
        GpuDevice record;
        setGpuName(record, "Some GPU");
        setGpuName(record, nullptr);
        QCOMPARE(bytesOf(record).toHex(' '), bytesOf(GpuDevice()).toHex(' '));
    }

    void typeName_data() {
        const auto row = testColumns<int, QByteArray>("type", "name");
        row("other", 0, "Other");
        row("NVIDIA", 1, "Cuda");
        row("AMD", 2, "AMD");
        row("Apple", 3, "Metal");
        row("summary", 4, "-");
        row("first unknown", 5, "");
        row("last unknown", 255, "");
    }

    void typeName() {
        QFETCH(int, type);
        QFETCH(QByteArray, name);
        GpuDevice record;
        record.gpuType = static_cast<std::uint8_t>(type);
        QCOMPARE(QByteArray(gpuTypeName(record)), name);
    }
};

QTEST_APPLESS_MAIN(TestGpuDevice)
#include "test_GpuDevice.moc"
