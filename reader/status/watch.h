// The table that keeps itself up to date.
#pragma once

#include "reader/GpuSegmentReader.h"
#include "reader/status/Options.h"

namespace qzstatus {

/// Shows reading after reading on standard output until SIGINT, SIGTERM or SIGHUP: redrawn in place on a
/// terminal, as plain lines elsewhere. Returns 0, or the `errno` of the write that ended it. SIGQUIT ends the
/// process by its default action once the terminal is restored.
int watch(const GpuSegmentReader& reader, const Options& options);

} // namespace qzstatus
