#include <sys/prctl.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QMetaMethod>
#include <QSignalSpy>
#include <QTest>

#include "CaptureStdout.h"
#include "ChildProcess.h"
#include "app/WatchDog.h"
#include "app/log/logLine.h"
#include "tests/unit/testRows.h"

namespace {

/// A process of that command name that does nothing until it is killed.
int idleAs(const QByteArray& name) {
    prctl(PR_SET_NAME, name.constData());
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;)
        pause();
}

int idleWithProgramName(const char* name) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    return execl("/bin/sleep", name, "60", nullptr);
}

/// A name that no other process on the machine has.
QByteArray ownName(const char* word) {
    return QByteArray(word) + '-' + QByteArray::number(getpid());
}

} // namespace

class TestWatchDog : public QObject {
    Q_OBJECT

  private slots:
    void cleanup() { logLevel = 3; }

    void methods() {
        const QMetaObject& meta = WatchDog::staticMetaObject;
        QCOMPARE(QByteArray(meta.className()), QByteArray("WatchDog"));
        QCOMPARE(meta.methodCount() - meta.methodOffset(), 2);
        const QMetaMethod first = meta.method(meta.methodOffset());
        QCOMPARE(first.methodSignature(), QByteArray("processKilled()"));
        QCOMPARE(first.methodType(), QMetaMethod::Signal);
        const QMetaMethod second = meta.method(meta.methodOffset() + 1);
        QCOMPARE(second.methodSignature(), QByteArray("onTimeout()"));
        QCOMPARE(second.methodType(), QMetaMethod::Slot);
        WatchDog watchDog("x", 1000);
        QVERIFY(watchDog.parent() == nullptr);
        QVERIFY(watchDog.qt_metacast("WatchDog") == &watchDog);
    }

    void message_data() {
        const auto row = testColumns<QByteArray>("name");
        row("ordinary", ownName("render"));
        row("empty", "");
        row("placeholders", "%1 %2");
        row("UTF-8", QByteArray("Gr\xc3\xbcn"));
        row("whole, however long", QByteArray(100, 'n'));
    }

    void message() {
        QFETCH(QByteArray, name);
        WatchDog watchDog(QString::fromUtf8(name), 1000);
        QSignalSpy killed(&watchDog, &WatchDog::processKilled);
        CaptureStdout output;
        watchDog.onTimeout();
        QCOMPARE(output.take(), "Process '" + name + "' does  not exist, closing...\n");
        QCOMPARE(killed.count(), 1);
    }

    void messageComesBeforeTheSignal() {
        WatchDog watchDog(QString::fromUtf8(ownName("gone")), 1000);
        connect(&watchDog, &WatchDog::processKilled, [] { logLine(3, "signal"); });
        CaptureStdout output;
        watchDog.onTimeout();
        QVERIFY(output.take().endsWith("closing...\nsignal\n"));
    }

    void messageIsProgress() {
        logLevel = 2;
        WatchDog watchDog(QString::fromUtf8(ownName("gone")), 1000);
        QSignalSpy killed(&watchDog, &WatchDog::processKilled);
        CaptureStdout output;
        watchDog.onTimeout();
        QCOMPARE(output.take(), QByteArray());
        QCOMPARE(killed.count(), 1);
    }

    void silentWhileTheProcessLives() {
        const QByteArray name = ownName("alive");
        ChildProcess process([&name] { return idleAs(name); });
        WatchDog watchDog(QString::fromUtf8(name), 1000);
        QSignalSpy killed(&watchDog, &WatchDog::processKilled);
        // The child has its name a moment after the fork.
        QTRY_VERIFY([&] {
            const int before = killed.count();
            CaptureStdout output;
            watchDog.onTimeout();
            return output.take().isEmpty() && killed.count() == before;
        }());
        process.kill();
        process.result();
        killed.clear();
        CaptureStdout output;
        watchDog.onTimeout();
        QCOMPARE(output.take(), "Process '" + name + "' does  not exist, closing...\n");
        QCOMPARE(killed.count(), 1);
    }

    void caseCounts() {
        const QByteArray name = ownName("Cased");
        ChildProcess process([&name] { return idleAs(name); });
        WatchDog exact(QString::fromUtf8(name), 1000);
        WatchDog lower(QString::fromUtf8(name.toLower()), 1000);
        QSignalSpy exactKilled(&exact, &WatchDog::processKilled);
        QSignalSpy lowerKilled(&lower, &WatchDog::processKilled);
        const auto check = [](WatchDog& watchDog) {
            CaptureStdout output;
            watchDog.onTimeout();
        };
        QTRY_VERIFY((exactKilled.clear(), check(exact), exactKilled.isEmpty()));
        check(lower);
        QCOMPARE(lowerKilled.count(), 1);
    }

    void theProgramDoesNotWatchItself() {
        WatchDog watchDog("test_WatchDog", 1000);
        QSignalSpy killed(&watchDog, &WatchDog::processKilled);
        CaptureStdout output;
        watchDog.onTimeout();
        output.take();
        QCOMPARE(killed.count(), 1);
    }

    void longName_data() {
        const auto row = testColumns<QByteArray, QByteArray, bool>("program", "watched", "found");
        const QByteArray name = ownName("a-name-beyond-twenty-five-bytes").rightJustified(40, '-');
        row("24 bytes, the same", name.left(24), name.left(24), true);
        row("24 bytes, the other has more", name, name.left(24), false);
        row("25 bytes are a beginning", name, name.left(25), true);
        row("40 bytes", name, name, true);
        row("alike in the first 25 bytes", name.left(25) + "x", name, true);
        row("alike in the first 24 bytes only", name.left(24) + "xx", name, false);
    }

    void longName() {
        QFETCH(QByteArray, program);
        QFETCH(QByteArray, watched);
        QFETCH(bool, found);
        ChildProcess process([&program] { return idleWithProgramName(program.constData()); });
        QFile commandLine(QString("/proc/%1/cmdline").arg(process.id()));
        QTRY_VERIFY((commandLine.close(), commandLine.open(QIODevice::ReadOnly)) &&
                    commandLine.readAll().startsWith(program + '\0'));
        WatchDog watchDog(QString::fromUtf8(watched), 1000);
        QSignalSpy killed(&watchDog, &WatchDog::processKilled);
        CaptureStdout output;
        watchDog.onTimeout();
        output.take();
        QCOMPARE(killed.isEmpty(), found);
    }

    void firstCheckAfterOneInterval() {
        constexpr int interval = 300;
        WatchDog watchDog(QString::fromUtf8(ownName("gone")), interval);
        WatchDog notStarted(QString::fromUtf8(ownName("gone")), 1);
        QSignalSpy neverKilled(&notStarted, &WatchDog::processKilled);
        QSignalSpy killed(&watchDog, &WatchDog::processKilled);
        CaptureStdout output;
        QElapsedTimer time;
        time.start();
        watchDog.start();
        QCoreApplication::processEvents();
        const int atOnce = killed.count();
        const bool came = killed.wait(20 * interval);
        const qint64 first = time.elapsed();
        // It continues as long as the event loop runs.
        const bool cameAgain = killed.wait(20 * interval);
        const qint64 second = time.elapsed();
        const QByteArray line = "Process '" + ownName("gone") + "' does  not exist, closing...\n";
        QCOMPARE(output.take(), line + line);
        QCOMPARE(atOnce, 0);
        QVERIFY(came && cameAgain);
        QVERIFY2(first >= interval - interval / 20, qPrintable(QString::number(first)));
        QVERIFY2(second >= 2 * interval - interval / 10, qPrintable(QString::number(second)));
        QVERIFY2(second < 8 * interval, qPrintable(QString::number(second)));
        QCOMPARE(neverKilled.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TestWatchDog)
#include "test_WatchDog.moc"
