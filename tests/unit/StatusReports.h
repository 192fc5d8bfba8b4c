// Readings of the segment for the tests of the output forms.
#pragma once

#include <utility>
#include <vector>

#include <QMetaType>

#include "reader/status/StatusReport.h"

using namespace qzstatus;

Q_DECLARE_METATYPE(StatusReport)

/// A copy that `edit` has changed.
template <class Value, class Edit>
Value with(Value value, Edit edit) {
    edit(value);
    return value;
}

/// A GPU without any figure.
inline GpuView gpuView(const char* name, int kindCode, const char* kind, std::int32_t deviceIndex) {
    GpuView gpu;
    gpu.name = name;
    gpu.kindCode = kindCode;
    gpu.kind = kind;
    gpu.deviceIndex = deviceIndex;
    gpu.listed = true;
    return gpu;
}

/// Every figure present, each with a different value.
inline GpuView busyGpu() {
    return with(gpuView("NVIDIA GeForce RTX 4090", 1, "Cuda", 0), [](GpuView& gpu) {
        gpu.answering = true;
        gpu.optixCapable = true;
        gpu.openclMatched = true;
        gpu.usagePercent = 45;
        gpu.temperatureCelsius = 60;
        gpu.memoryTotalMiB = 24576;
        gpu.memoryUsedMiB = 1024;
        gpu.memoryFreeMiB = 23552;
        gpu.speedGps = 123.45F;
    });
}

/// Every figure present and 0, but for the memory's size.
inline GpuView idleGpu() {
    return with(gpuView("NVIDIA Tesla", 1, "Cuda", 1), [](GpuView& gpu) {
        gpu.answering = true;
        gpu.usagePercent = 0;
        gpu.temperatureCelsius = 0;
        gpu.memoryTotalMiB = 8192;
        gpu.memoryUsedMiB = 0;
        gpu.memoryFreeMiB = 8192;
        gpu.speedGps = 0.0F;
    });
}

/// Only the memory's size is known: it is listed but does not answer.
inline GpuView amdGpu() {
    return with(gpuView("Navi 31", 2, "AMD", 0), [](GpuView& gpu) {
        gpu.amdRayTracing = true;
        gpu.memoryTotalMiB = 16384;
    });
}

/// Nothing is known; it is not listed in the latest cycle.
inline GpuView silentGpu() {
    return with(gpuView("Bare", 0, "Other", -1), [](GpuView& gpu) { gpu.listed = false; });
}

/// Of a kind that this version does not know.
inline GpuView unknownGpu() {
    return gpuView("New", 7, "unknown", 3);
}

/// Fresh data with these GPUs.
inline StatusReport freshReport(std::vector<GpuView> gpus = {}) {
    StatusReport report;
    report.state = ReportState::Ok;
    report.message = "the GPU list was read";
    report.segmentPath = "/dev/shm/qzGpuInfo_v2";
    report.writerAttached = true;
    report.published = true;
    report.ageSeconds = 1.25;
    report.publishedAt = 1700000000.5;
    report.gpus = std::move(gpus);
    return report;
}

/// The four GPUs above, in the order of a list.
inline StatusReport mixedReport() {
    return freshReport({busyGpu(), idleGpu(), amdGpu(), silentGpu()});
}

/// A list that no process keeps fresh.
inline StatusReport staleReport() {
    return with(freshReport({amdGpu()}), [](StatusReport& report) {
        report.state = ReportState::Stale;
        report.message = "no companion keeps the list fresh";
        report.writerAttached = false;
        report.published = false;
    });
}

/// Old data that count as fresh because a benchmark is running.
inline StatusReport measuringReport() {
    return with(freshReport(), [](StatusReport& report) {
        report.measuring = true;
        report.ageSeconds = 100.0;
    });
}

/// No segment at all.
inline StatusReport missingReport() {
    StatusReport report;
    report.message = "there is no segment";
    report.segmentPath = "/dev/shm/qzGpuInfo_v2";
    return report;
}
