#include "reader/status/watch.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <memory>

#include <unistd.h>

#include "reader/status/StatusReport.h"
#include "reader/status/Terminal.h"
#include "reader/status/WatchSignals.h"
#include "reader/status/forms.h"
#include "reader/status/output.h"

namespace qzstatus {

namespace {

using Clock = std::chrono::steady_clock;

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

    /// 0 or the `errno` of the write; EINTR when a signal ends or stops the view.
    int show(const StatusReport& report) {
        if (!screen)
            return writeAll(STDOUT_FILENO, lineForm(report, nowText()), WatchSignals::arePending);
        const TerminalSize size = terminalSize(STDOUT_FILENO);
        return screen->draw(tableForm(report, size.columns > 0 ? size.columns : 80, true), size.rows,
                            WatchSignals::arePending);
    }

    /// Stops the process, with the terminal as it was, until it is continued.
    void suspend() {
        if (screen && takesOutput(STDOUT_FILENO))
            screen->leave();
        WatchSignals::stop();
        if (screen)
            screen->enter();
    }

  private:
    std::unique_ptr<TerminalScreen> screen;
};

/// Shows readings until a signal ends the view (0) or a write fails (its `errno`).
int showReadings(const GpuSegmentReader& reader, const Options& options, const WatchSignals& signals) {
    const auto interval =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.watchSeconds));
    Display display;
    StatusReport report;
    auto next = Clock::now();
    bool redraw = false;
    while (WatchSignals::ending() == 0) {
        if (WatchSignals::takeStop()) {
            display.suspend();
            redraw = display.inPlace();
        }
        if (WatchSignals::takeResize())
            redraw = display.inPlace();
        if (const auto now = Clock::now(); now >= next) {
            report = readReport(reader, options.maxAgeSeconds);
            // At once where the reading itself took longer than the interval (it may wait for the lock).
            next = std::max(next + interval, Clock::now());
            redraw = true;
        }
        if (redraw) {
            if (const int error = display.show(report); error != 0 && error != EINTR)
                return error;
            redraw = false;
        }
        signals.waitUntil(next);
    }
    return 0;
}

} // namespace

int watch(const GpuSegmentReader& reader, const Options& options) {
    const WatchSignals signals(canRedraw(STDOUT_FILENO));
    const int error = showReadings(reader, options, signals);
    if (WatchSignals::ending() == SIGQUIT)
        quitBySignal();
    return error;
}

} // namespace qzstatus
