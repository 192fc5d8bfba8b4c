#include <QTest>

#include "CaptureStdout.h"
#include "app/banner.h"

class TestBanner : public QObject {
    Q_OBJECT

  private slots:
    void longOne() {
        const QByteArray rule =
            ". ----------------------------------------------------------------\n"; // 64 of them
        CaptureStdout output;
        printLongBanner();
        QCOMPARE(output.take(), rule +
                                    ". qzGpuInfo  " QZ_TEST_VERSION "\n"
                                    ". " QZ_TEST_LEGAL_NOTICE "\n" +
                                    rule);
    }

    void shortOne() {
        CaptureStdout output;
        printShortBanner();
        QCOMPARE(output.take(), QByteArray(". qzGpuInfo  " QZ_TEST_VERSION "\n"));
    }

    void verbose() {
        CaptureStdout output;
        printVerboseNotice();
        QCOMPARE(output.take(), QByteArray(". Verbose enabled\n"));
    }
};

QTEST_APPLESS_MAIN(TestBanner)
#include "test_banner.moc"
