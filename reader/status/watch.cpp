#include "reader/status/watch.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstring>
#include <ctime>
#include <memory>
#include <vector>

#include <langinfo.h>
#include <unistd.h>

#include "reader/status/StatusReport.h"
#include "reader/status/Terminal.h"
#include "reader/status/WatchFrame.h"
#include "reader/status/WatchHistory.h"
#include "reader/status/WatchScreen.h"
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

/// Whether the user's locale has characters beyond ASCII. The program's own has, wherever it runs.
bool isAsciiLocale() {
    const locale_t users = ::newlocale(LC_CTYPE_MASK, "", nullptr);
    if (users == nullptr)
        return true;
    const bool unicode = std::strcmp(::nl_langinfo_l(CODESET, users), "UTF-8") == 0;
    ::freelocale(users);
    return !unicode;
}

class Display {
  public:
    Display() : screen(WatchScreen::open()), ascii(isAsciiLocale()) {}

    bool inPlace() const { return screen != nullptr; }
    int keyInput() const { return screen ? screen->keyInput() : -1; }

    /// The terminal of a view in place is gone.
    bool isGone() const { return screen && screen->isGone(); }

    void remember(const StatusReport& report) {
        if (screen)
            history.add(report);
    }

    /// 0 or the `errno` of the write; EINTR when a signal ends or stops the view.
    int show(const StatusReport& report) {
        if (!screen)
            return writeAll(STDOUT_FILENO, lineForm(report, nowText()), WatchSignals::arePending);
        const WatchFrame frame = layOut(report, history, view, {screen->columns(), screen->rows(), ascii});
        shown = frame.shown;
        screen->draw(frame.lines);
        return 0;
    }

    void resize() {
        if (screen)
            screen->resize();
    }

    /// Stops the process, with the terminal as it was, until it is continued.
    void suspend() {
        if (screen && takesOutput(STDOUT_FILENO))
            screen->leave();
        WatchSignals::stop();
        resize(); // it may have another size since
    }

    /// Does what the pressed keys ask for.
    enum class Pressed { Nothing, Something, Quit };
    Pressed takeKeys() {
        Pressed pressed = Pressed::Nothing;
        for (const Key key : screen ? screen->takeKeys() : std::vector<Key>{}) {
            if (!applyKey(key, view, shown))
                return Pressed::Quit;
            pressed = Pressed::Something;
        }
        return pressed;
    }

  private:
    std::unique_ptr<WatchScreen> screen;
    bool ascii;
    WatchHistory history;
    WatchView view;
    ShownPart shown;
};

/// Shows readings until a key or a signal ends the view (0) or a write fails (its `errno`).
int showReadings(const GpuSegmentReader& reader, const Options& options, const WatchSignals& signals) {
    const auto interval =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.watchSeconds));
    Display display;
    StatusReport report;
    auto next = Clock::now();
    bool redraw = false;
    while (WatchSignals::ending() == 0) {
        if (display.isGone())
            return EIO;
        if (WatchSignals::takeStop()) {
            display.suspend();
            redraw = display.inPlace();
        }
        if (WatchSignals::takeResize()) {
            display.resize();
            redraw = display.inPlace();
        }
        const Display::Pressed pressed = display.takeKeys();
        if (pressed == Display::Pressed::Quit)
            return 0;
        redraw = redraw || pressed == Display::Pressed::Something;
        if (const auto now = Clock::now(); now >= next) {
            report = readReport(reader, options.maxAgeSeconds);
            display.remember(report);
            // At once where the reading itself took longer than the interval (it may wait for the lock).
            next = std::max(next + interval, Clock::now());
            redraw = true;
        }
        if (redraw) {
            if (const int error = display.show(report); error != 0 && error != EINTR)
                return error;
            redraw = false;
        }
        signals.waitUntil(next, display.keyInput());
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
