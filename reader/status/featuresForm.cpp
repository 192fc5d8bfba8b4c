#include "reader/status/featuresForm.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <vector>

#include "gpu/GpuDevice.h"
#include "gpu/gpuNameWords.h"

namespace qzstatus {

namespace {

/// GB of 10^9 bytes, as cards are sold: one sold with 24 GB reports from 23,000 to 24,576 MiB.
constexpr int memorySteps[] = {2, 4, 6, 8, 10, 12, 16, 20, 24, 32, 40, 48, 64, 80, 96, 128, 192, 256};
constexpr int scoreSteps[] = {1, 2, 5, 10, 20, 50, 100, 200, 500, 1000};

/// Independent of the locale.
char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string lower(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        c = lower(c);
    return result;
}

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
}

bool isLetterOrDigit(char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

class FeatureLine {
  public:
    void add(std::string feature, bool present = true) {
        feature.insert(0, "qz_");
        if (present && std::find(features.begin(), features.end(), feature) == features.end())
            features.push_back(feature);
    }

    std::string text() const {
        std::string line;
        for (const std::string& feature : features)
            line.append(line.empty() ? "" : ",").append(feature);
        return line + "\n";
    }

  private:
    std::vector<std::string> features;
};

} // namespace

std::string modelToken(std::string_view name) {
    std::string text = lower(name);
    for (const char* word : gpuNameWords)
        replaceAll(text, lower(word), "");
    replaceAll(text, "ada generation", "ada");
    replaceAll(text, " ", "");

    std::string token;
    for (const char c : text) {
        if (isLetterOrDigit(c))
            token += c;
        else if (!token.empty() && token.back() != '_')
            token += '_';
    }
    if (!token.empty() && token.back() == '_')
        token.pop_back();
    return token;
}

std::string featuresForm(const StatusReport& report) {
    std::vector<GpuView> gpus;
    std::copy_if(report.gpus.begin(), report.gpus.end(), std::back_inserter(gpus),
                 [](const GpuView& gpu) { return gpu.answering; });
    const auto any = [&](auto holds) { return std::any_of(gpus.begin(), gpus.end(), holds); };

    FeatureLine line;
    line.add("gpu", !gpus.empty());
    line.add("nvcuda", any([](const GpuView& gpu) { return gpu.kindCode == GpuType_Cuda; }));
    line.add("optix", any([](const GpuView& gpu) { return gpu.optixCapable; }));
    line.add("amdrt", any([](const GpuView& gpu) { return gpu.amdRayTracing; }));
    for (const GpuView& gpu : gpus)
        if (const std::string model = modelToken(gpu.name); !model.empty())
            line.add("model_" + model);
    for (const int step : memorySteps)
        line.add("vram_" + std::to_string(step) + "g", any([step](const GpuView& gpu) {
                     return std::int64_t{gpu.memoryTotalMiB.value_or(0)} * 1024 * 1024 >=
                            std::int64_t{step} * 1'000'000'000;
                 }));
    for (const int step : scoreSteps)
        line.add("gps_" + std::to_string(step), any([step](const GpuView& gpu) {
                     return gpu.speedGps.value_or(0.0F) >= static_cast<float>(step);
                 }));
    return line.text();
}

} // namespace qzstatus
