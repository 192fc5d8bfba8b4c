// Whether a list that was read describes the GPUs as they are now.
#pragma once

#include <optional>

#include "reader/GpuSegmentReader.h"

constexpr double idleAgeLimit = 20.0;        ///< seconds: five update cycles
constexpr double measuringAgeLimit = 1800.0; ///< seconds: the benchmarks of more than 32 GPUs
constexpr double clockTolerance = 10.0;      ///< seconds that a publication may lie ahead of the clock

enum class Freshness {
    Fresh,
    Unpublished, ///< no living process has published on this object: a killed one left the list
    Ahead,       ///< dated in the future, as after the clock was set back: its age is not known
    TooOld,
};

/// The age in seconds up to which the list is fresh. `maxAge` replaces both limits; 0 means none (infinity).
double ageLimit(const GpuSnapshot& snapshot, std::optional<double> maxAge = {}) noexcept;

/// Judges the list of a reading that was `Ok`.
Freshness freshness(const GpuSnapshot& snapshot, std::optional<double> maxAge = {}) noexcept;

inline bool isFresh(const GpuSnapshot& snapshot, std::optional<double> maxAge = {}) noexcept {
    return freshness(snapshot, maxAge) == Freshness::Fresh;
}
