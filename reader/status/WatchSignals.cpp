#include "reader/status/WatchSignals.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <optional>

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "reader/status/exitCodes.h"

namespace qzstatus {

namespace {

constexpr int endingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr unsigned int secondsToEnd = 1;

// All that the handlers can reach.
std::atomic<int> endingSignal{0};
std::atomic<bool> stopAsked{false};
std::atomic<bool> resized{false};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

/// Standard output's modes before the view changed them.
std::optional<termios> modesBefore;

/// Without SA_RESTART, so that a blocking `write` returns.
void install(int signal, void (*handler)(int)) {
    struct sigaction action{};
    action.sa_handler = handler;
    ::sigaction(signal, &action, nullptr);
}

void setModes(const termios& modes) {
    // A job in the background would be stopped for this.
    struct sigaction before{};
    ::sigaction(SIGTTOU, nullptr, &before);
    install(SIGTTOU, SIG_IGN);
    ::tcsetattr(STDOUT_FILENO, TCSANOW, &modes);
    ::sigaction(SIGTTOU, &before, nullptr);
}

void onEnding(int signal) {
    int none = 0;
    if (endingSignal.compare_exchange_strong(none, signal))
        ::alarm(secondsToEnd);
}

void onStop(int /*signal*/) {
    stopAsked = true;
    if (endingSignal == 0)
        ::alarm(secondsToEnd);
}

void onResize(int /*signal*/) {
    resized = true;
}

/// The view waits for its output. All that is called here may be called in a signal handler.
void onTimeUp(int /*signal*/) {
    if (endingSignal != 0) {
        if (modesBefore)
            setModes(*modesBefore);
        if (endingSignal == SIGQUIT)
            quitBySignal();
        ::_exit(ExitCode_Ok);
    }
    if (!stopAsked.exchange(false))
        return;
    termios modes{};
    const bool restored = modesBefore && ::tcgetattr(STDOUT_FILENO, &modes) == 0;
    if (restored)
        setModes(*modesBefore);
    WatchSignals::stop();
    if (restored)
        setModes(modes);
    resized = true; // what is on the screen is not known
}

void installUnlessIgnored(int signal, void (*handler)(int)) {
    struct sigaction before{};
    ::sigaction(signal, nullptr, &before);
    if (before.sa_handler != SIG_IGN)
        install(signal, handler);
}

} // namespace

WatchSignals::WatchSignals(bool inPlace) {
    if (termios modes{}; inPlace && ::tcgetattr(STDOUT_FILENO, &modes) == 0)
        modesBefore = modes;
    ::sigemptyset(&caught);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH, SIGALRM})
        ::sigaddset(&caught, signal);
    for (const int signal : endingSignals)
        installUnlessIgnored(signal, onEnding);
    if (inPlace)
        installUnlessIgnored(SIGTSTP, onStop);
    install(SIGWINCH, onResize);
    install(SIGALRM, onTimeUp);
    ::sigprocmask(SIG_UNBLOCK, &caught, &maskBefore);
}

WatchSignals::~WatchSignals() {
    ::sigprocmask(SIG_SETMASK, &maskBefore, nullptr);
}

int WatchSignals::ending() {
    return endingSignal;
}

bool WatchSignals::arePending() {
    return endingSignal != 0 || stopAsked;
}

bool WatchSignals::takeStop() {
    const bool asked = stopAsked.exchange(false);
    if (asked && endingSignal == 0)
        ::alarm(0);
    return asked;
}

bool WatchSignals::takeResize() {
    return resized.exchange(false);
}

void WatchSignals::waitUntil(std::chrono::steady_clock::time_point deadline, int input) const {
    // Blocked between the question and the wait, or a signal there would be noticed only at the deadline.
    sigset_t unblocked{};
    ::sigprocmask(SIG_BLOCK, &caught, &unblocked);
    const auto left =
        std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - std::chrono::steady_clock::now());
    if (!arePending() && !resized && left.count() > 0) {
        constexpr std::int64_t second = 1'000'000'000;
        const timespec timeout{left.count() / second, left.count() % second};
        pollfd asked[] = {{input, POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
        ::ppoll(asked, input >= 0 ? 2 : 0, &timeout, &unblocked);
    }
    ::sigprocmask(SIG_SETMASK, &unblocked, nullptr);
}

void WatchSignals::stop() {
    install(SIGTSTP, SIG_DFL);
    ::raise(SIGTSTP);
    install(SIGTSTP, onStop);
}

void quitBySignal() {
    sigset_t quit{};
    ::sigemptyset(&quit);
    ::sigaddset(&quit, SIGQUIT);
    install(SIGQUIT, SIG_DFL);
    ::sigprocmask(SIG_UNBLOCK, &quit, nullptr);
    ::raise(SIGQUIT);
    ::_exit(128 + SIGQUIT);
}

} // namespace qzstatus
