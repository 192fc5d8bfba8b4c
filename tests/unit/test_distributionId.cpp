#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "support/distributionId.h"
#include "tests/unit/testRows.h"

class TestDistributionId : public QObject {
    Q_OBJECT

  private slots:
    void parse_data() {
        const auto row = testColumns<QByteArray, QString>("text", "id");
        row("plain", "NAME=Debian\nID=debian\nVERSION_ID=12\n", "debian");
        row("quoted", "ID=\"rocky\"\n", "rocky");
        row("quotes anywhere", "ID=a\"b\"\"c\n", "abc");
        row("single quotes stay", "ID='arch'\n", "'arch'");
        row("upper case", "ID=Ubuntu\n", "ubuntu");
        row("upper case, quoted", "ID=\"Ubuntu\"\n", "ubuntu");
        row("blanks", "ID=  \t fedora \t\n", "fedora");
        row("blanks inside the quotes", "ID=\" ol \"\n", "ol");
        row("carriage return", "ID=debian\r\nA=b\r\n", "debian");
        row("no line end", "ID=ol", "ol");
        row("other keys", "ID_LIKE=debian\nVERSION_ID=7\nBUILD_ID=x\nMY_ID=z\n", "");
        row("behind other keys", "ID_LIKE=debian\nPLATFORM_ID=x\nID=centos\n", "centos");
        row("the first of two", "ID=rhel\nID=debian\n", "rhel");
        row("an empty one is the first", "ID=\nID=debian\n", "");
        row("key in lower case", "id=debian\n", "");
        row("indented", " ID=debian\n", "");
        row("commented", "#ID=debian\n", "");
        row("empty lines", "\n\n\nID=debian\n\n", "debian");
        row("blank before the sign", "ID =debian\n", "");
        row("equals signs", "ID=a=b\n", "a=b");
        row("Latin-1", "ID=\xC4rch\n", QString(QChar(0xE4)) + "rch");
        row("nothing", "", "");
        row("null", QByteArray(), "");
        row("behind a NUL", QByteArray("A=b\n\0ID=debian\n", 15), "");
        row("NUL in the value", QByteArray("ID=deb\0ian\n", 11), "deb");
        row("long", "A=" + QByteArray(50000, 'x') + "\nID=debian\n", "debian");
    }

    void parse() {
        QFETCH(QByteArray, text);
        QTEST(parseDistributionId(text), "id");
    }

    void file() {
        QTemporaryDir directory;
        QFile file(directory.filePath("os-release"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("PRETTY_NAME=\"Rocky Linux\"\r\nID=\"Rocky\"\r\n");
        file.close();
        QCOMPARE(distributionId(file.fileName()), QString("rocky"));
    }

    void missingFile() {
        QTemporaryDir directory;
        QCOMPARE(distributionId(directory.filePath("os-release")), QString());
        QCOMPARE(distributionId(directory.path()), QString());
    }

    void family_data() {
        const auto row = testColumns<QString, int>("id", "family");
        for (const char* id : {"ubuntu", "debian"})
            row(id, id, static_cast<int>(DistributionFamily::Debian));
        for (const char* id : {"rhel", "rocky", "centos", "fedora", "ol"})
            row(id, id, static_cast<int>(DistributionFamily::RedHat));
        for (const char* id : {"", "arch", "Ubuntu", "Rocky", "debian12", "ubuntu ", "linuxmint", "almalinux",
                               "opensuse-leap", "o", "oll"})
            QTest::addRow("other: '%s'", id) << id << static_cast<int>(DistributionFamily::Other);
    }

    void family() {
        QFETCH(QString, id);
        QTEST(static_cast<int>(distributionFamily(id)), "family");
    }
};

QTEST_APPLESS_MAIN(TestDistributionId)
#include "test_distributionId.moc"
