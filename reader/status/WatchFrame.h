// What the watched view shows: from a report, its history and a terminal's size to lines of text.
#pragma once

#include <vector>

#include "reader/status/StatusReport.h"
#include "reader/status/WatchHistory.h"
#include "reader/status/WatchView.h"
#include "reader/status/tableLines.h"

namespace qzstatus {

struct FrameSize {
    int columns = 80;
    int rows = 24;
    bool ascii = false; ///< nothing but ASCII may be shown
};

struct WatchFrame {
    std::vector<TextLine> lines; ///< at most `rows`, none wider than `columns`
    ShownPart shown;
};

/// A headline, the table or the graphs, and a line that names the keys where there are more than 10 rows.
WatchFrame layOut(const StatusReport& report, const WatchHistory& history, const WatchView& view,
                  const FrameSize& size);

} // namespace qzstatus
