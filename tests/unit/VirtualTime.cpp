#include "tests/unit/VirtualTime.h"

#include <atomic>
#include <cstdint>
#include <ctime>

#include <sys/syscall.h>
#include <unistd.h>

#include <QThread>

namespace {

constexpr std::int64_t nanosecondsASecond = 1000000000;

// The time that the clock shows, in nanoseconds; 0: the real one.
std::atomic<std::int64_t> shown{0};

// The time that passes at each reading, in nanoseconds.
std::atomic<std::int64_t> step{0};

int realTime(clockid_t clock, timespec* time) {
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}

} // namespace

// Replaces the C library's function, which std::chrono calls.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const std::int64_t now = shown;
    if (clock != CLOCK_MONOTONIC || now == 0)
        return realTime(clock, time);
    shown += step;
    *time = {now / nanosecondsASecond, now % nanosecondsASecond};
    return 0;
}

VirtualTime::VirtualTime() {
    timespec now{};
    realTime(CLOCK_MONOTONIC, &now);
    shown = now.tv_sec * nanosecondsASecond + now.tv_nsec;
}

VirtualTime::~VirtualTime() {
    shown = 0;
    step = 0;
}

void VirtualTime::pass(double milliseconds) {
    if (shown != 0)
        shown += static_cast<std::int64_t>(milliseconds * 1e6);
    else if (milliseconds > 0.0)
        QThread::usleep(static_cast<unsigned long>(milliseconds * 1e3));
}

void VirtualTime::passAtReadings(double milliseconds) {
    step = static_cast<std::int64_t>(milliseconds * 1e6);
}
