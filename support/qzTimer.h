// Elapsed time.
#pragma once

#include <chrono>

/// A stopwatch on the monotonic clock, running from its construction; setting the machine's clock doesn't
/// touch it. Times are whole milliseconds, rounded down; past INT_MAX (24 days) they stay there.
class qzTimer {
  public:
    qzTimer();

    /// Milliseconds since the last start; starts again.
    int restart();

    /// Milliseconds since the last start.
    int elapsed() const;

  private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point start;
};

/// A duration as whole milliseconds, rounded down and held within 0 to INT_MAX.
int wholeMilliseconds(std::chrono::nanoseconds duration);
