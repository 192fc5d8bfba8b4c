#include "support/qzSdk.h"

__QZSDK::__QZSDK(bool, qz_AppType type, const _qzString<50>& name, bool) : kind(type), programName(name) {}
