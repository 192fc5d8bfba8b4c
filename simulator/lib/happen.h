// The faults that happen to the process rather than being answered to it.
#pragma once

#include "simulator/lib/Fault.h"

namespace qzsim {

/// Delay, Hang, Crash, Signal, Exit, Print, Fork and Spawn; any other action is left to whoever asked.
void happen(const Fault& fault);

/// Ends the process by SIGSEGV, whatever handler it has.
[[noreturn]] void crash();

void sleepMilliseconds(std::int64_t milliseconds);

/// Advances the program's clock. False unless the preloaded library, which keeps it, is loaded.
bool advanceClock(std::int64_t milliseconds);

/// Keeps the library that holds `address` in memory until the process ends.
void stayLoaded(const void* address);

} // namespace qzsim
