// The forms a report can be put out in. Each is text from a report and nothing else.
#pragma once

#include <string>

#include "reader/status/StatusReport.h"

namespace qzstatus {

/// A table for people, one line a GPU, below a line that tells the data's age (or what is wrong). No line is
/// wider than `width` columns (0: no limit): the name is shortened first, then whole columns go, the least
/// needed first. With `bars`, load and memory are drawn as well. Absent figures are "-", and the load of a
/// GPU that did not answer is "no answer".
std::string tableForm(const StatusReport& report, int width, bool bars);

/// One JSON object, always valid: see docs/segment.md for its members.
std::string jsonForm(const StatusReport& report);

/// Text exposition format 0.0.4. GPUs appear only while the data are fresh.
std::string prometheusForm(const StatusReport& report);

/// One line a GPU for a log, each beginning with `now` (UTC, ISO 8601); one line when there is none.
std::string lineForm(const StatusReport& report, const std::string& now);

/// The fewest digits that read back as the same number; `value` is finite.
std::string shortestText(float value);

/// Used memory as a share of the total, 0 to 1; 0 when either is absent or makes no sense.
double memoryRatio(const GpuView& gpu);

/// "1024/24576 MiB", with "-" for what is absent; "-" alone when both are.
std::string memoryText(const GpuView& gpu);

/// The value and its unit, or "-" when it is absent.
std::string figureText(const std::optional<std::int32_t>& value, const char* unit);

/// The GPU's kind; "unknown(7)" when its code has no name.
std::string kindLabel(const GpuView& gpu);

/// The kind and the GPU's index of that kind: "Cuda-0".
std::string kindText(const GpuView& gpu);

} // namespace qzstatus
