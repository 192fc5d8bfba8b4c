// AMD's live figures.
#include <climits>
#include <functional>

#include <QDir>
#include <QFile>
#include <QTest>

#include "tests/unit/AmdMachine.h"
#include "tests/unit/testRows.h"

namespace {

const DrmFiles figures = {{"product_name", "Radeon %1\n"},
                          {"mem_info_vram_total", "8573157376\n"}, // 8176 MiB
                          {"gpu_busy_percent", "37\n"},
                          {"mem_info_vram_used", "1073741824\n"},
                          {"hwmon/hwmon3/temp1_input", "45999\n"}};

struct Card {
    AmdMachine machine;
    QString device;

    Card() : device(machine.drm.addAmdCard("card0", "0000:0c:00.0", figures)) { machine.detect(); }

    const GpuDevice& record() const { return machine.provider.record(0); }
};

} // namespace

class TestGpuInfoAmdLinux : public QObject {
    Q_OBJECT

  private slots:
    void allFigures() {
        Card card;
        QCOMPARE(card.machine.update(), QByteArray("  Radeon %1: retrieving GPU stats ...\n"));
        const GpuDevice& record = card.record();
        QCOMPARE(int(record.statsValid), 1);
        QCOMPARE(int(record.hasUsage), 1);
        QCOMPARE(record.usagePercent, 37);
        QCOMPARE(int(record.hasMemTotal), 1);
        QCOMPARE(record.memTotalMb, 8176);
        QCOMPARE(int(record.hasMemUsage), 1);
        QCOMPARE(record.memUsedMb, 1024);
        QCOMPARE(record.memFreeMb, 7152);
        QCOMPARE(int(record.hasTemperature), 1);
        QCOMPARE(record.temperature, 45);
        QCOMPARE(int(record.hasSpeed), 0);
        logLevel = 4;
        QCOMPARE(card.machine.update(), QByteArray());
    }

    void missingFile_data() {
        // markers: usage, memory's usage, temperature
        const auto row = testColumns<QString, QList<int>>("file", "markers");
        row("load", "gpu_busy_percent", {0, 1, 1});
        row("memory", "mem_info_vram_used", {1, 0, 1});
        row("temperature", "hwmon/hwmon3/temp1_input", {1, 1, 0});
    }

    void missingFile() {
        QFETCH(QString, file);
        QFETCH(QList<int>, markers);
        const auto emptied = [](const QString& path) { DrmTree::write(path, " \n"); };
        const auto removed = [](const QString& path) { QFile::remove(path); };
        // A file whose reading fails, as a sleeping card's does.
        const auto unreadable = [](const QString& path) { QDir().mkdir(path); };
        const auto dangling = [](const QString& path) { QFile::link(path + ".gone", path); };
        Card card;
        const QString path = card.device + "/" + file;
        card.machine.update();
        const std::vector<std::function<void(const QString&)>> ways = {emptied, removed, unreadable,
                                                                       dangling};
        for (const auto& spoil : ways) {
            QFile::remove(path);
            QDir().rmdir(path);
            spoil(path);
            QCOMPARE(card.machine.update().count('\n'), 1); // no message
            const GpuDevice& record = card.record();
            QCOMPARE((QList<int>{record.hasUsage, record.hasMemUsage, record.hasTemperature}), markers);
            QCOMPARE(record.usagePercent, 37); // the old numbers stay
            QCOMPARE(record.memUsedMb, 1024);
            QCOMPARE(record.memFreeMb, 7152);
            QCOMPARE(record.temperature, 45);
            QCOMPARE(int(record.statsValid), 1);
        }
    }

    void load_data() {
        const auto row = testColumns<QByteArray, int>("text", "percent");
        row("0: a reading, not an absence", "0\n", 0);
        row("100", "100\n", 100);
        row("no number", "busy\n", 0);
        row("negative", "-1\n", 0);
        row("a fraction", "37.5\n", 0);
        row("hexadecimal", "0x25\n", 0);
        row("octal form", "037\n", 37);
        row("a sign", "+37\n", 37);
        row("carriage return", "37\r\n", 37);
        row("behind a NUL",
            QByteArray("37\0"
                       "99",
                       5),
            37);
        row("the largest", "4294967295\n", -1); // as the record's own type shows it
        row("too large", "4294967296\n", 0);
        row("twenty digits", "11111111111111111111\n", 0);
    }

    void load() {
        Card card;
        QFETCH(QByteArray, text);
        DrmTree::write(card.device + "/gpu_busy_percent", text);
        card.machine.update();
        QCOMPARE(int(card.record().hasUsage), 1);
        QTEST(card.record().usagePercent, "percent");
    }

    void memory_data() {
        const auto row = testColumns<QByteArray, int, int>("text", "used", "free");
        row("none", "0\n", 0, 8176);
        row("just below one", "1048575\n", 0, 8176);
        row("one", "1048576\n", 1, 8175);
        row("all", "8573157376\n", 8176, 0);
        row("more than there is", "8574205952\n", 8177, -1); // wraps around
        row("no number", "x\n", 0, 8176);
        row("negative", "-1048576\n", 0, 8176);
        row("twenty digits", "99999999999999999999\n", 0, 8176);
        row("2^31 MiB", "2251799813685248\n", INT_MIN, INT_MIN + 8176);
        row("above 32 bits of MiB", "4503599627370496\n", 0, 8176);
        row("above 32 bits of MiB, and one", "4503599628419072\n", 1, 8175);
    }

    void memory() {
        Card card;
        QFETCH(QByteArray, text);
        DrmTree::write(card.device + "/mem_info_vram_used", text);
        card.machine.update();
        QCOMPARE(int(card.record().hasMemUsage), 1);
        QTEST(card.record().memUsedMb, "used");
        QTEST(card.record().memFreeMb, "free");
    }

    void temperature_data() {
        const auto row = testColumns<QByteArray, int>("text", "degrees");
        row("45", "45000\n", 45);
        row("truncated", "45999\n", 45);
        row("below one", "999\n", 0);
        row("0", "0\n", 0);
        row("negative", "-5000\n", 0);
        row("no number", "hot\n", 0);
        row("the largest", "4294967295\n", 4294967);
        row("too large", "4294967296\n", 0);
    }

    void temperature() {
        Card card;
        QFETCH(QByteArray, text);
        DrmTree::write(card.device + "/hwmon/hwmon3/temp1_input", text);
        card.machine.update();
        QCOMPARE(int(card.record().hasTemperature), 1);
        QTEST(card.record().temperature, "degrees");
    }

    void withoutHwmon() {
        AmdMachine machine;
        DrmFiles files = figures;
        files.erase("hwmon/hwmon3/temp1_input");
        files["temp1_input"] = "45999\n"; // no sensor of the card's
        machine.drm.addAmdCard("card0", "0000:0c:00.0", files);
        machine.detect();
        machine.update();
        QCOMPARE(int(machine.provider.record(0).hasTemperature), 0);
    }

    // A reloaded driver renumbers its monitors: the old path must not lead to another card.
    void sensorOfALaterReload() {
        Card card;
        QVERIFY(QDir().rename(card.device + "/hwmon/hwmon3", card.device + "/hwmon/hwmon4"));
        card.machine.update();
        QCOMPARE(int(card.record().hasTemperature), 0);
        QVERIFY(QDir().rename(card.device + "/hwmon/hwmon4", card.device + "/hwmon/hwmon3"));
        card.machine.update();
        QCOMPARE(int(card.record().hasTemperature), 1);
    }

    void totalIsNotReadAgain() {
        Card card;
        DrmTree::write(card.device + "/mem_info_vram_total", "17179869184\n");
        DrmTree::write(card.device + "/vendor", "0x10de\n");
        card.machine.update();
        QCOMPARE(card.record().memTotalMb, 8176);
        QCOMPARE(card.record().memFreeMb, 7152);
    }

    void oneCardsFailureLeavesTheOthers() {
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:0c:00.0", {{"product_name", "broken"}});
        machine.drm.addAmdCard(
            "card1", "0000:0d:00.0",
            {{"product_name", "whole"}, {"gpu_busy_percent", "1"}, {"mem_info_vram_used", "1"}});
        machine.detect();
        machine.update();
        QCOMPARE(int(machine.provider.named("broken").hasUsage), 0);
        QCOMPARE(int(machine.provider.named("whole").hasUsage), 1);
        QCOMPARE(machine.provider.named("whole").usagePercent, 1);
        QCOMPARE(int(machine.provider.named("whole").hasMemUsage), 1);
    }

    // The figures show the card's own load, not the benchmark's.
    void figuresBeforeTheBenchmark() {
        AmdMachine machine;
        const QString device = machine.drm.addAmdCard("card0", "0000:0c:00.0", figures);
        FakeOpenCL::install({{"p", {machine.openCLDevice(0x0C)}}});
        machine.detect();
        FakeCalls::fail("clCreateContext", -5);
        FakeCalls::during("clCreateContext", [&] {
            DrmTree::write(device + "/gpu_busy_percent", "100");
            DrmTree::write(device + "/mem_info_vram_used", "8573157376");
            DrmTree::write(device + "/hwmon/hwmon3/temp1_input", "90000");
        });
        machine.update(true);
        QCOMPARE(FakeCalls::count("clCreateContext"), 1);
        QCOMPARE(machine.provider.record(0).usagePercent, 37);
        QCOMPARE(machine.provider.record(0).memUsedMb, 1024);
        QCOMPARE(machine.provider.record(0).temperature, 45);
    }

    // Even if the marker was cleared since the card was found.
    void validAfterEveryRefresh() {
        Card card;
        card.machine.provider.edit(0).statsValid = 0;
        card.machine.update();
        QCOMPARE(int(card.record().statsValid), 1);
    }

    void shutdown() {
        Card card;
        QVERIFY(card.machine.provider.shutdown() != 0);
        QCOMPARE(card.machine.provider.gpuCount(), 0);
        QCOMPARE(card.machine.update(true), QByteArray());
        QVERIFY(card.machine.provider.shutdown() != 0);
        // Nothing of the old card is used for another that is found later.
        QDir(card.device + "/..").removeRecursively();
        DrmFiles others = figures;
        others["hwmon/hwmon3/temp1_input"] = "51000";
        card.machine.drm.addAmdCard("card1", "0000:03:00.0", others);
        card.machine.detect();
        QCOMPARE(card.machine.provider.gpuCount(), 1);
        card.machine.update();
        QCOMPARE(card.record().temperature, 51);
        QCOMPARE(card.record().deviceIndex, 0);
    }
};

QTEST_APPLESS_MAIN(TestGpuInfoAmdLinux)
#include "test_GpuInfoAmdLinux.moc"
