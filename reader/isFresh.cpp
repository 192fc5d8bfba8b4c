#include "reader/isFresh.h"

#include <limits>

double ageLimit(const GpuSnapshot& snapshot, std::optional<double> maxAge) noexcept {
    if (maxAge)
        return *maxAge > 0.0 ? *maxAge : std::numeric_limits<double>::infinity();
    return snapshot.measuring ? measuringAgeLimit : idleAgeLimit;
}

Freshness freshness(const GpuSnapshot& snapshot, std::optional<double> maxAge) noexcept {
    if (!snapshot.published)
        return Freshness::Unpublished;
    if (snapshot.aheadSeconds > clockTolerance)
        return Freshness::Ahead;
    return snapshot.ageSeconds > ageLimit(snapshot, maxAge) ? Freshness::TooOld : Freshness::Fresh;
}
