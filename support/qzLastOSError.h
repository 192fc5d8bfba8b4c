// The text of an operating-system error.
#pragma once

#include "support/qzString.h"

/// The system's text for an error number, in the program's locale; -1 stands for the calling thread's
/// `errno`. A number that the system doesn't know gives a text that names the number. Leaves `errno` as it
/// was.
_qzString<500> qzLastOSError(int errorNumber);
