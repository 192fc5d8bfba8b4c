#include "support/qzTimer.h"

#include <algorithm>
#include <limits>

int wholeMilliseconds(std::chrono::nanoseconds duration) {
    using Milliseconds = std::chrono::milliseconds;
    constexpr Milliseconds::rep most = std::numeric_limits<int>::max();
    const Milliseconds::rep count = std::chrono::duration_cast<Milliseconds>(duration).count();
    return static_cast<int>(std::clamp<Milliseconds::rep>(count, 0, most));
}

qzTimer::qzTimer() : start(Clock::now()) {}

int qzTimer::restart() {
    const Clock::time_point now = Clock::now();
    const int passed = wholeMilliseconds(now - start);
    start = now;
    return passed;
}

int qzTimer::elapsed() const {
    return wholeMilliseconds(Clock::now() - start);
}
