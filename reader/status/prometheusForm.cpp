#include <cstdio>
#include <functional>

#include "reader/status/displayText.h"
#include "reader/status/forms.h"

namespace qzstatus {

namespace {

std::string number(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.3f", value);
    return text;
}

std::string labelValue(const std::string& bytes) {
    std::string text;
    for (const char32_t codePoint : decodeUtf8(bytes)) {
        if (codePoint == '\\' || codePoint == '"') {
            text += '\\';
            appendUtf8(text, codePoint);
        } else {
            appendUtf8(text, isControl(codePoint) ? replacementCharacter : codePoint);
        }
    }
    return text;
}

/// What names a GPU in every series: its place in the list, its kind and its number there.
std::string identity(std::size_t index, const GpuView& gpu) {
    return "gpu=\"" + std::to_string(index) + "\",kind=\"" + kindLabel(gpu) + "\",device=\"" +
           std::to_string(gpu.deviceIndex) + "\"";
}

std::string head(const char* name, const char* help) {
    return std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " gauge\n";
}

std::string single(const char* name, const char* help, const std::string& value) {
    return head(name, help) + name + " " + value + "\n";
}

std::string flag(bool value) {
    return value ? "1" : "0";
}

std::string integer(std::int32_t value) {
    return std::to_string(value);
}

std::string bytes(std::int32_t mebibytes) {
    return std::to_string(std::int64_t{mebibytes} * 1024 * 1024);
}

std::string ratio(std::int32_t percent) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", static_cast<double>(percent) / 100.0);
    return text;
}

/// A figure's text; nothing for a GPU that does not have it.
using Reading = std::function<std::optional<std::string>(const GpuView&)>;

Reading reading(bool GpuView::* fact) {
    return [fact](const GpuView& gpu) { return flag(gpu.*fact); };
}

template <class Value>
Reading reading(std::optional<Value> GpuView::* figure, std::string (*text)(Value)) {
    return [figure, text](const GpuView& gpu) {
        return gpu.*figure ? std::optional<std::string>(text(*(gpu.*figure))) : std::nullopt;
    };
}

/// One series for each GPU that has the figure; an empty text when none has.
std::string family(const StatusReport& report, const char* name, const char* help, const Reading& read,
                   bool withName = false) {
    std::string series;
    for (std::size_t i = 0; i < report.gpus.size(); ++i) {
        const GpuView& gpu = report.gpus[i];
        const auto value = read(gpu);
        if (!value)
            continue;
        series += std::string(name) + "{" + identity(i, gpu);
        if (withName)
            series += ",name=\"" + labelValue(gpu.name) + "\"";
        series += "} " + *value + "\n";
    }
    return series.empty() ? "" : head(name, help) + series;
}

std::string gpuFamilies(const StatusReport& report) {
    std::string text =
        single("qzgpuinfo_gpus", "GPUs in the published list.", std::to_string(report.gpus.size()));
    text += family(
        report, "qzgpuinfo_gpu_info", "A GPU's name; the value is always 1.",
        [](const GpuView&) { return "1"; }, true);
    const auto add = [&](const char* name, const char* help, const Reading& read) {
        text += family(report, name, help, read);
    };
    add("qzgpuinfo_gpu_figures_valid", "1 while the GPU answered in the latest update cycle.",
        reading(&GpuView::answering));
    add("qzgpuinfo_gpu_opencl_matched", "1 when an OpenCL device was found for the GPU.",
        reading(&GpuView::openclMatched));
    add("qzgpuinfo_gpu_optix_capable", "1 when the GPU qualifies for OptiX.",
        reading(&GpuView::optixCapable));
    add("qzgpuinfo_gpu_amd_ray_tracing", "1 when an AMD GPU offers ray tracing through OpenCL.",
        reading(&GpuView::amdRayTracing));
    add("qzgpuinfo_gpu_usage_ratio", "Share of the time in which the GPU was busy, 0 to 1.",
        reading(&GpuView::usagePercent, ratio));
    add("qzgpuinfo_gpu_temperature_celsius", "The GPU's temperature.",
        reading(&GpuView::temperatureCelsius, integer));
    add("qzgpuinfo_gpu_memory_total_bytes", "Size of the GPU's memory.",
        reading(&GpuView::memoryTotalMiB, bytes));
    add("qzgpuinfo_gpu_memory_used_bytes", "Used part of the GPU's memory.",
        reading(&GpuView::memoryUsedMiB, bytes));
    add("qzgpuinfo_gpu_memory_free_bytes", "Free part of the GPU's memory.",
        reading(&GpuView::memoryFreeMiB, bytes));
    add("qzgpuinfo_gpu_benchmark_score", "Compute speed by the OpenCL benchmark, in GPS.",
        reading(&GpuView::speedGps, shortestText));
    return text;
}

} // namespace

std::string prometheusForm(const StatusReport& report) {
    std::string text = head("qzgpuinfo_build_info",
                            "Version of the qzGpuStatus that made this text; the value is always 1.") +
                       "qzgpuinfo_build_info{version=\"" QZGPUINFO_VERSION "\"} 1\n";
    text += single("qzgpuinfo_up", "1 while a companion publishes fresh data, else 0.",
                   flag(report.state == ReportState::Ok));
    text += single("qzgpuinfo_writer_attached", "1 while some process keeps the published list alive.",
                   flag(report.writerAttached));
    text +=
        single("qzgpuinfo_measuring", "1 while a companion measures the GPUs' speed, which delays its data.",
               flag(report.measuring));
    if (report.ageSeconds)
        text += single("qzgpuinfo_data_age_seconds", "Age of the published data when this text was made.",
                       number(*report.ageSeconds));
    if (report.publishedAt)
        text += single("qzgpuinfo_data_timestamp_seconds",
                       "When the data were published, in seconds since 1970.", number(*report.publishedAt));
    // Figures that nobody refreshes would look like live ones in a graph.
    if (report.state == ReportState::Ok)
        text += gpuFamilies(report);
    return text;
}

} // namespace qzstatus
