// What a job scheduler can ask a node for.
#pragma once

#include <string>
#include <string_view>

#include "reader/status/StatusReport.h"

namespace qzstatus {

/// One comma-separated line of node features, each `qz_` and then only `[a-z0-9_]`. A feature is there if at
/// least one GPU that answers has it; `qz_vram_` and `qz_gps_` are there for every step that the largest
/// memory and the best score reach. An empty line when no GPU answers.
std::string featuresForm(const StatusReport& report);

/// The model of a GPU's name in lower case, "rtx4090"; a run of other characters between letters and digits
/// becomes one underscore. Empty if nothing remains.
std::string modelToken(std::string_view name);

} // namespace qzstatus
