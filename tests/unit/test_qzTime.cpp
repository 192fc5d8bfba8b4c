#include <cstdlib>

#include <QTest>

#include "support/qzTime.h"
#include "tests/unit/testRows.h"

class TestQzTime : public QObject {
    Q_OBJECT

  private slots:
    void text_data() {
        const auto row = testColumns<QByteArray, qint64, QByteArray>("zone", "seconds", "text");
        row("single digits", "UTC", qint64(1770012183), "02-02 06:03:03");
        row("afternoon", "UTC", qint64(1795275850), "11-21 15:44:10");
        row("local time", "XYZ-5:30", qint64(1795275850), "11-21 21:14:10");
        row("last second of a year", "UTC", qint64(1798761599), "12-31 23:59:59");
        row("before 1970", "UTC", qint64(-1), "12-31 23:59:59");
        row("year out of range", "UTC", std::numeric_limits<qint64>::max(), "");
    }

    void text() {
        QFETCH(QByteArray, zone);
        QFETCH(qint64, seconds);
        QFETCH(QByteArray, text);
        qputenv("TZ", zone);
        QCOMPARE(QByteArray(_qzTime(std::time_t(seconds)).asString8_Md_hms().c_str()), text);
    }

    void now() {
        qputenv("TZ", "XYZ-5:30");
        const auto text = [](std::time_t time) {
            return QByteArray(_qzTime(time).asString8_Md_hms().c_str());
        };
        const std::time_t before = std::time(nullptr);
        const QByteArray taken(_qzTime(true).asString8_Md_hms().c_str());
        const std::time_t after = std::time(nullptr);
        bool within = false;
        for (std::time_t time = before; time <= after; ++time)
            within = within || taken == text(time);
        QVERIFY2(within, taken.constData());
    }

    void notNowIsTheEpoch() {
        qputenv("TZ", "UTC");
        QCOMPARE(QByteArray(_qzTime(false).asString8_Md_hms().c_str()), QByteArray("01-01 00:00:00"));
    }
};

QTEST_APPLESS_MAIN(TestQzTime)
#include "test_qzTime.moc"
