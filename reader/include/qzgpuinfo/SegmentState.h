// What reading the segment led to, and whether the list in it describes the GPUs as they are now.
#pragma once

#include <optional>

namespace qzgpuinfo {

/// The outcome of reading the segment. Only `Ok` gives a list.
enum class SegmentResult {
    Ok,
    Missing,          ///< no segment: no companion runs, or it has only just started
    NotReady,         ///< the companion's first update cycle is not done yet
    Foreign,          ///< another layout version, impossible counts, or not a plain file with one link
    TooSmall,         ///< fewer bytes than a list has
    Locked,           ///< another process held the lock for the whole time allowed
    PermissionDenied, ///< not readable, or other users may write to it: its bytes are not trusted
    IoError,          ///< the system refused an operation; see `SegmentState::systemError`
};

/// One sentence without a full stop, never null.
const char* segmentResultText(SegmentResult result) noexcept;

/// The segment itself, apart from the list in it.
struct SegmentState {
    bool opened = false; ///< a segment of the expected user exists; what follows is meaningful then

    bool writerAttached = false; ///< a living process may publish on it
    bool published = false;      ///< a living process has published on it
    bool measuring = false;      ///< a living process is in an update cycle with benchmarks

    double publishedAt = 0.0;  ///< last publication (before the first: creation), seconds since 1970 (UTC)
    double ageSeconds = 0.0;   ///< time since then, 0 if that is in the future
    double aheadSeconds = 0.0; ///< how far it is in the future, as after the clock was set back; else 0

    int systemError = 0; ///< `errno` of the failed operation for `IoError` and `PermissionDenied`, else 0
};

constexpr double idleAgeLimit = 20.0;        ///< seconds: five update cycles
constexpr double measuringAgeLimit = 1800.0; ///< seconds: the benchmarks of more than 32 GPUs
constexpr double clockTolerance = 10.0;      ///< seconds that a publication may be ahead of the clock

enum class Freshness {
    Fresh,
    Unpublished, ///< no living process has published on this object: a killed one left the list
    Ahead,       ///< dated in the future, as after the clock was set back: its age is not known
    TooOld,
};

/// The age in seconds up to which a list is fresh. `maxAge` replaces both limits; 0 means none (infinity).
double ageLimit(const SegmentState& state, std::optional<double> maxAge = {}) noexcept;

/// Judges the list of a reading that was `Ok`.
Freshness freshness(const SegmentState& state, std::optional<double> maxAge = {}) noexcept;

inline bool isFresh(const SegmentState& state, std::optional<double> maxAge = {}) noexcept {
    return freshness(state, maxAge) == Freshness::Fresh;
}

} // namespace qzgpuinfo
