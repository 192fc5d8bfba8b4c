#include "reader/status/WatchHistory.h"

#include <algorithm>
#include <utility>

#include "reader/status/forms.h"

namespace qzstatus {

namespace {

/// Place, kind and name: none of them alone tells GPUs apart on every machine.
std::string keyOf(const StatusReport& report, std::size_t index) {
    const GpuView& gpu = report.gpus[index];
    return std::to_string(index) + " " + kindText(gpu) + " " + gpu.name;
}

Sample sampleOf(const GpuView& gpu) {
    Sample sample;
    if (gpu.usagePercent)
        sample.load = std::clamp(*gpu.usagePercent / 100.0, 0.0, 1.0);
    if (gpu.memoryUsedMiB && gpu.memoryTotalMiB)
        sample.memory = memoryRatio(gpu);
    if (gpu.temperatureCelsius)
        sample.temperature = *gpu.temperatureCelsius;
    return sample;
}

void append(std::deque<Sample>& samples, const Sample& sample) {
    samples.push_back(sample);
    if (samples.size() > WatchHistory::longest)
        samples.pop_front();
}

} // namespace

void WatchHistory::add(const StatusReport& report) {
    if (report.state != ReportState::Ok) {
        for (auto& [key, samples] : series)
            append(samples, {});
        return;
    }
    std::map<std::string, std::deque<Sample>> listed;
    for (std::size_t i = 0; i < report.gpus.size(); ++i) {
        const std::string key = keyOf(report, i);
        std::deque<Sample>& samples = listed[key] = std::move(series[key]);
        append(samples, sampleOf(report.gpus[i]));
    }
    series = std::move(listed);
}

const std::deque<Sample>& WatchHistory::of(const StatusReport& report, std::size_t index) const {
    static const std::deque<Sample> none;
    const auto found = series.find(keyOf(report, index));
    return found == series.end() ? none : found->second;
}

} // namespace qzstatus
