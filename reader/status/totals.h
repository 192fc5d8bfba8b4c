// The figures of a machine as a whole.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "reader/status/StatusReport.h"

namespace qzstatus {

/// Each over the GPUs that have the figure; absent when none has it.
struct Totals {
    std::optional<double> meanUsagePercent;
    std::optional<std::int64_t> totalMemoryMiB;
    std::optional<std::int64_t> usedMemoryMiB;
    std::optional<std::int32_t> hottestCelsius;
};

Totals totalsOf(const std::vector<GpuView>& gpus);

} // namespace qzstatus
