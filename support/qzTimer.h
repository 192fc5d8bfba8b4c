// Elapsed time.
#pragma once

#include <chrono>

/// A stopwatch on the monotonic clock, running from its construction; setting the machine's clock does
/// not affect it. Times are whole milliseconds, rounded down and capped at INT_MAX (24 days).
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

/// A duration as whole milliseconds, rounded down and clamped to 0..INT_MAX.
int wholeMilliseconds(std::chrono::nanoseconds duration);
