#include "app/EndSignals.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>

#include <sys/eventfd.h>
#include <unistd.h>

namespace {

constexpr int endSignals[] = {SIGINT, SIGTERM, SIGHUP};

// All that a signal handler can reach: the event it raises, and the time of the first signal in
// milliseconds, 0 before it.
volatile std::sig_atomic_t eventOfHandler = -1;
std::atomic<std::int64_t> firstCame{0};
static_assert(std::atomic<std::int64_t>::is_always_lock_free);

/// Supervisors often signal twice at once: the process, then its group.
constexpr std::int64_t sameRequestMs = 100;

std::int64_t nowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000 + 1; // 0 is taken
}

sigset_t endSignalSet() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : endSignals)
        sigaddset(&set, number);
    return set;
}

/// Keeps what is ignored: `nohup`, or a shell that starts a background job, requires it.
void setDisposition(void (*handler)(int)) {
    struct sigaction action{};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    // One handler at a time, so that the second of two signals always sees what the first has stored.
    action.sa_mask = endSignalSet();
    for (const int number : endSignals) {
        struct sigaction now{};
        if (sigaction(number, nullptr, &now) == 0 && now.sa_handler != SIG_IGN)
            sigaction(number, &action, nullptr);
    }
}

void onSignal(int signal) {
    const int reason = errno;
    if (firstCame == 0) {
        firstCame = nowMs();
        const std::uint64_t once = 1;
        [[maybe_unused]] const ssize_t written = ::write(eventOfHandler, &once, sizeof once);
    } else if (nowMs() - firstCame > sameRequestMs) {
        setDisposition(SIG_DFL);
        raise(signal); // held back until the handler returns
    }
    errno = reason;
}

} // namespace

EndSignals::EndSignals() : event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!event.isOpen())
        return;
    // The event is never read, so the notifier keeps firing: a signal that arrives before the event loop runs
    // is not lost.
    notifier = std::make_unique<QSocketNotifier>(event.get(), QSocketNotifier::Read);
    connect(notifier.get(), &QSocketNotifier::activated, this, &EndSignals::endRequested);
    eventOfHandler = event.get();
    firstCame = 0;
    setDisposition(onSignal);
    const sigset_t all = endSignalSet();
    sigprocmask(SIG_UNBLOCK, &all, nullptr);
}

EndSignals::~EndSignals() {
    setDisposition(SIG_DFL);
    eventOfHandler = -1;
}
