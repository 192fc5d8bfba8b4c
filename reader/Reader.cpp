#include "qzgpuinfo/Reader.h"

#include <cmath>
#include <utility>

#include "gpu/GpuDevice.h"
#include "reader/GpuSegmentReader.h"
#include "reader/utf8.h"

namespace qzgpuinfo {

namespace {

template <class Value>
std::optional<Value> ifMarked(std::uint8_t marker, Value value) {
    return marker != 0 ? std::optional<Value>(value) : std::nullopt;
}

/// A record that was settled by `parseSegment`.
Gpu gpuOf(const GpuDevice& record) {
    Gpu gpu;
    gpu.name = validUtf8(record.name);
    gpu.kind = record.gpuType <= GpuType_Summary ? GpuKind{record.gpuType} : GpuKind::Unknown;
    gpu.deviceIndex = record.deviceIndex;
    gpu.listed = record.statsValid != 0;
    gpu.answering = isAnswering(record);
    gpu.openclMatched = record.clDevice != 0;
    gpu.optixCapable = record.optixCapable != 0;
    gpu.amdRayTracing = record.amdRayTracing != 0;
    gpu.usagePercent = ifMarked(record.hasUsage, record.usagePercent);
    gpu.temperatureCelsius = ifMarked(record.hasTemperature, record.temperature);
    gpu.memoryTotalMiB = ifMarked(record.hasMemTotal, record.memTotalMb);
    gpu.memoryUsedMiB = ifMarked(record.hasMemUsage, record.memUsedMb);
    gpu.memoryFreeMiB = ifMarked(record.hasMemUsage, record.memFreeMb);
    if (std::isfinite(record.speedGps))
        gpu.speedGps = ifMarked(record.hasSpeed, float{record.speedGps});
    return gpu;
}

} // namespace

const char* kindText(GpuKind kind) noexcept {
    GpuDevice record;
    record.gpuType = static_cast<std::uint8_t>(kind);
    const char* text = gpuTypeName(record);
    return *text != '\0' ? text : "unknown";
}

Reader::Reader(std::string directory, std::optional<uid_t> owner)
    : segmentDirectory(std::move(directory)), segmentOwner(owner) {}

std::string Reader::path() const {
    return GpuSegmentReader(segmentDirectory).path();
}

SegmentResult Reader::read(Snapshot& snapshot, std::chrono::milliseconds lockWait) const {
    snapshot = {};
    GpuSnapshot copied;
    const SegmentResult result =
        GpuSegmentReader(segmentDirectory, segmentKey, segmentOwner).read(copied, lockWait);
    static_cast<SegmentState&>(snapshot) = static_cast<const SegmentState&>(copied);
    if (result != SegmentResult::Ok)
        return result;
    for (int i = 0; i < copied.gpuCount(); ++i)
        snapshot.gpus.push_back(gpuOf(copied.gpu(i)));
    snapshot.summary = gpuOf(copied.block.summary);
    return result;
}

} // namespace qzgpuinfo
