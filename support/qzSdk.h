// The suite's start-up object.
#pragma once

#include "support/qzString.h"

/// Kinds of application of the suite, under the suite's name.
enum qz_AppType { qz_AppType_Default = 0 };

/// Every program of the suite has one static object of this class, constructed before `main` and destroyed at
/// exit. It does nothing else, so it cannot fail. The suite's name, although C++ reserves it: keep it.
class __QZSDK {
  public:
    /// The two flags are accepted for the suite's other programs; nothing here depends on them.
    __QZSDK(bool firstFlag, qz_AppType type, const _qzString<50>& name, bool secondFlag);
    ~__QZSDK() = default;

    __QZSDK(const __QZSDK&) = delete;
    __QZSDK& operator=(const __QZSDK&) = delete;

    qz_AppType appType() const { return kind; }
    const _qzString<50>& name() const { return programName; }

  private:
    qz_AppType kind;
    _qzString<50> programName;
};
