#include <cerrno>
#include <cstring>

#include <QTest>

#include "support/qzLastOSError.h"
#include "tests/unit/testRows.h"

class TestQzLastOSError : public QObject {
    Q_OBJECT

  private slots:
    void text_data() {
        const auto row = testColumns<int, QString>("number", "text");
        row("no error", 0, QStringLiteral("Success"));
        row("ENOENT", ENOENT, QStringLiteral("No such file or directory"));
        row("ENOSPC", ENOSPC, QStringLiteral("No space left on device"));
        row("unknown", 99999, QStringLiteral("Unknown error 99999"));
        row("negative", -2, QStringLiteral("Unknown error -2"));
    }

    void text() {
        QFETCH(int, number);
        QFETCH(QString, text);
        errno = EBADF;
        const QString returned = qzLastOSError(number);
        const int kept = errno;
        QCOMPARE(returned, text);
        QCOMPARE(kept, EBADF);
    }

    void minusOneIsTheCurrentError() {
        errno = EACCES;
        const QString returned = qzLastOSError(-1);
        const int kept = errno;
        QCOMPARE(returned, QStringLiteral("Permission denied"));
        QCOMPARE(kept, EACCES);
    }
};

QTEST_APPLESS_MAIN(TestQzLastOSError)
#include "test_qzLastOSError.moc"
