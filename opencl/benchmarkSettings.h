// How long a benchmark runs, and on how much data. The entry point writes the first two once, before any
// provider runs.
#pragma once

#include <cstddef>
#include <cstdint>

extern std::int32_t benchmarkSeconds;  ///< measuring duration, seconds
extern std::int32_t benchmarkWarmupMs; ///< warm-up limit, milliseconds

/// Scale of the kernel's iteration count. Every run sets it: 0.1 for the warm-up, then the calibrated value.
/// "Iteratons" is the suite's spelling, also in the log line: keep it.
extern float GLOBAL_Iteratons_mod;

/// How many work-items a round has, one for each element of the buffers.
struct BenchmarkGeometry {
    std::size_t global[2] = {32768, 4096};
    std::size_t local[2] = {256, 1};

    std::size_t elements() const { return global[0] * global[1]; }
    std::size_t bytes() const { return elements() * sizeof(float); }
};

/// The program never changes it, and the score assumes its 2^27 work-items: anything else is for tests.
extern BenchmarkGeometry benchmarkGeometry;
