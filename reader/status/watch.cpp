#include "reader/status/watch.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "reader/status/StatusReport.h"
#include "reader/status/Terminal.h"
#include "reader/status/forms.h"
#include "reader/status/output.h"
#include "support/FileDescriptor.h"

namespace qzstatus {

namespace {

using Clock = std::chrono::steady_clock;

/// The signals that matter here, taken one at a time between two readings instead of anywhere.
class Signals {
  public:
    Signals() {
        ::sigemptyset(&caught);
        for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGTSTP})
            ::sigaddset(&caught, number);
        ::sigprocmask(SIG_BLOCK, &caught, &before);
        pending = FileDescriptor(::signalfd(-1, &caught, SFD_CLOEXEC | SFD_NONBLOCK));
        if (!pending.isOpen()) // then they act as they always do, rather than not at all
            ::sigprocmask(SIG_SETMASK, &before, nullptr);
    }
    ~Signals() { ::sigprocmask(SIG_SETMASK, &before, nullptr); }
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    /// The next signal's number; 0 once `deadline` has passed without one.
    int waitUntil(Clock::time_point deadline) const {
        for (;;) {
            constexpr std::int64_t longestPoll = 60'000;
            const std::int64_t left =
                std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
            pollfd waiting{pending.get(), POLLIN, 0};
            const int ready =
                ::poll(&waiting, 1, static_cast<int>(std::clamp(left, std::int64_t{0}, longestPoll)));
            signalfd_siginfo signal{};
            if (ready > 0 && ::read(pending.get(), &signal, sizeof signal) == sizeof signal)
                return static_cast<int>(signal.ssi_signo);
            if (left <= 0)
                return 0;
        }
    }

  private:
    sigset_t caught{};
    sigset_t before{};
    FileDescriptor pending;
};

std::string nowText() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    ::gmtime_r(&now, &utc);
    char text[40];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

class Display {
  public:
    Display() {
        if (canRedraw(STDOUT_FILENO))
            screen = std::make_unique<TerminalScreen>(STDOUT_FILENO);
    }

    bool inPlace() const { return screen != nullptr; }

    /// 0 or the `errno` of the write.
    int show(const StatusReport& report) {
        if (!screen)
            return writeAll(STDOUT_FILENO, lineForm(report, nowText()));
        const TerminalSize size = terminalSize(STDOUT_FILENO);
        return screen->draw(tableForm(report, size.columns > 0 ? size.columns : 80, true), size.rows);
    }

    /// Stops this process as Ctrl-Z asks, with the terminal as it was, and goes on after it.
    void suspend() {
        if (screen)
            screen->leave();
        ::raise(SIGSTOP);
        if (screen)
            screen->enter();
    }

  private:
    std::unique_ptr<TerminalScreen> screen;
};

} // namespace

int watch(const GpuSegmentReader& reader, const Options& options) {
    const auto interval =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.watchSeconds));
    const Signals signals;
    Display display;
    auto next = Clock::now();
    StatusReport report;
    for (;;) {
        report = readReport(reader, options.maxAgeSeconds);
        if (const int error = display.show(report))
            return error;
        // At once where the reading itself took longer than the interval (it may wait for the lock).
        next = std::max(next + interval, Clock::now());
        while (const int signal = signals.waitUntil(next)) {
            if (signal == SIGTSTP)
                display.suspend();
            else if (signal != SIGWINCH)
                return 0;
            const int error = display.inPlace() ? display.show(report) : 0;
            if (error != 0)
                return error;
        }
    }
}

} // namespace qzstatus
