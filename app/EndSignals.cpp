#include "app/EndSignals.h"

#include <cerrno>
#include <csignal>
#include <cstdint>

#include <sys/eventfd.h>
#include <unistd.h>

namespace {

// All that a signal handler can reach.
volatile std::sig_atomic_t eventOfHandler = -1;

void setDisposition(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    // One handler at a time, so that of two signals the second always finds the default.
    sigaddset(&action.sa_mask, SIGINT);
    sigaddset(&action.sa_mask, SIGTERM);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void onSignal(int /*signal*/) {
    const int reason = errno;
    setDisposition(SIG_DFL);
    const std::uint64_t once = 1;
    [[maybe_unused]] const ssize_t written = ::write(eventOfHandler, &once, sizeof once);
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
