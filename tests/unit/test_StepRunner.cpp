#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QTest>

#include "doctor/steps/Channel.h"
#include "doctor/steps/StepRunner.h"
#include "doctor/steps/processes.h"
#include "tests/unit/ChildProcess.h"
#include "tests/unit/testRows.h"

using namespace doctor;
using namespace std::chrono_literals;
using End = StepOutcome::End;

namespace {

/// For steps that end: no machine is so busy that these matter.
constexpr StepLimits patient{60s, 60s, 60s};
/// For steps that hang.
constexpr StepLimits quick{400ms, 100ms, 10s};

QVector<StepOutcome> outcomesOf(const QVector<Step>& steps, StepLimits limits = patient) {
    return StepRunner(limits).run(steps);
}

StepOutcome outcomeOf(std::function<void(Channel&)> work, bool runsExitHandlers = false,
                      StepLimits limits = patient) {
    return outcomesOf({{"a step", std::move(work), runsExitHandlers}}, limits).constFirst();
}

QStringList kindsOf(const StepOutcome& outcome) {
    QStringList kinds;
    for (const Message& message : outcome.messages)
        kinds += message.kind;
    return kinds;
}

void crash() {
    // A sanitizer would handle it differently.
    std::signal(SIGSEGV, SIG_DFL);
    std::raise(SIGSEGV);
}

void sleepLong() {
    for (int i = 0; i < 600; ++i)
        ::usleep(100'000);
}

/// Whether the process exists and has not ended.
bool isAlive(pid_t pid) {
    const char state = processState(pid);
    return state != '?' && state != 'Z';
}

/// Starts a process that lives on and reports its number; `leaves`: in a separate session, and without a
/// parent.
void startAnother(Channel& channel, bool leaves) {
    int told[2];
    QVERIFY(::pipe(told) == 0);
    if (::fork() == 0) {
        if (leaves)
            ::setsid();
        if (leaves && ::fork() != 0)
            ::_exit(0);
        const pid_t own = ::getpid();
        if (::write(told[1], &own, sizeof own) == sizeof own)
            sleepLong();
        ::_exit(0);
    }
    pid_t other = 0;
    QVERIFY(::read(told[0], &other, sizeof other) == sizeof other);
    channel.send("other", {{"pid", other}});
}

pid_t otherOf(const StepOutcome& outcome) {
    const auto told = outcome.reported("other");
    return told.isEmpty() ? 0 : told.first().value("pid").toInt();
}

} // namespace

class TestStepRunner : public QObject {
    Q_OBJECT

  private slots:
    void tellsAllInOrder() {
        const StepOutcome outcome = outcomeOf([](Channel& channel) {
            std::puts("before");
            channel.begin("first call", {{"device", 3}});
            std::printf("within");
            channel.end({{"status", 7}});
            channel.send("fact", {{"text", QString::fromLatin1("\xe9\n\x01")}});
            QCOMPARE(channel.around("second call", [] { return 42; }), 42);
        });
        QCOMPARE(outcome.end, End::Done);
        QCOMPARE(outcome.inside, QString());
        QCOMPARE(kindsOf(outcome),
                 QStringList({"output", "begin", "output", "end", "fact", "begin", "end", "done"}));
        QCOMPARE(outcome.output(), QByteArray("before\nwithin"));
        QCOMPARE(outcome.messages[1].content, (QJsonObject{{"call", "first call"}, {"device", 3}}));
        QCOMPARE(outcome.messages[3].content, (QJsonObject{{"status", 7}}));
        QCOMPARE(outcome.reported("fact").constFirst().value("text").toString(),
                 QString::fromLatin1("\xe9\n\x01"));
        QVERIFY(outcome.seconds > 0.0 && outcome.seconds < 5.0);
    }

    void whatAChildWritesItselfIsNoMessage() {
        const StepOutcome outcome = outcomeOf([](Channel&) {
            std::fputs("done\n{}", stdout);
            std::fflush(stdout);
            std::fputs("\x01qz", stderr);
            // An empty write is a packet as well.
            QCOMPARE(::write(STDOUT_FILENO, "", 0), ssize_t(0));
            ::_exit(0);
        });
        QCOMPARE(outcome.end, End::Exited);
        QCOMPARE(outcome.code, 0);
        QCOMPARE(outcome.output(), QByteArray("done\n{}\x01qz"));
    }

    void outputIsBounded() {
        const StepOutcome outcome = outcomeOf(
            [](Channel& channel) {
                const std::vector<char> page(4096, 'x');
                for (int i = 0; i < 100; ++i) [[maybe_unused]]
                    const ssize_t written = ::write(STDERR_FILENO, page.data(), page.size());
                channel.send("fact");
            },
            false, {10s, 10s, 1s});
        QCOMPARE(outcome.end, End::Done);
        QCOMPARE(outcome.output().size(), StepRunner::mostOutput);
        QCOMPARE(outcome.reported("fact").size(), 1);
    }

    void badEnds_data() {
        const auto row = testColumns<int, int, int>("kind", "end", "code");
        row("crash", 0, int(End::Crashed), SIGSEGV);
        row("abort", 1, int(End::Crashed), SIGABRT);
        row("exit", 2, int(End::Exited), 3);
        row("exit 0", 3, int(End::Exited), 0);
        row("hang", 4, int(End::TimedOut), 0);
        row("hang that takes no SIGTERM", 5, int(End::TimedOut), 0);
    }

    void badEnds() {
        QFETCH(int, kind);
        const bool hangs = kind >= 4;
        const auto work = [kind](Channel& channel) {
            channel.begin("good call");
            channel.end();
            channel.begin("bad call");
            if (kind == 0)
                crash();
            else if (kind == 1)
                std::abort();
            else if (kind <= 3)
                std::exit(kind == 2 ? 3 : 0);
            if (kind == 5)
                std::signal(SIGTERM, SIG_IGN);
            sleepLong();
        };
        const StepOutcome outcome = outcomeOf(work, false, hangs ? quick : patient);
        QTEST(int(outcome.end), "end");
        QTEST(outcome.code, "code");
        QCOMPARE(outcome.inside, QString("bad call"));
        QVERIFY(!outcome.survived);
        QVERIFY(!hangs || outcome.seconds >= 0.4);
    }

    void crashIsSeenWhereTheParentHadChildrenIgnored() {
        std::signal(SIGCHLD, SIG_IGN);
        const StepOutcome outcome = outcomeOf([](Channel&) { crash(); });
        std::signal(SIGCHLD, SIG_DFL);
        QCOMPARE(outcome.end, End::Crashed);
        QCOMPARE(outcome.code, SIGSEGV);
    }

    void crashAtExitIsSeenWhereExitHandlersRun() {
        const auto crashesAtExit = [](Channel&) { std::atexit(crash); };
        const StepOutcome seen = outcomeOf(crashesAtExit, true);
        QCOMPARE(seen.end, End::Crashed);
        QCOMPARE(seen.inside, QString("exit"));
        QCOMPARE(outcomeOf(crashesAtExit, false).end, End::Done);
        QCOMPARE(outcomeOf([](Channel&) {}, true).end, End::Done);
    }

    void whatAStepStartsIsKilled() {
        for (const bool leaves : {false, true}) {
            const StepOutcome outcome =
                outcomeOf([leaves](Channel& channel) { startAnother(channel, leaves); });
            QCOMPARE(outcome.end, End::Done);
            const pid_t other = otherOf(outcome);
            QVERIFY(other > 0);
            QVERIFY2(!isAlive(other), leaves ? "left the group" : "in the group");
        }
        QVERIFY(childrenOf(::getpid()).empty());
    }

    void aHangingStepsChildrenAreKilled() {
        const auto work = [](Channel& channel) {
            startAnother(channel, true);
            sleepLong();
        };
        const StepOutcome outcome = outcomeOf(work, false, {3s, 100ms, 10s});
        QCOMPARE(outcome.end, End::TimedOut);
        QVERIFY(otherOf(outcome) > 0 && !isAlive(otherOf(outcome)));
    }

    void oneThatSurvivesIsLeft() {
        const auto spare = [](pid_t, int) { return 0; };
        StepRunner runner({400ms, 100ms, 100ms}, {}, spare);
        const StepOutcome outcome =
            runner.run({{"stuck", [](Channel&) { sleepLong(); }, false}}).constFirst();
        QCOMPARE(outcome.end, End::TimedOut);
        QVERIFY(outcome.survived);
        QVERIFY(QByteArray("SR").contains(outcome.state)); // asleep, or on a busy machine about to be
        const auto pid = static_cast<pid_t>(outcome.pid);
        QVERIFY(isAlive(pid));
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }

    void stepsRunOneAfterTheOther() {
        const auto stamp = [](Channel& channel) {
            channel.send("at", {{"ms", double(QDateTime::currentMSecsSinceEpoch())}});
            ::usleep(30'000);
            channel.send("at", {{"ms", double(QDateTime::currentMSecsSinceEpoch())}});
        };
        const auto outcomes =
            outcomesOf({{"1", stamp, false}, {"2", stamp, false}, {"3", stamp, false}}, {10s, 10s, 1s});
        double last = 0.0;
        for (const StepOutcome& outcome : outcomes) {
            const auto stamps = outcome.reported("at");
            for (const QJsonObject& at : stamps) {
                QVERIFY(at.value("ms").toDouble() >= last);
                last = at.value("ms").toDouble();
            }
        }
    }

    void hangingStepsCostTheTimeLimitOnce() {
        const auto hang = [](Channel&) { sleepLong(); };
        const auto quickStep = [](Channel& channel) { channel.send("fact"); };
        QElapsedTimer timer;
        timer.start();
        const auto outcomes =
            outcomesOf({{"1", hang, false}, {"2", quickStep, false}, {"3", hang, false}, {"4", hang, false}},
                       {2s, 100ms, 10s});
        QVERIFY2(timer.elapsed() < 2 * 2000, qPrintable(QString::number(timer.elapsed())));
        for (const int hanging : {0, 2, 3})
            QCOMPARE(outcomes[hanging].end, End::TimedOut);
        QCOMPARE(outcomes[1].end, End::Done);
    }

    void slowStepsAreNamed() {
        QStringList names;
        StepRunner runner({3s, 100ms, 10s}, [&](const QString& name, std::chrono::milliseconds age) {
            QVERIFY(age >= 1s);
            names += name;
        });
        runner.run({{"slow", [](Channel&) { sleepLong(); }, false}, {"fast", [](Channel&) {}, false}});
        QVERIFY(!names.isEmpty() && names.size() <= 20);
        names.removeDuplicates();
        QCOMPARE(names, QStringList("slow"));
    }

    void childrenDieWithTheDoctor() {
        int told[2];
        QVERIFY(::pipe(told) == 0);
        ChildProcess owner([&told] {
            StepRunner({60s, 60s, 1s})
                .run({{"hangs",
                       [&told](Channel&) {
                           const pid_t own = ::getpid();
                           if (::write(told[1], &own, sizeof own) == sizeof own)
                               sleepLong();
                       },
                       false}});
            return 0;
        });
        pid_t child = 0;
        QVERIFY(::read(told[0], &child, sizeof child) == sizeof child);
        QVERIFY(isAlive(child));
        owner.kill();
        QTRY_VERIFY_WITH_TIMEOUT(!isAlive(child), 5000);
    }

    void childrenHaveNoCoreNoInputAndTheirOwnGroup() {
        const StepOutcome outcome = outcomeOf([](Channel& channel) {
            char byte = 0;
            channel.send("own", {{"group", ::getpgrp() == ::getpid()},
                                 {"input", int(::read(STDIN_FILENO, &byte, 1))}});
        });
        QCOMPARE(outcome.reported("own").constFirst(), (QJsonObject{{"group", true}, {"input", 0}}));
    }
};

QTEST_GUILESS_MAIN(TestStepRunner)
#include "test_StepRunner.moc"
