// The text of an operating-system error.
#pragma once

#include "support/qzString.h"

/// The system's text for an error number, in the program's locale; -1 means the calling thread's
/// `errno`. An unknown number gives a text that contains the number. Preserves `errno`.
_qzString<500> qzLastOSError(int errorNumber);
