// Time that passes when a test says so.
#pragma once

/// While one lives, the process's monotonic clock stands still but for what `pass` adds, so that what is
/// timed comes out the same on a busy machine. One at a time.
class VirtualTime {
  public:
    VirtualTime();
    ~VirtualTime();
    VirtualTime(const VirtualTime&) = delete;
    VirtualTime& operator=(const VirtualTime&) = delete;

    /// Lets time pass; sleeps where none of these lives.
    static void pass(double milliseconds);

    /// From now on so much passes at each reading of the clock, behind it, until the living one ends.
    static void passAtReadings(double milliseconds);
};
