#include "qzgpuinfo/SegmentState.h"

#include <limits>

namespace qzgpuinfo {

const char* segmentResultText(SegmentResult result) noexcept {
    switch (result) {
    case SegmentResult::Ok:
        return "the GPU list was read";
    case SegmentResult::Missing:
        return "there is no segment; the companion does not run";
    case SegmentResult::NotReady:
        return "the segment holds no data yet; its first update cycle is not done";
    case SegmentResult::Foreign:
        return "what stands under the segment's name is not a GPU list of this version";
    case SegmentResult::TooSmall:
        return "the segment is too small to hold a GPU list";
    case SegmentResult::Locked:
        return "the segment's lock was not free in time";
    case SegmentResult::PermissionDenied:
        return "the segment belongs to another user, is open to others, or may not be read";
    case SegmentResult::IoError:
        return "the segment could not be read";
    }
    return "unknown result";
}

double ageLimit(const SegmentState& state, std::optional<double> maxAge) noexcept {
    if (maxAge)
        return *maxAge > 0.0 ? *maxAge : std::numeric_limits<double>::infinity();
    return state.measuring ? measuringAgeLimit : idleAgeLimit;
}

Freshness freshness(const SegmentState& state, std::optional<double> maxAge) noexcept {
    if (!state.published)
        return Freshness::Unpublished;
    if (state.aheadSeconds > clockTolerance)
        return Freshness::Ahead;
    return state.ageSeconds > ageLimit(state, maxAge) ? Freshness::TooOld : Freshness::Fresh;
}

} // namespace qzgpuinfo
