#include <cmath>
#include <cstdlib>

#include <nlohmann/json.hpp>

#include "reader/status/forms.h"
#include "reader/status/totals.h"

namespace qzstatus {

namespace {

using Json = nlohmann::ordered_json;

constexpr int jsonFormatVersion = 1; ///< rises when a member changes its meaning or goes

/// Rounded to a thousandth: a float's or a clock's further digits mean nothing.
double rounded(double value) {
    constexpr double steps = 1000.0;
    return std::round(value * steps) / steps;
}

template <class Value>
Json orNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json();
}

Json roundedOrNull(const std::optional<double>& value) {
    return value ? Json(rounded(*value)) : Json();
}

/// The number with the float's own digits: converted as it is, 123.45 would become 123.44999694824219.
Json speedOrNull(const std::optional<float>& speed) {
    return speed ? Json(std::strtod(shortestText(*speed).c_str(), nullptr)) : Json();
}

void addFigures(Json& object, const GpuView& gpu) {
    object["usagePercent"] = orNull(gpu.usagePercent);
    object["temperatureCelsius"] = orNull(gpu.temperatureCelsius);
    object["memoryTotalMiB"] = orNull(gpu.memoryTotalMiB);
    object["memoryUsedMiB"] = orNull(gpu.memoryUsedMiB);
    object["memoryFreeMiB"] = orNull(gpu.memoryFreeMiB);
    object["speedGps"] = speedOrNull(gpu.speedGps);
}

Json gpuJson(std::size_t index, const GpuView& gpu) {
    Json object;
    object["index"] = index;
    object["name"] = gpu.name;
    object["kind"] = gpu.kind;
    object["kindCode"] = gpu.kindCode;
    object["deviceIndex"] = gpu.deviceIndex;
    object["listed"] = gpu.listed;
    object["figuresValid"] = gpu.answering;
    object["openclMatched"] = gpu.openclMatched;
    object["optixCapable"] = gpu.optixCapable;
    object["amdRayTracing"] = gpu.amdRayTracing;
    addFigures(object, gpu);
    return object;
}

Json gpusJson(const std::vector<GpuView>& gpus) {
    Json list = Json::array();
    for (std::size_t i = 0; i < gpus.size(); ++i)
        list.push_back(gpuJson(i, gpus[i]));
    return list;
}

Json summaryJson(const std::optional<GpuView>& summary) {
    Json object;
    if (summary)
        addFigures(object, *summary);
    return object;
}

Json totalsJson(const std::vector<GpuView>& gpus) {
    if (gpus.empty())
        return {};
    const Totals totals = totalsOf(gpus);
    Json object;
    object["meanUsagePercent"] = roundedOrNull(totals.meanUsagePercent);
    object["totalMemoryMiB"] = orNull(totals.totalMemoryMiB);
    object["usedMemoryMiB"] = orNull(totals.usedMemoryMiB);
    object["hottestCelsius"] = orNull(totals.hottestCelsius);
    return object;
}

} // namespace

std::string jsonForm(const StatusReport& report) {
    Json object;
    object["formatVersion"] = jsonFormatVersion;
    object["state"] = stateName(report.state);
    object["message"] = report.message;
    object["segment"] = report.segmentPath;
    object["writerAttached"] = report.writerAttached;
    object["published"] = report.published;
    object["measuring"] = report.measuring;
    object["ageSeconds"] = roundedOrNull(report.ageSeconds);
    object["publishedAt"] = roundedOrNull(report.publishedAt);
    object["gpus"] = gpusJson(report.gpus);
    object["summary"] = summaryJson(report.summary);
    object["totals"] = totalsJson(report.gpus);
    // Everything beyond ASCII is escaped: a terminal may obey the control characters among it.
    constexpr bool onlyAscii = true;
    return object.dump(2, ' ', onlyAscii, Json::error_handler_t::replace) + "\n";
}

} // namespace qzstatus
