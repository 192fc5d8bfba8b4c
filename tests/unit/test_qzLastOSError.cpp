#include <cerrno>
#include <cstring>

#include <QTest>

#include "support/qzLastOSError.h"

class TestQzLastOSError : public QObject {
    Q_OBJECT

  private slots:
    void text_data() {
        QTest::addColumn<int>("number");
        QTest::addColumn<QString>("text");
        QTest::newRow("no error") << 0 << QStringLiteral("Success");
        QTest::newRow("ENOENT") << ENOENT << QStringLiteral("No such file or directory");
        QTest::newRow("ENOSPC") << ENOSPC << QStringLiteral("No space left on device");
        QTest::newRow("unknown") << 99999 << QStringLiteral("Unknown error 99999");
        QTest::newRow("negative") << -2 << QStringLiteral("Unknown error -2");
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
