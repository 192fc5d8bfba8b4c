// What one reading of the segment says, in the terms that every output form speaks in.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "reader/GpuSegmentReader.h"

namespace qzstatus {

/// The kind of a GPU whose code has no name.
constexpr const char* unknownKind = "unknown";

/// One GPU (or the summary over all). A figure that is absent has no value; 0 is a reading.
struct GpuView {
    std::string name; ///< any bytes but NUL, as the driver gave them
    int kindCode = 0;
    std::string kind; ///< "Cuda", "AMD", "Metal", "Other", "-" (the summary) or `unknownKind`
    std::int32_t deviceIndex = -1;
    bool listed = false;    ///< in the latest update cycle
    bool answering = false; ///< see `isAnswering`
    bool optixCapable = false;
    bool amdRayTracing = false;
    bool openclMatched = false;
    std::optional<std::int32_t> usagePercent;
    std::optional<std::int32_t> temperatureCelsius;
    std::optional<std::int32_t> memoryTotalMiB;
    std::optional<std::int32_t> memoryUsedMiB;
    std::optional<std::int32_t> memoryFreeMiB;
    std::optional<float> speedGps; ///< finite
};

enum class ReportState {
    Ok,
    Stale, ///< a list is there, but it is not fresh
    Missing,
    NotReady,
    Foreign,
    TooSmall,
    Locked,
    PermissionDenied,
    IoError,
};

struct StatusReport {
    ReportState state = ReportState::Missing;
    std::string message; ///< one plain sentence without a full stop
    std::string segmentPath;
    bool writerAttached = false;
    bool published = false;
    bool measuring = false;
    std::optional<double> ageSeconds;  ///< not below 0
    std::optional<double> publishedAt; ///< seconds since 1970 (UTC)
    std::vector<GpuView> gpus;         ///< the global order; empty unless `Ok` or `Stale`
    std::optional<GpuView> summary;    ///< only with `gpus` that are not empty
};

/// The name of a state in JSON, for instance "notReady".
const char* stateName(ReportState state);

/// The exit code of the command for a state.
int exitCodeOf(ReportState state);

/// Judges one reading; `maxAge` as for `isFresh`.
StatusReport makeReport(SegmentResult result, const GpuSnapshot& snapshot, const std::string& segmentPath,
                        std::optional<double> maxAge);

/// Reads and judges until the state is `Ok` or `wait` is over (0: once). What was last seen is the result.
StatusReport readReport(const GpuSegmentReader& reader, std::optional<double> maxAge,
                        std::chrono::milliseconds wait = std::chrono::milliseconds::zero());

} // namespace qzstatus
