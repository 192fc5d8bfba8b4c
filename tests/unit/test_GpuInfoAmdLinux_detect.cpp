// AMD's cards found in a tree of real files and links.
#include <climits>
#include <cstring>

#include <dirent.h>

#include <QFile>
#include <QTest>

#include "tests/unit/AmdMachine.h"
#include "tests/unit/testRows.h"

class TestGpuInfoAmdLinux_detect : public QObject {
    Q_OBJECT

  private slots:
    void noCards_data() {
        const auto row = testColumns<int, QByteArray>("level", "text");
        row("5", 5, "No AMD GPU found in /sys/class/drm/\n");
        row("2", 2, "No AMD GPU found in /sys/class/drm/\n");
        row("1", 1, QByteArray());
    }

    void noCards() {
        QFETCH(int, level);
        AmdMachine machine;
        machine.drm.addCard("card0", "0000:01:00.0",
                            {{"vendor", "0x10de\n"}, {"mem_info_vram_total", "8589934592\n"}});
        logLevel = level;
        QTEST(machine.detect(), "text");
        QCOMPARE(machine.result, 0);
        QCOMPARE(machine.update(true), QByteArray());
        QCOMPARE(FakeCalls::all(), QStringList()); // OpenCL is not touched
    }

    void vendor_data() {
        const auto row = testColumns<QByteArray, int>("vendor", "found");
        row("as the kernel has it", "0x1002\n", 1);
        row("upper case", "0X1002\n", 1);
        row("blanks", " 0x1002 \r\n", 1);
        row("behind a NUL", QByteArray("0x1002\0junk", 11), 1);
        row("another", "0x10de\n", 0);
        row("without 0x", "1002\n", 0);
        row("longer", "0x10020\n", 0);
        row("more digits", "0x01002\n", 0);
        row("two words", "0x1002 0x10de\n", 0);
        row("empty", "", 0);
        row("NUL",
            QByteArray("\0"
                       "0x1002\n",
                       8),
            0);
    }

    void vendor() {
        QFETCH(QByteArray, vendor);
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:0c:00.0", {{"vendor", vendor}});
        machine.detect();
        QTEST(machine.provider.gpuCount(), "found");
        QTEST(machine.result, "found");
    }

    void memory_data() {
        // mebibytes: 0: the card is skipped
        const auto row = testColumns<QByteArray, int>("bytes", "mebibytes");
        row("8 GiB", "8589934592\n", 8192);
        row("1999 MiB", "2096103424\n", 0);
        row("just below 2000 MiB", "2097151999\n", 0);
        row("2000 MiB", "2097152000\n", 2000);
        row("2000.9 MiB", "2098200575\n", 2000);
        row("192 GiB", "206158430208\n", 196608);
        row("no line end", "8589934592", 8192);
        row("carriage return", "8589934592\r\n", 8192);
        row("behind a NUL", QByteArray("8589934592\0x", 12), 8192);
        row("zero", "0\n", 0);
        row("empty", "", 0);
        row("NUL", QByteArray("\0\0\0", 3), 0);
        row("negative", "-8589934592\n", 0);
        row("hexadecimal", "0x200000000\n", 0);
        row("with a unit", "8589934592 B\n", 0);
        row("with separators", "8,589,934,592\n", 0);
        row("a fraction", "8589934592.0\n", 0);
        row("an exponent", "8e9\n", 0);
        // 32 bits hold the mebibytes, shown as the record's own type has them.
        row("2^31 MiB", "2251799813685248\n", INT_MIN);
        row("2^32 MiB", "4503599627370496\n", 0);
        row("2^32 MiB and 1999", "4503601723473920\n", 0);
        row("2^32 MiB and 2000", "4503601724522496\n", 2000);
        row("the largest number", "18446744073709551615\n", -1); // 2^44 - 1 MiB, of which 32 bits stay
        row("twenty digits", "99999999999999999999\n", 0);
        row("5000 digits", QByteArray(5000, '9'), 0);
    }

    void memory() {
        QFETCH(QByteArray, bytes);
        QFETCH(int, mebibytes);
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:0c:00.0", {{"mem_info_vram_total", bytes}});
        machine.detect();
        QCOMPARE(machine.provider.gpuCount(), mebibytes != 0 ? 1 : 0);
        if (mebibytes != 0)
            QCOMPARE(machine.provider.record(0).memTotalMb, mebibytes);
    }

    void name_data() {
        const auto row = testColumns<QByteArray, QByteArray, QByteArray>("product", "label", "name");
        row("product", "Radeon PRO W6800\n", "slot 1\n", "Radeon PRO W6800");
        row("empty product", "\n", "slot 1\n", "slot 1");
        row("label", QByteArray(), "slot 1\n", "slot 1");
        row("neither", QByteArray(), QByteArray(), "card7");
        row("both empty", "", " \n", "card7");
        row("63 bytes", QByteArray(63, 'x'), QByteArray(), QByteArray(63, 'x'));
        row("64 bytes", QByteArray(64, 'x'), QByteArray(), QByteArray(63, 'x'));
        row("200 bytes", QByteArray(200, 'x'), QByteArray(), QByteArray(63, 'x'));
        row("bytes above 0x7f", "caf\xC3\xA9 \xFF!", QByteArray(), "caf\xC3\xA9 \xFF!");
        row("placeholder", "a %1 b\n", QByteArray(), "a %1 b");
        row("behind a NUL", QByteArray("one\0two", 7), QByteArray(), "one");
    }

    void name() {
        QFETCH(QByteArray, product);
        QFETCH(QByteArray, label);
        QFETCH(QByteArray, name);
        DrmFiles files;
        if (!product.isNull())
            files["product_name"] = product;
        if (!label.isNull())
            files["label"] = label;
        AmdMachine machine;
        machine.drm.addAmdCard("card7", "0000:0c:00.0", files);
        machine.detect();
        const char(&kept)[64] = machine.provider.record(0).name;
        QCOMPARE(QByteArray(kept, sizeof kept), name + QByteArray(64 - name.size(), '\0'));
    }

    void newRecord() {
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:0c:00.0",
                               {{"gpu_busy_percent", "37\n"}, {"mem_info_vram_used", "1\n"}});
        machine.detect();
        GpuDevice expected;
        expected.statsValid = 1;
        setGpuName(expected, "card0");
        expected.gpuType = 2;
        expected.hasMemTotal = 1;
        expected.memTotalMb = 8192;
        expected.deviceIndex = 0;
        QVERIFY(std::memcmp(&machine.provider.record(0), &expected, sizeof expected) == 0);
    }

    void hwmonIsFound() {
        AmdMachine machine;
        machine.drm.addAmdCard("card0", "0000:0c:00.0", {{"hwmon/hwmon5/temp1_input", "45999\n"}});
        machine.drm.addAmdCard("card1", "0000:0d:00.0");
        machine.detect();
        printedBy([&] { machine.provider.updateUsage(false); });
        QCOMPARE(int(machine.provider.named("card0").hasTemperature), 1);
        QCOMPARE(int(machine.provider.named("card1").hasTemperature), 0);
    }

    void cardsStayInDirectoryOrder() {
        AmdMachine machine;
        for (int number : {3, 11, 0, 7, 1, 20})
            machine.drm.addAmdCard("card" + QString::number(number),
                                   QString("0000:%1:00.0").arg(number, 2, 16, QChar('0')));
        machine.detect();
        QStringList order;
        DIR* directory = opendir(QFile::encodeName(machine.drm.path()).constData());
        while (const dirent* entry = readdir(directory))
            order.append(QFile::decodeName(entry->d_name));
        closedir(directory);
        QStringList names;
        for (int i = 0; i < machine.provider.gpuCount(); ++i)
            names.append(machine.provider.record(i).name);
        QCOMPARE(names, QStringList(order.filter("card")));
    }

    void index_data() {
        // addresses: of card0, card1, ...
        const auto row = testColumns<QStringList, QList<int>>("addresses", "indexes");
        row("in order", {"0000:03:00.0", "0000:0c:00.0"}, {0, 1});
        row("in other order", {"0000:0c:00.0", "0000:03:00.0"}, {1, 0});
        row("as numbers", {"0000:c1:00.0", "0000:0a:00.0", "0000:10:00.0"}, {2, 0, 1});
        row("equal buses", {"0000:0c:00.0", "0000:0c:00.1", "0000:03:00.0"}, {1, 1, 0});
        row("a gap behind equal ones", {"0000:03:00.0", "0000:03:00.1", "0000:0c:00.0"}, QList<int>{0, 0, 2});
        row("the domain does not count", {"10000:01:00.0", "0000:02:00.0"}, {0, 1});
        row("no bus", {"0000:01:00.0", "platform"}, {1, 0});
        row("unsigned", {"0000:ffffffff:00.0", "0000:01:00.0"}, {1, 0});
    }

    void index() {
        QFETCH(QStringList, addresses);
        QFETCH(QList<int>, indexes);
        AmdMachine machine;
        for (int i = 0; i < addresses.size(); ++i)
            machine.drm.addAmdCard("card" + QString::number(i), addresses[i]);
        machine.detect();
        QCOMPARE(machine.provider.gpuCount(), int(addresses.size()));
        for (int i = 0; i < addresses.size(); ++i)
            QCOMPARE(machine.provider.named(qPrintable("card" + QString::number(i))).deviceIndex, indexes[i]);
    }
};

QTEST_APPLESS_MAIN(TestGpuInfoAmdLinux_detect)
#include "test_GpuInfoAmdLinux_detect.moc"
