// Whether a user's number identifies one user, by the kernel's map of the user namespace.
#include <sstream>

#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "reader/isMappedUser.h"
#include "tests/unit/testRows.h"

class TestIsMappedUser : public QObject {
    Q_OBJECT

  private slots:
    void maps_data() {
        const auto row = testColumns<QByteArray, uint, bool>("map", "user", "isIn");
        const QByteArray whole = "         0          0 4294967295\n";
        const QByteArray container = "         0     100000      65536\n";
        const QByteArray two = "         0       1000          1\n     65534     165534          1\n";
        row("the first namespace's root", whole, 0U, true);
        row("the first namespace's nobody", whole, 65534U, true);
        row("the last number", whole, 4294967294U, true);
        row("the one that is no user", whole, 4294967295U, false);
        row("a container's nobody", container, 65534U, true);
        row("a container's last", container, 65535U, true);
        row("behind a container's last", container, 65536U, false);
        row("the first of two lines", two, 0U, true);
        row("the second of two lines", two, 65534U, true);
        row("between two lines", two, 1000U, false); // a number outside
        row("no line", QByteArray(), 65534U, false);
        row("before the first", "1000 1000 1\n", 999U, false);
        row("a line that is cut short", "0 0", 0U, false);
        row("no numbers", "zero 0 1\n", 0U, false);
    }
    void maps() {
        QFETCH(QByteArray, map);
        QFETCH(uint, user);
        std::istringstream text(map.toStdString());
        QTEST(isInUidMap(text, user), "isIn");
    }

    void fromProc() {
        const QTemporaryDir folder;
        const std::string root = folder.path().toStdString();
        QVERIFY(isMappedUser(1000, root)); // nothing can be read
        QVERIFY(!isMappedUser(65534, root));
        QVERIFY(QDir(folder.path()).mkdir("self"));
        QFile map(folder.filePath("self/uid_map"));
        QVERIFY(map.open(QIODevice::WriteOnly));
        QVERIFY(!isMappedUser(1000, root));
        QVERIFY(map.write("65534 0 1\n") > 0 && map.flush());
        QVERIFY(isMappedUser(65534, root));
        QVERIFY(!isMappedUser(1000, root));
    }

    void thisUser() { QVERIFY(isMappedUser(geteuid())); }
};

QTEST_GUILESS_MAIN(TestIsMappedUser)
#include "test_isMappedUser.moc"
