// What the watched view remembers of earlier readings.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>

#include "reader/status/StatusReport.h"

namespace qzstatus {

/// One GPU at one reading; a figure that was not known then has no value.
struct Sample {
    std::optional<double> load;        ///< 0 to 1
    std::optional<double> memory;      ///< used share, 0 to 1
    std::optional<double> temperature; ///< degrees Celsius
};

class WatchHistory {
  public:
    static constexpr std::size_t longest = 512; ///< samples that are kept of a GPU

    /// Adds one sample for each GPU. While the data are not fresh, all have a gap; a GPU that is not in a
    /// fresh list is forgotten.
    void add(const StatusReport& report);

    /// The samples of the GPU at a place of the report, the oldest first.
    const std::deque<Sample>& of(const StatusReport& report, std::size_t index) const;

  private:
    std::map<std::string, std::deque<Sample>> series;
};

} // namespace qzstatus
