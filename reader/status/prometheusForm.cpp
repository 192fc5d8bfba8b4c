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
        } else if (codePoint == '\n') {
            text += "\\n";
        } else {
            appendUtf8(text, codePoint);
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

/// One series a GPU that has the figure; nothing at all when none has.
std::string family(const StatusReport& report, const char* name, const char* help,
                   const std::function<std::optional<std::string>(const GpuView&)>& figure,
                   bool withName = false) {
    std::string series;
    for (std::size_t i = 0; i < report.gpus.size(); ++i) {
        const GpuView& gpu = report.gpus[i];
        const auto value = figure(gpu);
        if (!value)
            continue;
        series += std::string(name) + "{" + identity(i, gpu);
        if (withName)
            series += ",name=\"" + labelValue(gpu.name) + "\"";
        series += "} " + *value + "\n";
    }
    return series.empty() ? "" : head(name, help) + series;
}

std::optional<std::string> bytes(const std::optional<std::int32_t>& mebibytes) {
    if (!mebibytes)
        return std::nullopt;
    return std::to_string(std::int64_t{*mebibytes} * 1024 * 1024);
}

std::string flag(bool value) {
    return value ? "1" : "0";
}

std::string gpuFamilies(const StatusReport& report) {
    using Figure = std::optional<std::string>;
    std::string text =
        single("qzgpuinfo_gpus", "GPUs in the published list.", std::to_string(report.gpus.size()));
    text += family(
        report, "qzgpuinfo_gpu_info", "A GPU's name; the value is always 1.",
        [](const GpuView&) -> Figure { return "1"; }, true);
    text +=
        family(report, "qzgpuinfo_gpu_figures_valid", "1 while the GPU answered in the latest update cycle.",
               [](const GpuView& gpu) -> Figure { return flag(gpu.statsValid); });
    text += family(report, "qzgpuinfo_gpu_opencl_matched", "1 when an OpenCL device was found for the GPU.",
                   [](const GpuView& gpu) -> Figure { return flag(gpu.openclMatched); });
    text += family(report, "qzgpuinfo_gpu_optix_capable", "1 when the GPU qualifies for OptiX.",
                   [](const GpuView& gpu) -> Figure { return flag(gpu.optixCapable); });
    text += family(report, "qzgpuinfo_gpu_amd_ray_tracing",
                   "1 when an AMD GPU offers ray tracing through OpenCL.",
                   [](const GpuView& gpu) -> Figure { return flag(gpu.amdRayTracing); });
    text +=
        family(report, "qzgpuinfo_gpu_usage_ratio", "Share of the time in which the GPU was busy, 0 to 1.",
               [](const GpuView& gpu) -> Figure {
                   char ratio[32];
                   if (!gpu.usagePercent)
                       return std::nullopt;
                   std::snprintf(ratio, sizeof ratio, "%.2f", static_cast<double>(*gpu.usagePercent) / 100.0);
                   return ratio;
               });
    text += family(report, "qzgpuinfo_gpu_temperature_celsius", "The GPU's temperature.",
                   [](const GpuView& gpu) -> Figure {
                       if (!gpu.temperatureCelsius)
                           return std::nullopt;
                       return std::to_string(*gpu.temperatureCelsius);
                   });
    text += family(report, "qzgpuinfo_gpu_memory_total_bytes", "Size of the GPU's memory.",
                   [](const GpuView& gpu) { return bytes(gpu.memoryTotalMiB); });
    text += family(report, "qzgpuinfo_gpu_memory_used_bytes", "Used part of the GPU's memory.",
                   [](const GpuView& gpu) { return bytes(gpu.memoryUsedMiB); });
    text += family(report, "qzgpuinfo_gpu_memory_free_bytes", "Free part of the GPU's memory.",
                   [](const GpuView& gpu) { return bytes(gpu.memoryFreeMiB); });
    text += family(report, "qzgpuinfo_gpu_benchmark_score", "Compute speed by the OpenCL benchmark, in GPS.",
                   [](const GpuView& gpu) -> Figure {
                       if (!gpu.speedGps)
                           return std::nullopt;
                       return shortestText(*gpu.speedGps);
                   });
    return text;
}

} // namespace

std::string prometheusForm(const StatusReport& report) {
    std::string text = single("qzgpuinfo_up", "1 while a companion publishes fresh data, else 0.",
                              flag(report.state == ReportState::Ok));
    text += single("qzgpuinfo_writer_attached", "1 while some process keeps the published list alive.",
                   flag(report.writerAttached));
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
