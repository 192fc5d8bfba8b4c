#include "app/EndSignals.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>

#include <sys/eventfd.h>
#include <unistd.h>

namespace {

// All that a signal handler can reach: where to tell it, and when the first one came, in milliseconds; 0:
// none.
volatile std::sig_atomic_t eventOfHandler = -1;
std::atomic<std::int64_t> firstCame{0};
static_assert(std::atomic<std::int64_t>::is_always_lock_free);

/// Who ends a process often tells it twice at once: by its number and with its group.
constexpr std::int64_t sameRequestMs = 100;

std::int64_t nowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000 + 1; // 0 is taken
}

void setDisposition(void (*handler)(int)) {
    struct sigaction action{};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    // One handler at a time, so that of two signals the second always finds what the first has left.
    sigaddset(&action.sa_mask, SIGINT);
    sigaddset(&action.sa_mask, SIGTERM);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
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
    // The event is never read, so the notifier goes on: a signal that comes before the event loop runs is not
    // lost.
    notifier = std::make_unique<QSocketNotifier>(event.get(), QSocketNotifier::Read);
    connect(notifier.get(), &QSocketNotifier::activated, this, &EndSignals::endRequested);
    eventOfHandler = event.get();
    firstCame = 0;
    setDisposition(onSignal);
    sigset_t both;
    sigemptyset(&both);
    sigaddset(&both, SIGINT);
    sigaddset(&both, SIGTERM);
    sigprocmask(SIG_UNBLOCK, &both, nullptr);
}

EndSignals::~EndSignals() {
    setDisposition(SIG_DFL);
    eventOfHandler = -1;
}
