// Time that passes only when a test says so.
#pragma once

/// While one exists, the process's monotonic clock advances only by what `pass` adds, so that a busy machine
/// measures the same times. One at a time.
class VirtualTime {
  public:
    VirtualTime();
    ~VirtualTime();
    VirtualTime(const VirtualTime&) = delete;
    VirtualTime& operator=(const VirtualTime&) = delete;

    /// Lets time pass; sleeps if no VirtualTime exists.
    static void pass(double milliseconds);

    /// From now on this much time passes after each reading of the clock, until the VirtualTime ends.
    static void passAtReadings(double milliseconds);
};
