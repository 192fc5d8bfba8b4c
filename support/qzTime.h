// A point in time as text.
#pragma once

#include <ctime>

#include "support/qzString.h"

/// A point in time, to the second. The suite's name for it.
class _qzTime {
  public:
    /// The current time when `now` is true, else the beginning of 1970 (UTC).
    explicit _qzTime(bool now);

    explicit _qzTime(std::time_t secondsSince1970) : seconds(secondsSince1970) {}

    /// Local time as "MM-DD hh:mm:ss", 24 hours, each number with two digits. Empty if the time is
    /// unknown.
    _qzString8_allSize<250> asString8_Md_hms() const;

  private:
    std::time_t seconds;
};
