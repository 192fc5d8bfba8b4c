// How long a benchmark runs. The entry point writes the first two once, before any provider runs.
#pragma once

#include <cstdint>

extern std::int32_t benchmarkSeconds;  ///< measuring duration, seconds
extern std::int32_t benchmarkWarmupMs; ///< warm-up limit, milliseconds

/// Scale of the kernel's iteration count. Every run sets it: 0.1 for the warm-up, then the calibrated value.
/// "Iteratons" is the suite's spelling, also in the log line: keep it.
extern float GLOBAL_Iteratons_mod;
