#include "reader/status/totals.h"

#include <algorithm>

namespace qzstatus {

namespace {

void add(std::optional<std::int64_t>& sum, const std::optional<std::int32_t>& figure) {
    if (figure)
        sum = sum.value_or(0) + *figure;
}

} // namespace

Totals totalsOf(const std::vector<GpuView>& gpus) {
    Totals totals;
    std::optional<std::int64_t> usage;
    int withUsage = 0;
    for (const GpuView& gpu : gpus) {
        add(usage, gpu.usagePercent);
        withUsage += gpu.usagePercent ? 1 : 0;
        add(totals.totalMemoryMiB, gpu.memoryTotalMiB);
        add(totals.usedMemoryMiB, gpu.memoryUsedMiB);
        if (gpu.temperatureCelsius)
            totals.hottestCelsius =
                std::max(totals.hottestCelsius.value_or(*gpu.temperatureCelsius), *gpu.temperatureCelsius);
    }
    if (usage)
        totals.meanUsagePercent = static_cast<double>(*usage) / withUsage;
    return totals;
}

} // namespace qzstatus
