// The lowest line of the watched view.
#pragma once

#include "reader/status/StatusReport.h"
#include "reader/status/WatchView.h"
#include "reader/status/tableLines.h"

namespace qzstatus {

/// The keys, the data's age and, where no GPU has a score, how to get one: as many of these as fit, in this
/// order. `scrolls`: there are more GPUs than fit.
TextLine footLine(const StatusReport& report, const WatchView& view, const ShownPart& shown, bool scrolls,
                  int columns);

} // namespace qzstatus
