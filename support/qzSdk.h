// The suite's start-up object.
#pragma once

#include "support/qzString.h"

/// Kinds of application of the suite.
enum qz_AppType { qz_AppType_Default = 0 };

/// One object exists for the whole life of a process of the suite, as a static one: made before the entry
/// point runs, destroyed at the exit. It does nothing else, so that it can't fail.
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
