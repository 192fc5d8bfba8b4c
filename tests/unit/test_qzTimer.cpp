#include <limits>

#include <QTest>

#include "support/qzTimer.h"
#include "tests/unit/testRows.h"

using namespace std::chrono_literals;

class TestQzTimer : public QObject {
    Q_OBJECT

  private slots:
    void runsFromConstruction() {
        const auto before = std::chrono::steady_clock::now();
        const qzTimer timer;
        const auto built = std::chrono::steady_clock::now();
        QTest::qSleep(30);
        const auto asked = std::chrono::steady_clock::now();
        const int elapsed = timer.elapsed();
        const auto after = std::chrono::steady_clock::now();
        QVERIFY(elapsed >= wholeMilliseconds(asked - built));
        QVERIFY(elapsed <= wholeMilliseconds(after - before));
        QVERIFY(elapsed >= 30);
    }

    void elapsedKeepsRunning() {
        const qzTimer timer;
        QTest::qSleep(20);
        const int first = timer.elapsed();
        QTest::qSleep(20);
        QVERIFY(timer.elapsed() >= first + 20);
    }

    void restartTellsAndStartsAgain() {
        qzTimer timer;
        QTest::qSleep(50);
        const auto beforeRestart = std::chrono::steady_clock::now();
        QVERIFY(timer.restart() >= 50);
        const int sinceRestart = timer.elapsed();
        QVERIFY(sinceRestart <= wholeMilliseconds(std::chrono::steady_clock::now() - beforeRestart));
        QTest::qSleep(20);
        QVERIFY(timer.restart() >= 20);
    }

    void milliseconds_data() {
        const auto row = testColumns<qint64, int>("nanoseconds", "milliseconds");
        row("none", qint64(0), 0);
        row("just below one", qint64(999999), 0);
        row("one", qint64(1000000), 1);
        row("rounded down", qint64(1999999), 1);
        row("24 days", qint64(2147483647) * 1000000, std::numeric_limits<int>::max());
        row("25 days", qint64(2147483648) * 1000000, std::numeric_limits<int>::max());
        row("a year", qint64(365) * 86400 * 1000000000, std::numeric_limits<int>::max());
        row("backwards", qint64(-5000000), 0);
    }

    void milliseconds() {
        QFETCH(qint64, nanoseconds);
        QFETCH(int, milliseconds);
        QCOMPARE(wholeMilliseconds(std::chrono::nanoseconds(nanoseconds)), milliseconds);
    }
};

QTEST_APPLESS_MAIN(TestQzTimer)
#include "test_qzTimer.moc"
