#include <cstdio>

#include "reader/status/displayText.h"
#include "reader/status/forms.h"
#include "reader/status/totals.h"

namespace qzstatus {

namespace {

constexpr int jsonFormatVersion = 1; ///< rises when a member changes its meaning or goes

std::string quoted(const std::string& bytes) {
    std::string text = "\"";
    for (const char32_t codePoint : decodeUtf8(bytes)) {
        if (codePoint == '"' || codePoint == '\\') {
            text += '\\';
            appendUtf8(text, codePoint);
        } else if (isControl(codePoint)) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(codePoint));
            text += escape;
        } else {
            appendUtf8(text, codePoint);
        }
    }
    return text + "\"";
}

std::string json(const std::string& value) {
    return quoted(value);
}
std::string json(bool value) {
    return value ? "true" : "false";
}
std::string json(std::int32_t value) {
    return std::to_string(value);
}
std::string json(std::int64_t value) {
    return std::to_string(value);
}
std::string json(float value) {
    return shortestText(value);
}
std::string json(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.3f", value);
    return text;
}

template <class T>
std::string json(const std::optional<T>& value) {
    return value ? json(*value) : "null";
}

/// The members of one object, in the order they are added.
class JsonObject {
  public:
    explicit JsonObject(std::string outerIndent) : indent(std::move(outerIndent)) {}

    template <class T>
    void add(const char* name, const T& value) {
        addRaw(name, json(value));
    }

    void addRaw(const char* name, const std::string& value) {
        members += (members.empty() ? "\n" : ",\n") + indent + "  " + quoted(name) + ": " + value;
    }

    std::string text() const { return "{" + members + "\n" + indent + "}"; }

  private:
    std::string indent;
    std::string members;
};

void addFigures(JsonObject& object, const GpuView& gpu) {
    object.add("usagePercent", gpu.usagePercent);
    object.add("temperatureCelsius", gpu.temperatureCelsius);
    object.add("memoryTotalMiB", gpu.memoryTotalMiB);
    object.add("memoryUsedMiB", gpu.memoryUsedMiB);
    object.add("memoryFreeMiB", gpu.memoryFreeMiB);
    object.add("speedGps", gpu.speedGps);
}

std::string gpuJson(std::size_t index, const GpuView& gpu) {
    JsonObject object("    ");
    object.add("index", static_cast<std::int32_t>(index));
    object.add("name", gpu.name);
    object.add("kind", gpu.kind);
    object.add("kindCode", gpu.kindCode);
    object.add("deviceIndex", gpu.deviceIndex);
    object.add("listed", gpu.listed);
    object.add("figuresValid", gpu.answering);
    object.add("openclMatched", gpu.openclMatched);
    object.add("optixCapable", gpu.optixCapable);
    object.add("amdRayTracing", gpu.amdRayTracing);
    addFigures(object, gpu);
    return object.text();
}

std::string gpusJson(const std::vector<GpuView>& gpus) {
    std::string text;
    for (std::size_t i = 0; i < gpus.size(); ++i)
        text += (i == 0 ? "\n    " : ",\n    ") + gpuJson(i, gpus[i]);
    return gpus.empty() ? "[]" : "[" + text + "\n  ]";
}

std::string summaryJson(const GpuView& summary) {
    JsonObject object("  ");
    addFigures(object, summary);
    return object.text();
}

std::string totalsJson(const Totals& totals) {
    JsonObject object("  ");
    object.add("meanUsagePercent", totals.meanUsagePercent);
    object.add("totalMemoryMiB", totals.totalMemoryMiB);
    object.add("usedMemoryMiB", totals.usedMemoryMiB);
    object.add("hottestCelsius", totals.hottestCelsius);
    return object.text();
}

} // namespace

std::string jsonForm(const StatusReport& report) {
    JsonObject object("");
    object.add("formatVersion", std::int32_t{jsonFormatVersion});
    object.add("state", std::string(stateName(report.state)));
    object.add("message", report.message);
    object.add("segment", report.segmentPath);
    object.add("writerAttached", report.writerAttached);
    object.add("published", report.published);
    object.add("measuring", report.measuring);
    object.add("ageSeconds", report.ageSeconds);
    object.add("publishedAt", report.publishedAt);
    object.addRaw("gpus", gpusJson(report.gpus));
    object.addRaw("summary", report.summary ? summaryJson(*report.summary) : "null");
    object.addRaw("totals", report.gpus.empty() ? "null" : totalsJson(totalsOf(report.gpus)));
    return object.text() + "\n";
}

} // namespace qzstatus
