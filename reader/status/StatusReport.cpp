#include "reader/status/StatusReport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <thread>

#include "reader/isFresh.h"
#include "reader/status/exitCodes.h"

namespace qzstatus {

namespace {

template <class T>
std::optional<T> ifPresent(std::uint8_t marker, T figure) {
    return marker != 0 ? std::optional<T>(figure) : std::nullopt;
}

GpuView viewOf(const GpuDevice& gpu) {
    GpuView view;
    view.name.assign(gpu.name, ::strnlen(gpu.name, sizeof gpu.name));
    view.kindCode = gpu.gpuType;
    view.kind = gpuTypeName(gpu);
    if (view.kind.empty())
        view.kind = unknownKind;
    view.deviceIndex = gpu.deviceIndex;
    view.listed = gpu.statsValid != 0;
    view.answering = isAnswering(gpu);
    view.optixCapable = gpu.optixCapable != 0;
    view.amdRayTracing = gpu.amdRayTracing != 0;
    view.openclMatched = gpu.clDevice != 0;
    view.usagePercent = ifPresent(gpu.hasUsage, gpu.usagePercent);
    view.temperatureCelsius = ifPresent(gpu.hasTemperature, gpu.temperature);
    view.memoryTotalMiB = ifPresent(gpu.hasMemTotal, gpu.memTotalMb);
    view.memoryUsedMiB = ifPresent(gpu.hasMemUsage, gpu.memUsedMb);
    view.memoryFreeMiB = ifPresent(gpu.hasMemUsage, gpu.memFreeMb);
    if (std::isfinite(gpu.speedGps))
        view.speedGps = ifPresent(gpu.hasSpeed, float{gpu.speedGps});
    return view;
}

ReportState stateOf(SegmentResult result) {
    switch (result) {
    case SegmentResult::Ok:
        return ReportState::Ok;
    case SegmentResult::Missing:
        return ReportState::Missing;
    case SegmentResult::NotReady:
        return ReportState::NotReady;
    case SegmentResult::Foreign:
        return ReportState::Foreign;
    case SegmentResult::TooSmall:
        return ReportState::TooSmall;
    case SegmentResult::Locked:
        return ReportState::Locked;
    case SegmentResult::PermissionDenied:
        return ReportState::PermissionDenied;
    case SegmentResult::IoError:
        return ReportState::IoError;
    }
    return ReportState::IoError;
}

std::string secondsText(double seconds) {
    char text[64];
    std::snprintf(text, sizeof text, "%.1f s", seconds);
    return text;
}

/// Why a list is not fresh; empty when it is.
std::string staleText(const GpuSnapshot& snapshot, std::optional<double> maxAge) {
    const std::string ago = secondsText(snapshot.ageSeconds) + " ago";
    switch (freshness(snapshot, maxAge)) {
    case Freshness::Fresh:
        return {};
    case Freshness::Unpublished:
        return (snapshot.writerAttached
                    ? "the companion has not published yet; an earlier one published the list "
                    : "no companion keeps the list fresh; it was published ") +
               ago;
    case Freshness::Ahead:
        return "the list is dated " + secondsText(snapshot.aheadSeconds) +
               " in the future, its age is not known; the clock was set back";
    case Freshness::TooOld:
        return "the list was published " + ago + ", more than " + secondsText(ageLimit(snapshot, maxAge));
    }
    return {};
}

} // namespace

const char* stateName(ReportState state) {
    switch (state) {
    case ReportState::Ok:
        return "ok";
    case ReportState::Stale:
        return "stale";
    case ReportState::Missing:
        return "missing";
    case ReportState::NotReady:
        return "notReady";
    case ReportState::Foreign:
        return "foreign";
    case ReportState::TooSmall:
        return "tooSmall";
    case ReportState::Locked:
        return "locked";
    case ReportState::PermissionDenied:
        return "permissionDenied";
    case ReportState::IoError:
        return "ioError";
    }
    return "ioError";
}

int exitCodeOf(ReportState state) {
    switch (state) {
    case ReportState::Ok:
        return ExitCode_Ok;
    case ReportState::Stale:
        return ExitCode_Stale;
    case ReportState::Missing:
    case ReportState::NotReady:
        return ExitCode_NoData;
    case ReportState::Foreign:
    case ReportState::TooSmall:
        return ExitCode_Foreign;
    case ReportState::Locked:
        return ExitCode_Locked;
    case ReportState::PermissionDenied:
    case ReportState::IoError:
        return ExitCode_NotReadable;
    }
    return ExitCode_NotReadable;
}

StatusReport makeReport(SegmentResult result, const GpuSnapshot& snapshot, const std::string& segmentPath,
                        std::optional<double> maxAge) {
    StatusReport report;
    report.state = stateOf(result);
    report.message = segmentResultText(result);
    report.segmentPath = segmentPath;
    if (snapshot.systemError != 0)
        report.message += std::string(" (") + std::strerror(snapshot.systemError) + ")";
    if (snapshot.opened) {
        report.writerAttached = snapshot.writerAttached;
        report.published = snapshot.published;
        report.measuring = snapshot.measuring;
        report.ageSeconds = snapshot.ageSeconds;
        report.publishedAt = snapshot.publishedAt;
    }
    if (result != SegmentResult::Ok)
        return report;

    for (int i = 0; i < snapshot.gpuCount(); ++i)
        report.gpus.push_back(viewOf(snapshot.gpu(i)));
    if (!report.gpus.empty())
        report.summary = viewOf(snapshot.block.summary);
    if (const std::string text = staleText(snapshot, maxAge); !text.empty()) {
        report.state = ReportState::Stale;
        report.message = text;
    }
    return report;
}

StatusReport readReport(const GpuSegmentReader& reader, std::optional<double> maxAge,
                        std::chrono::milliseconds wait) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds pause{100};
    const auto deadline = Clock::now() + wait;
    for (;;) {
        GpuSnapshot snapshot;
        const SegmentResult result = reader.read(snapshot);
        StatusReport report = makeReport(result, snapshot, reader.path(), maxAge);
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (report.state == ReportState::Ok || left <= std::chrono::milliseconds::zero())
            return report;
        std::this_thread::sleep_for(std::min(pause, left));
    }
}

} // namespace qzstatus
