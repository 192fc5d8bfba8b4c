// The signals that end, stop or redraw the watched view.
#pragma once

#include <chrono>
#include <csignal>

namespace qzstatus {

/// While it lives, signals are recorded and interrupt a blocking `write`, so that the view can end or stop in
/// order. One second after such a signal the process ends or stops in any case, with the terminal's modes as
/// they were: its output may never take another byte. A signal that was ignored stays ignored; one that was
/// blocked is unblocked. One object at a time.
class WatchSignals {
  public:
    /// `inPlace`: the terminal has to be restored before SIGTSTP stops the process.
    explicit WatchSignals(bool inPlace);
    ~WatchSignals();
    WatchSignals(const WatchSignals&) = delete;
    WatchSignals& operator=(const WatchSignals&) = delete;

    /// SIGINT, SIGTERM, SIGHUP or SIGQUIT, whichever came first; 0 before.
    static int ending();

    /// Whether output must not wait any longer, since a signal is to end or stop the view.
    static bool arePending();

    /// Whether SIGTSTP came, or the terminal was resized, since the last call.
    static bool takeStop();
    static bool takeResize();

    /// Returns at the deadline, at the first signal, or when there is something to read from `input`. If that
    /// is a terminal (-1: none), also when standard output was closed.
    void waitUntil(std::chrono::steady_clock::time_point deadline, int input = -1) const;

    /// Stops the process as SIGTSTP does by default, until SIGCONT. In an orphaned process group, which
    /// nothing would continue, the kernel ignores it and this returns at once.
    static void stop();

  private:
    sigset_t caught{};
    sigset_t maskBefore{};
};

/// Ends the process by SIGQUIT's default action.
[[noreturn]] void quitBySignal();

} // namespace qzstatus
