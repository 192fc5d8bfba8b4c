// The part of ending in order that only the process itself can see; how it ends is seen from outside.
#include <csignal>

#include <sys/resource.h>

#include <QtTest>

#include "ChildProcess.h"
#include "app/EndSignals.h"

namespace {

struct sigaction dispositionOf(int number) {
    struct sigaction now{};
    sigaction(number, nullptr, &now);
    return now;
}

bool isDefault(int number) {
    return dispositionOf(number).sa_handler == SIG_DFL;
}

} // namespace

class TestEndSignals : public QObject {
    Q_OBJECT

  private slots:
    void asksForTheEnd_data() {
        QTest::addColumn<int>("number");
        QTest::newRow("SIGINT") << SIGINT;
        QTest::newRow("SIGTERM") << SIGTERM;
    }

    void asksForTheEnd() {
        QFETCH(int, number);
        EndSignals endSignals;
        QSignalSpy asked(&endSignals, &EndSignals::endRequested);
        QCoreApplication::processEvents();
        QCOMPARE(asked.count(), 0);
        raise(number);
        QCoreApplication::processEvents();
        QCOMPARE(asked.count(), 1);
        // And again, for an event loop that begins later.
        QCoreApplication::processEvents();
        QCOMPARE(asked.count(), 2);
    }

    void callsGoOnAndHandlersDoNotMeet() {
        const struct sigaction hangUp = dispositionOf(SIGHUP);
        const EndSignals endSignals;
        QVERIFY(dispositionOf(SIGHUP).sa_handler == hangUp.sa_handler);
        for (const int number : {SIGINT, SIGTERM}) {
            const struct sigaction now = dispositionOf(number);
            QVERIFY((now.sa_flags & SA_RESTART) != 0);
            QVERIFY(sigismember(&now.sa_mask, SIGINT) == 1 && sigismember(&now.sa_mask, SIGTERM) == 1);
        }
    }

    void leavesTheDefault() {
        {
            const EndSignals endSignals;
        }
        QVERIFY(isDefault(SIGINT) && isDefault(SIGTERM));
    }

    void eachOneBeginsAnew() {
        for (int i = 0; i < 2; ++i) {
            EndSignals endSignals;
            QSignalSpy asked(&endSignals, &EndSignals::endRequested);
            raise(SIGTERM);
            QCoreApplication::processEvents();
            QCOMPARE(asked.count(), 1);
        }
    }

    void theNextOneEndsTheProcess() {
        ChildProcess child([] {
            const EndSignals endSignals;
            raise(SIGINT);
            raise(SIGINT); // the same request
            QTest::qSleep(150);
            raise(SIGTERM);
            return 0;
        });
        QCOMPARE(child.result(), 1000 + SIGTERM);
    }

    void withoutADescriptorNothingChanges() {
        ChildProcess child([] {
            const struct rlimit none{0, 0};
            if (setrlimit(RLIMIT_NOFILE, &none) != 0)
                return 1;
            const EndSignals endSignals;
            return isDefault(SIGINT) && isDefault(SIGTERM) ? 0 : 2;
        });
        QCOMPARE(child.result(), 0);
    }
};

QTEST_GUILESS_MAIN(TestEndSignals)
#include "test_EndSignals.moc"
