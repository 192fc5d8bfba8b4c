// The faults that affect the process rather than a call's answer.
#pragma once

#include "simulator/lib/Fault.h"

namespace qzsim {

/// Delay, Hang, Crash, Signal, Exit, Print, Fork and Spawn; any other action is left to the caller.
void happen(const Fault& fault);

/// Ends the process by SIGSEGV even if it has a handler.
[[noreturn]] void crash();

void sleepMilliseconds(std::int64_t milliseconds);

/// Advances the program's clock. False unless the preloaded library, which keeps it, is loaded.
bool advanceClock(std::int64_t milliseconds);

/// Keeps the library that holds `address` in memory until the process ends.
void stayLoaded(const void* address);

} // namespace qzsim
