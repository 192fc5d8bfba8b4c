// Streams of a process under test that accept as much as the test wants.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include <fcntl.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

#include <QTest>

#include "ChildProcess.h"
#include "RefusedCall.h"

inline constexpr char reopened[] = "reopened";
inline constexpr char notReopened[] = "not reopened";

/// A stream of a process: what is written to `writing` is read from `reading`.
struct OutputChannel {
    ~OutputChannel() {
        close(reading);
        close(writing);
    }

    static std::unique_ptr<OutputChannel> make(const QByteArray& kind) {
        auto channel = std::make_unique<OutputChannel>();
        int ends[2] = {-1, -1};
        if (kind == "pipe" && pipe2(ends, O_CLOEXEC) == 0) {
            channel->reading = ends[0];
            channel->writing = ends[1];
        } else if (kind == "socket" && socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0) {
            channel->reading = ends[0];
            channel->writing = ends[1];
        } else if (kind == "terminal") {
            termios plain{};
            cfmakeraw(&plain);
            if (openpty(&channel->reading, &channel->writing, nullptr, &plain, nullptr) != 0)
                return nullptr;
        }
        return channel;
    }

    /// Writes until nothing more fits. A terminal may make room for a moment after it was full.
    void fill() const {
        const int flags = fcntl(writing, F_GETFL);
        fcntl(writing, F_SETFL, flags | O_NONBLOCK);
        const std::string dots(4096, '.');
        for (int quietRounds = 0; quietRounds < 5; ++quietRounds) {
            for (const std::size_t size : {dots.size(), std::size_t{1}})
                while (write(writing, dots.data(), size) > 0)
                    quietRounds = 0;
            QTest::qSleep(2);
        }
        fcntl(writing, F_SETFL, flags);
    }

    /// All that can be read now.
    QByteArray drain() const {
        fcntl(reading, F_SETFL, O_NONBLOCK);
        QByteArray all;
        char bytes[65536];
        for (ssize_t count = 0; (count = read(reading, bytes, sizeof bytes)) > 0;)
            all.append(bytes, static_cast<int>(count));
        return all;
    }

    int reading = -1;
    int writing = -1;
};

/// Runs `work` in a process with these streams; its exit code. A process that waits for its output is killed.
inline int runWith(int standardOutput, int standardError, const std::function<int()>& work,
                   const QByteArray& how) {
    ChildProcess child([&] {
        alarm(20);
        if (how == notReopened && !refuse({SYS_openat, O_NONBLOCK, EACCES}))
            return notPossible;
        dup2(standardOutput, STDOUT_FILENO);
        dup2(standardError, STDERR_FILENO);
        std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
        return work();
    });
    return child.result();
}

inline QByteArray droppedMessage(int count) {
    return "qzGpuInfo: lines dropped because standard output was not read in time: " +
           QByteArray::number(count) + '\n';
}

inline void addChannels() {
    QTest::addColumn<QByteArray>("kind");
    QTest::addColumn<QByteArray>("how");
    for (const char* kind : {"pipe", "socket", "terminal"})
        for (const char* how : {reopened, notReopened})
            QTest::addRow("%s, %s", kind, how) << QByteArray(kind) << QByteArray(how);
}
