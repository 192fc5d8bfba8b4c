#include "tests/unit/VirtualTime.h"

#include <atomic>
#include <cstdint>
#include <ctime>

#include <sys/syscall.h>
#include <unistd.h>

#include <QThread>

namespace {

constexpr std::int64_t nanosecondsASecond = 1000000000;

// The time that is told, in nanoseconds; 0: the real one.
std::atomic<std::int64_t> told{0};

// What passes at each reading, in nanoseconds.
std::atomic<std::int64_t> step{0};

int realTime(clockid_t clock, timespec* time) {
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}

} // namespace

// Stands before the C library's, through which std::chrono asks.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const std::int64_t now = told;
    if (clock != CLOCK_MONOTONIC || now == 0)
        return realTime(clock, time);
    told += step;
    *time = {now / nanosecondsASecond, now % nanosecondsASecond};
    return 0;
}

VirtualTime::VirtualTime() {
    timespec now{};
    realTime(CLOCK_MONOTONIC, &now);
    told = now.tv_sec * nanosecondsASecond + now.tv_nsec;
}

VirtualTime::~VirtualTime() {
    told = 0;
    step = 0;
}

void VirtualTime::pass(double milliseconds) {
    if (told != 0)
        told += static_cast<std::int64_t>(milliseconds * 1e6);
    else if (milliseconds > 0.0)
        QThread::usleep(static_cast<unsigned long>(milliseconds * 1e3));
}

void VirtualTime::passAtReadings(double milliseconds) {
    step = static_cast<std::int64_t>(milliseconds * 1e6);
}
