#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "reader/status/displayText.h"
#include "reader/status/forms.h"

namespace qzstatus {

std::string figureText(const std::optional<std::int32_t>& value, const char* unit) {
    return value ? std::to_string(*value) + unit : "-";
}

std::string shortestText(float value) {
    char text[32];
    for (int digits = 6; digits <= 9; ++digits) {
        std::snprintf(text, sizeof text, "%.*g", digits, static_cast<double>(value));
        if (!(std::strtof(text, nullptr) < value) && !(std::strtof(text, nullptr) > value))
            break;
    }
    return text;
}

double memoryRatio(const GpuView& gpu) {
    if (!gpu.memoryUsedMiB || !gpu.memoryTotalMiB || *gpu.memoryTotalMiB <= 0)
        return 0.0;
    return std::clamp(static_cast<double>(*gpu.memoryUsedMiB) / *gpu.memoryTotalMiB, 0.0, 1.0);
}

std::string memoryText(const GpuView& gpu) {
    if (!gpu.memoryUsedMiB && !gpu.memoryTotalMiB)
        return "-";
    return figureText(gpu.memoryUsedMiB, "") + "/" + figureText(gpu.memoryTotalMiB, "") + " MiB";
}

std::string kindLabel(const GpuView& gpu) {
    return gpu.kind == unknownKind ? gpu.kind + "(" + std::to_string(gpu.kindCode) + ")" : gpu.kind;
}

std::string kindText(const GpuView& gpu) {
    return kindLabel(gpu) + "-" + std::to_string(gpu.deviceIndex);
}

std::string lineForm(const StatusReport& report, const std::string& now) {
    std::string begin = now + " state=" + stateName(report.state);
    if (report.ageSeconds) {
        char age[48];
        std::snprintf(age, sizeof age, " age=%.1fs", *report.ageSeconds);
        begin += age;
    }
    if (report.measuring)
        begin += " measuring=yes";
    if (report.gpus.empty())
        return begin + " gpus=0 " + report.message + "\n";

    std::string text;
    for (std::size_t i = 0; i < report.gpus.size(); ++i) {
        const GpuView& gpu = report.gpus[i];
        std::string memory = memoryText(gpu);
        memory.erase(std::remove(memory.begin(), memory.end(), ' '), memory.end());
        text.append(begin).append(" gpu=").append(std::to_string(i));
        text.append(" kind=").append(kindText(gpu));
        text.append(" load=").append(figureText(gpu.usagePercent, "%"));
        text.append(" temp=").append(figureText(gpu.temperatureCelsius, "C"));
        text.append(" mem=").append(memory);
        text.append(" speed=").append(gpu.speedGps ? shortestText(*gpu.speedGps) : "-");
        text.append(" name=").append(displayText(gpu.name).text).append("\n");
    }
    return text;
}

} // namespace qzstatus
