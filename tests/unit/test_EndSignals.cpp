// The part of an orderly end that only the process itself can see; system tests see the rest.
#include <csignal>

#include <sys/resource.h>

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

#include "ChildProcess.h"
#include "app/EndSignals.h"
#include "tests/unit/testRows.h"

namespace {

constexpr int handled[] = {SIGINT, SIGTERM, SIGHUP};

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
    void initTestCase() {
        // The tests may run under nohup or in the background.
        for (const int number : handled)
            std::signal(number, SIG_DFL);
    }

    void asksForTheEnd_data() {
        const auto row = testColumns<int>("number");
        row("SIGINT", SIGINT);
        row("SIGTERM", SIGTERM);
        row("SIGHUP", SIGHUP);
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
        const struct sigaction quit = dispositionOf(SIGQUIT);
        const EndSignals endSignals;
        QVERIFY(dispositionOf(SIGQUIT).sa_handler == quit.sa_handler);
        for (const int number : handled) {
            const struct sigaction now = dispositionOf(number);
            QVERIFY((now.sa_flags & SA_RESTART) != 0);
            for (const int other : handled)
                QVERIFY(sigismember(&now.sa_mask, other) == 1);
        }
    }

    void leavesTheDefault() {
        {
            const EndSignals endSignals;
        }
        for (const int number : handled)
            QVERIFY(isDefault(number));
    }

    void whatIsIgnoredStaysSo_data() { asksForTheEnd_data(); }

    void whatIsIgnoredStaysSo() {
        QFETCH(int, number);
        ChildProcess child([number] {
            std::signal(number, SIG_IGN);
            int others = 0;
            {
                const EndSignals endSignals;
                raise(number);
                if (dispositionOf(number).sa_handler != SIG_IGN)
                    return 1;
                for (const int other : handled)
                    others += other != number && !isDefault(other);
            }
            return others == 2 && dispositionOf(number).sa_handler == SIG_IGN ? 0 : 2;
        });
        QCOMPARE(child.result(), 0);
    }

    void whatIsBlockedIsUnblocked_data() { asksForTheEnd_data(); }

    void whatIsBlockedIsUnblocked() {
        QFETCH(int, number);
        ChildProcess child([number] {
            sigset_t blocked;
            sigemptyset(&blocked);
            sigaddset(&blocked, number);
            sigprocmask(SIG_BLOCK, &blocked, nullptr);
            EndSignals endSignals;
            QSignalSpy asked(&endSignals, &EndSignals::endRequested);
            raise(number);
            QCoreApplication::processEvents();
            return asked.count() == 1 ? 0 : 1;
        });
        QCOMPARE(child.result(), 0);
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
            return isDefault(SIGINT) && isDefault(SIGTERM) && isDefault(SIGHUP) ? 0 : 2;
        });
        QCOMPARE(child.result(), 0);
    }
};

QTEST_GUILESS_MAIN(TestEndSignals)
#include "test_EndSignals.moc"
