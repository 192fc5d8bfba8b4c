#include <cstdio>
#include <functional>
#include <iostream>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

#include <QTest>

#include "CaptureStdout.h"
#include "OutputChannel.h"
#include "app/log/output.h"
#include "tests/unit/testRows.h"

namespace {

/// Runs between the check that output is ready and the write.
std::function<void()> meanwhile;

} // namespace

// Before the C library's.
extern "C" int pollAndMore(pollfd* asked, nfds_t count, int timeout) __asm__("poll");
extern "C" int pollAndMore(pollfd* asked, nfds_t count, int timeout) {
    static auto* const next = reinterpret_cast<decltype(&pollAndMore)>(dlsym(RTLD_NEXT, "poll"));
    const int result = next(asked, count, timeout);
    if (meanwhile)
        meanwhile();
    return result;
}

class TestOutput : public QObject {
    Q_OBJECT

  private slots:
    void linesAndFlushes_data() { addChannels(); }
    void linesAndFlushes() {
        QFETCH(QByteArray, kind);
        QFETCH(QByteArray, how);
        const auto output = OutputChannel::make(kind);
        const auto errors = OutputChannel::make("pipe");
        QVERIFY(output != nullptr);
        const int result = runWith(
            output->writing, errors->writing,
            [] {
                printLine("before");
                const NonBlockingOutput nonBlocking;
                printLine("");
                printLine("a\nb");
                printLine(std::string(3000, 'x').c_str());
                flushOutput();
                return 0;
            },
            how);
        QCOMPARE(result, 0);
        QCOMPARE(output->drain(), "before\n\na\nb\n" + QByteArray(3000, 'x') + '\n');
        QCOMPARE(errors->drain(), QByteArray());
    }

    void fullFromTheStart_data() { addChannels(); }
    void fullFromTheStart() {
        QFETCH(QByteArray, kind);
        QFETCH(QByteArray, how);
        const auto output = OutputChannel::make(kind);
        const auto errors = OutputChannel::make("pipe");
        output->fill();
        const int result = runWith(
            output->writing, errors->writing,
            [] {
                const NonBlockingOutput nonBlocking;
                for (int i = 0; i < 7; ++i)
                    printLine("line");
                flushOutput();
                return 0;
            },
            how);
        QCOMPARE(result, 0);
        QCOMPARE(output->drain().replace('.', ""), QByteArray());
        QCOMPARE(errors->drain(), droppedMessage(7));
    }

    void fillsLater_data() { addChannels(); }
    /// Every line that arrives is whole, the rest is counted, and lines after the reader is back arrive.
    void fillsLater() {
        QFETCH(QByteArray, kind);
        QFETCH(QByteArray, how);
        constexpr int many = 20000;
        const auto output = OutputChannel::make(kind);
        const auto errors = OutputChannel::make("pipe");
        const auto flags = fcntl(output->writing, F_GETFL);
        QByteArray early;
        const Signpost full;
        const Signpost drained;
        ChildProcess child([&] {
            return runWith(
                output->writing, errors->writing,
                [&] {
                    const NonBlockingOutput nonBlocking;
                    for (int i = 0; i < many; ++i)
                        printLine("a line of 32 bytes, its end too");
                    full.give();
                    drained.await();
                    printLine("after");
                    return 0;
                },
                how);
        });
        QVERIFY(full.await());
        early = output->drain();
        // The parent's shared file description still blocks.
        QCOMPARE(fcntl(output->writing, F_GETFL), flags);
        drained.give();
        QCOMPARE(child.result(), 0);
        QByteArrayList lines = (early + output->drain()).split('\n');
        QCOMPARE(lines.takeLast(), QByteArray());
        QCOMPARE(lines.takeLast(), QByteArray("after"));
        int whole = 0;
        int torn = 0;
        for (const QByteArray& line : qAsConst(lines)) {
            whole += line == "a line of 32 bytes, its end too";
            torn += line != "a line of 32 bytes, its end too";
        }
        QVERIFY(whole > 10);
        // A terminal or a socket accepts what fits.
        QVERIFY2(torn <= (kind == "pipe" ? 0 : 1), qPrintable(QString::number(torn)));
        QCOMPARE(errors->drain(), droppedMessage(many - whole));
    }

    void longLines_data() { addChannels(); }
    /// A line that fits only in part is cut; the next one starts on a new line.
    void longLines() {
        QFETCH(QByteArray, kind);
        QFETCH(QByteArray, how);
        const auto output = OutputChannel::make(kind);
        const auto errors = OutputChannel::make("pipe");
        const Signpost full;
        const Signpost drained;
        ChildProcess child([&] {
            return runWith(
                output->writing, errors->writing,
                [&] {
                    const NonBlockingOutput nonBlocking;
                    printLine(std::string(10000, 'x').c_str());
                    printLine(std::string(10'000'000, 'y').c_str());
                    full.give();
                    drained.await();
                    printLine("after");
                    printLine("the end");
                    return 0;
                },
                how);
        });
        QVERIFY(full.await());
        const QByteArray early = output->drain();
        drained.give();
        QCOMPARE(child.result(), 0);
        const QByteArrayList lines = (early + output->drain()).split('\n');
        QCOMPARE(errors->drain(), droppedMessage(1));
        QCOMPARE(lines.size(), 5);
        QCOMPARE(lines[0], QByteArray(10000, 'x'));
        QVERIFY(lines[1].size() > 0 && lines[1].size() < 10'000'000);
        QCOMPARE(lines[1].count('y'), lines[1].size());
        QCOMPARE(lines.mid(2), QByteArrayList({"after", "the end", ""}));
    }

    void whatLibrariesPrint_data() {
        const auto row = testColumns<QByteArray>("kind");
        for (const char* kind : {"pipe", "terminal"})
            row(kind, QByteArray(kind));
    }

    void whatLibrariesPrint() {
        QFETCH(QByteArray, kind);
        const auto output = OutputChannel::make(kind);
        output->fill();
        const int result = runWith(
            output->writing, output->writing,
            [] {
                const NonBlockingOutput nonBlocking;
                const std::string much(100000, 'l');
                std::puts(much.c_str());
                std::printf("%s", much.c_str());
                std::cout << much << std::endl;
                std::cerr << much;
                if (write(STDOUT_FILENO, much.data(), much.size()) > 0)
                    return 1;
                printLine("line");
                flushOutput();
                return 0;
            },
            reopened);
        QCOMPARE(result, 0);
        QCOMPARE(output->drain().replace('.', ""), QByteArray());
    }

    void aLibrarysUnfinishedLineKeepsItsPlace_data() { addChannels(); }
    void aLibrarysUnfinishedLineKeepsItsPlace() {
        QFETCH(QByteArray, kind);
        QFETCH(QByteArray, how);
        const auto output = OutputChannel::make(kind);
        const auto errors = OutputChannel::make("pipe");
        const int result = runWith(
            output->writing, errors->writing,
            [] {
                const NonBlockingOutput nonBlocking;
                std::printf("a library says ");
                printLine("line");
                std::printf("and at the end");
                return 0;
            },
            how);
        QCOMPARE(result, 0);
        QCOMPARE(output->drain(), QByteArray("a library says line\nand at the end"));
    }

    void aLibrarysUnfinishedLineIsDropped_data() { addChannels(); }
    void aLibrarysUnfinishedLineIsDropped() {
        QFETCH(QByteArray, kind);
        QFETCH(QByteArray, how);
        const auto output = OutputChannel::make(kind);
        const auto errors = OutputChannel::make("pipe");
        output->fill();
        for (const bool flushed : {false, true}) {
            const int result = runWith(
                output->writing, errors->writing,
                [flushed] {
                    const NonBlockingOutput nonBlocking;
                    std::printf("a library says");
                    if (flushed)
                        flushOutput();
                    return 0;
                },
                how);
            QCOMPARE(result, 0);
        }
        QCOMPARE(output->drain().replace('.', ""), QByteArray());
        QCOMPARE(errors->drain(), QByteArray());
    }

    /// With 2>&1 the number of dropped lines is dropped as well.
    void neighboursFillIt_data() {
        const auto row = testColumns<QByteArray, QByteArray>("kind", "how");
        row("pipe", "pipe", QByteArray(reopened));
        row("terminal", "terminal", QByteArray(reopened));
        row("socket", "socket", QByteArray(notReopened));
    }

    /// Ready when checked, full when the line is written.
    void neighboursFillIt() {
        QFETCH(QByteArray, kind);
        QFETCH(QByteArray, how);
        const auto output = OutputChannel::make(kind);
        const auto errors = OutputChannel::make("pipe");
        const int result = runWith(
            output->writing, errors->writing,
            [&output] {
                const NonBlockingOutput nonBlocking;
                meanwhile = [&output] {
                    output->fill();
                    meanwhile = nullptr;
                };
                printLine("line");
                return 0;
            },
            how);
        QCOMPARE(result, 0);
        QCOMPARE(output->drain().replace('.', ""), QByteArray());
        QCOMPARE(errors->drain(), droppedMessage(1));
    }

    void errorsGoTheSameWay_data() { addChannels(); }
    void errorsGoTheSameWay() {
        QFETCH(QByteArray, kind);
        QFETCH(QByteArray, how);
        const auto output = OutputChannel::make(kind);
        output->fill();
        const int result = runWith(
            output->writing, output->writing,
            [] {
                const NonBlockingOutput nonBlocking;
                printLine("line");
                return 0;
            },
            how);
        QCOMPARE(result, 0);
        QCOMPARE(output->drain().replace('.', ""), QByteArray());
    }

    void aStoppedTerminal_data() {
        const auto row = testColumns<QByteArray>("how");
        row("reopened", QByteArray(reopened));
        row("not reopened", QByteArray(notReopened));
    }

    void aStoppedTerminal() {
        QFETCH(QByteArray, how);
        const auto output = OutputChannel::make("terminal");
        const auto errors = OutputChannel::make("pipe");
        QVERIFY(tcflow(output->writing, TCOOFF) == 0);
        const int result = runWith(
            output->writing, errors->writing,
            [] {
                const NonBlockingOutput nonBlocking;
                printLine("line");
                return 0;
            },
            how);
        QCOMPARE(result, 0);
        QCOMPARE(errors->drain(), droppedMessage(1));
        QVERIFY(tcflow(output->writing, TCOON) == 0);
        QCOMPARE(output->drain(), QByteArray());
    }

    void failedOutputIsNotCounted_data() {
        const auto row = testColumns<QByteArray>("where");
        row("full disk", "/dev/full");
        row("no file", "/");
        row("reader that is gone", QByteArray());
    }

    void failedOutputIsNotCounted() {
        QFETCH(QByteArray, where);
        auto output = OutputChannel::make("pipe");
        const auto errors = OutputChannel::make("pipe");
        close(output->reading);
        output->reading = -1;
        const int opened = where.isEmpty()
                               ? dup(output->writing)
                               : open(where.constData(), O_CLOEXEC | (where == "/" ? O_RDONLY : O_WRONLY));
        const int result = runWith(
            opened, errors->writing,
            [] {
                std::signal(SIGPIPE, SIG_IGN);
                const NonBlockingOutput nonBlocking;
                printLine("line");
                return 0;
            },
            reopened);
        close(opened);
        QCOMPARE(result, 0);
        QCOMPARE(errors->drain(), QByteArray());
    }

    /// A sandbox that filters system calls may do this.
    void flagsThatCannotBeRead() {
        const auto output = OutputChannel::make("pipe");
        const auto errors = OutputChannel::make("pipe");
        const int result = runWith(
            output->writing, errors->writing,
            [] {
                if (!refuse({SYS_fcntl, F_GETFL, EPERM, 1}))
                    return notPossible;
                const NonBlockingOutput nonBlocking;
                printLine("line");
                return 0;
            },
            reopened);
        QCOMPARE(result, 0);
        QCOMPARE(output->drain(), QByteArray("line\n"));
    }

    /// A file's offset is shared with other writers: `{ qzGpuInfo; date; } > file`.
    void aFileIsNotReopened() {
        CaptureStdout output;
        const int others = dup(STDOUT_FILENO);
        [[maybe_unused]] ssize_t written = write(others, "a\n", 2);
        {
            const NonBlockingOutput nonBlocking;
            printLine("b");
            written = write(others, "c\n", 2);
            printLine("d");
        }
        close(others);
        QCOMPARE(output.take(), QByteArray("a\nb\nc\nd\n"));
    }

    void afterwardsOutputWaitsAgain() {
        CaptureStdout output;
        {
            const NonBlockingOutput nonBlocking;
        }
        std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
        printLine("text");
        const QByteArray before = output.written();
        std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
        output.take();
        QCOMPARE(before, QByteArray());
    }
};

QTEST_APPLESS_MAIN(TestOutput)
#include "test_output.moc"
