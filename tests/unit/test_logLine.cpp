#include <cstdio>

#include <QTest>

#include "CaptureStdout.h"
#include "app/log/logLine.h"
#include "app/log/output.h"
#include "support/qzTime.h"
#include "tests/unit/testRows.h"

class TestLogLine : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase() {
        QCOMPARE(logLevel, 3);
        QVERIFY(!logTimeStamps);
    }

    void cleanup() {
        logLevel = 3;
        logTimeStamps = false;
    }

    void level_data() {
        const auto row = testColumns<int, int, bool>("current", "level", "shown");
        for (int current = 0; current <= 5; ++current)
            for (int level = 0; level <= 5; ++level)
                QTest::addRow("level %d at %d", level, current) << current << level << (level <= current);
        row("far above", 5, 1000, false);
        row("below all levels", -1, 0, false);
    }

    void level() {
        QFETCH(int, current);
        QFETCH(int, level);
        QFETCH(bool, shown);
        logLevel = current;
        CaptureStdout output;
        logLine(level, "text");
        QCOMPARE(output.take(), QByteArray(shown ? "text\n" : ""));
    }

    void message_data() {
        const auto row = testColumns<QString, QByteArray>("message", "bytes");
        row("empty", "", "\n");
        row("null", QString(), "\n");
        row("one line break", "\n", "\n\n");
        row("line break first", "\na", "\na\n");
        row("line break last", "a\n", "a\n\n");
        row("placeholders", "%1 %s %n %%", "%1 %s %n %%\n");
        row("two bytes", QString(QChar(0xe4)), QByteArray("\xc3\xa4\n"));
        row("three bytes", QString(QChar(0x20ac)), QByteArray("\xe2\x82\xac\n"));
        row("beyond 16 bits", QString::fromUtf8("\xf0\x9f\x98\x80"), QByteArray("\xf0\x9f\x98\x80\n"));
        row("long", QString(100000, 'x'), QByteArray(100000, 'x') + "\n");
    }

    void message() {
        QFETCH(QString, message);
        QFETCH(QByteArray, bytes);
        CaptureStdout output;
        logLine(3, message);
        QCOMPARE(output.take(), bytes);
    }

    void timeStamp() {
        logTimeStamps = true;
        const QByteArray before(_qzTime(true).asString8_Md_hms().c_str());
        CaptureStdout output;
        logLine(3, QString::fromUtf8("\xc3\xa4"));
        const QByteArray line = output.take();
        const QByteArray after(_qzTime(true).asString8_Md_hms().c_str());
        QVERIFY(!before.isEmpty());
        QVERIFY2(line == before + "| \xc3\xa4\n" || line == after + "| \xc3\xa4\n", line.constData());
    }

    void timeStampOnlyOnWhatIsShown() {
        logTimeStamps = true;
        CaptureStdout output;
        logLine(4, "text");
        QCOMPARE(output.take(), QByteArray());
    }

    void severalMessages() {
        CaptureStdout output;
        logLines(3, {"a", "", "b"});
        logLines(4, {"hidden"});
        QCOMPARE(output.take(), QByteArray("a\n\nb\n"));
    }

    void flushing() {
        std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
        CaptureStdout output;
        logLine(3, "text");
        const QByteArray before = output.written();
        flushOutput();
        const QByteArray after = output.written();
        output.take();
        QCOMPARE(before, QByteArray());
        QCOMPARE(after, QByteArray("text\n"));
    }
};

QTEST_APPLESS_MAIN(TestLogLine)
#include "test_logLine.moc"
