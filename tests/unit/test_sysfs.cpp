#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTest>

#include "gpu/sysfs.h"
#include "tests/unit/DrmTree.h"
#include "tests/unit/testRows.h"

namespace {

/// A directory's entries in the file system's order.
QStringList readDirectory(const QString& path) {
    QStringList names;
    DIR* directory = opendir(QFile::encodeName(path).constData());
    while (const dirent* entry = readdir(directory))
        names.append(QFile::decodeName(entry->d_name));
    closedir(directory);
    return names;
}

} // namespace

class TestSysfs : public QObject {
    Q_OBJECT

  private slots:
    void value_data() {
        const auto row = testColumns<QByteArray, QString>("bytes", "text");
        row("a value", "0x1002\n", "0x1002");
        row("no line end", "37", "37");
        row("carriage return", "37\r\n", "37");
        row("carriage return inside", "3\r7\n", "37");
        row("white space around", " \t\v\f 37 \n\n", "37");
        row("white space inside", "a  b\n", "a  b");
        row("two lines", "a\nb\n", "a\nb");
        row("bytes behind a NUL", QByteArray("37\0 99\n", 7), "37");
        row("NUL first",
            QByteArray("\0"
                       "37\n",
                       4),
            "");
        row("white space and a NUL",
            QByteArray(" \0"
                       "37\n",
                       5),
            "");
        row("Latin-1", "\xC4\xE9\n", QString(QChar(0xC4)) + QChar(0xE9));
        row("UTF-8 is not decoded", "\xC3\xA9", QString(QChar(0xC3)) + QChar(0xA9));
        row("no-break space", "\xA0 37 \xA0", "37"); // white space, as Unicode has it
        row("empty", "", "");
        row("blanks only", "  \n", "");
        row("long", QByteArray(5000, 'x') + "\n", QString(5000, 'x'));
    }

    void value() {
        QFETCH(QByteArray, bytes);
        DrmTree tree;
        DrmTree::write(tree.filePath("value"), bytes);
        QTEST(readSysfsValue(tree.filePath("value")), "text");
    }

    void noValue_data() {
        const auto row = testColumns<QString>("path");
        row("missing", "missing");
        row("directory", "drm");
        row("dangling link", "dangling");
        row("below a missing directory", "missing/vendor");
    }

    void noValue() {
        DrmTree tree;
        QFile::link(tree.filePath("nowhere"), tree.filePath("dangling"));
        QFETCH(QString, path);
        QVERIFY(readSysfsValue(tree.filePath(path)).isEmpty());
    }

    // As an ordinary user, since root reads every file.
    void unreadableValue() {
        DrmTree tree;
        DrmTree::write(tree.filePath("open"), "37\n");
        DrmTree::write(tree.filePath("closed"), "37\n");
        chmod(qPrintable(tree.filePath("")), 0755);
        chmod(qPrintable(tree.filePath("closed")), 0);
        const uid_t user = geteuid();
        if (user == 0)
            QCOMPARE(seteuid(65534), 0);
        const QString open = readSysfsValue(tree.filePath("open"));
        const QString closed = readSysfsValue(tree.filePath("closed"));
        QCOMPARE(seteuid(user), 0);
        QCOMPARE(open, QString("37"));
        QVERIFY(closed.isEmpty());
    }

    void cardNames_data() {
        const auto row = testColumns<bool>("isCard");
        for (const char* name : {"card0", "card1", "card10", "card007", "card123456"})
            row(name, true);
        for (const char* name :
             {"card", "card0-DP-1", "card1-HDMI-A-1", "card1a", "Card0", "CARD0", "card 0", "xcard0",
              "card0 ", "card-1", "renderD128", "version", "controlD64", "card0\n"})
            row(name, false);
    }

    void cardNames() { QTEST(isDrmCardName(QTest::currentDataTag()), "isCard"); }

    void cards() {
        DrmTree tree;
        for (const char* name : {"card0", "card1", "card12", "card0-DP-1", "card1-HDMI-A-1", "renderD128",
                                 "version", "Card7", "card", "cardX", ".card3"})
            QDir(tree.path()).mkdir(name);
        QStringList found = listDrmCards(tree.path());
        found.sort();
        QCOMPARE(found, QStringList({"card0", "card1", "card12"}));
    }

    // Entries of the real directory are links to directories.
    void cardsAreDirectories() {
        DrmTree tree;
        QDir(tree.filePath("")).mkpath("devices/card0");
        QFile::link(tree.filePath("devices/card0"), tree.path() + "/card0");
        DrmTree::write(tree.path() + "/card1", "a file\n");
        QFile::link(tree.path() + "/nowhere", tree.path() + "/card2");
        QCOMPARE(listDrmCards(tree.path()), QStringList("card0"));
    }

    void cardsInDirectoryOrder() {
        DrmTree tree;
        for (int number : {3, 11, 0, 7, 1, 20, 15, 2, 9, 4})
            QDir(tree.path()).mkdir("card" + QString::number(number));
        const QStringList order = readDirectory(tree.path()).filter("card");
        QCOMPARE(listDrmCards(tree.path()), order);
        QStringList sorted = order;
        sorted.sort();
        if (order == sorted)
            QSKIP("this file system lists by name, so its order shows nothing");
    }

    void noCards() {
        DrmTree tree;
        QCOMPARE(listDrmCards(tree.path()), QStringList());
        QCOMPARE(listDrmCards(tree.path() + "/missing"), QStringList());
    }

    void hwmon_data() {
        const auto row = testColumns<QStringList, QString>("directories", "found");
        row("none", QStringList(), "");
        row("an empty one", {"hwmon"}, "");
        row("one", {"hwmon/hwmon3"}, "/hwmon/hwmon3");
        row("without a number", {"hwmon/hwmon"}, "/hwmon/hwmon");
        row("others", {"hwmon/power", "hwmon/xhwmon1"}, "");
        row("beside others", {"hwmon/power", "hwmon/hwmon12", "hwmon/subsystem"}, "/hwmon/hwmon12");
    }

    void hwmon() {
        DrmTree tree;
        const QString device = tree.addCard("card0", "0000:0c:00.0");
        QFETCH(QStringList, directories);
        for (const QString& directory : directories)
            QDir(device).mkpath(directory);
        DrmTree::write(device + "/hwmon/hwmon0", "a file\n");
        QFETCH(QString, found);
        QCOMPARE(findHwmonDir(device), found.isEmpty() ? QString() : device + found);
    }

    void hwmonInDirectoryOrder() {
        DrmTree tree;
        const QString device = tree.addCard("card0", "0000:0c:00.0");
        QString first;
        QString alphabetical;
        for (int number = 9; number >= 1 && first == alphabetical; --number) {
            QDir(device).mkpath("hwmon/hwmon" + QString::number(number));
            const QStringList order = readDirectory(device + "/hwmon").filter("hwmon");
            first = order.first();
            alphabetical = *std::min_element(order.begin(), order.end());
            QCOMPARE(findHwmonDir(device), device + "/hwmon/" + first);
        }
        for (int number = 0; number <= 30 && first == alphabetical; ++number) {
            QDir(device).mkpath("hwmon/hwmona" + QString::number(number));
            first = readDirectory(device + "/hwmon").filter("hwmon").first();
            QCOMPARE(findHwmonDir(device), device + "/hwmon/" + first);
        }
        if (first == alphabetical)
            QSKIP("this file system lists by name, so its order shows nothing");
    }

    void busOfAddress_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<quint32>("bus");
        const auto row = [](const char* path, quint32 bus) { QTest::newRow(path) << QString(path) << bus; };
        row("/sys/devices/pci0000:00/0000:00:03.1/0000:0b:00.0/0000:0c:00.0", 12);
        row("/sys/devices/pci0000:c0/0000:c1:00.0", 193);
        row("/sys/devices/pci0000:c0/0000:FF:00.0", 255);
        row("10000:e1:00.0", 225);
        row("0000:00:02.0", 0);
        row("0000:100:00.0", 256);
        row("a:b", 11);
        row("a:", 0);
        row("a::c", 0);
        row(":7", 7);
        row("0000:zz:00.0", 0);
        row("0000:0g:00.0", 0);
        row("0000:-1:00.0", 0);
        row("0000:ffffffff:00.0", 0xFFFFFFFFU);
        row("0000:100000000:00.0", 0);
        row("/sys/devices/platform/gpu", 0);
        row("/sys/devices/0000:0c:00.0/drm", 0);
        row("/sys/devices/0000:0c:00.0/", 0);
        row("", 0);
    }

    void busOfAddress() {
        QFETCH(QString, path);
        QTEST(parsePciBus(path), "bus");
    }

    void busOfDevice() {
        DrmTree tree;
        QCOMPARE(pciBusOfDevice(tree.addCard("card0", "0000:0c:00.0")), 12U);
        QCOMPARE(pciBusOfDevice(tree.addCard("card1", "0000:c1:00.0")), 193U);
        // As the kernel writes it: relative to the card, whether it leads anywhere or not.
        QDir(tree.path()).mkdir("card2");
        const QString relative = tree.path() + "/card2/device";
        QCOMPARE(symlink("../../../0000:2d:00.0", qPrintable(relative)), 0);
        QCOMPARE(pciBusOfDevice(relative), 0x2DU);
    }

    void busOfWhatIsNoLink() {
        DrmTree tree;
        QDir(tree.path()).mkpath("card0/0000:0c:00.0");
        QCOMPARE(pciBusOfDevice(tree.path() + "/card0/0000:0c:00.0"), 0U);
        QCOMPARE(pciBusOfDevice(tree.path() + "/card9/device"), 0U);
    }
};

QTEST_APPLESS_MAIN(TestSysfs)
#include "test_sysfs.moc"
