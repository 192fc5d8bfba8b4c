#pragma once

#include "support/qzString.h"

/// What the arguments ask for.
struct CommandLine {
    bool noArguments = false;
    bool benchmark = false;
    bool shortBenchmark = false; ///< with `benchmark`: a shorter one
    bool single = false;
    bool verbose = false;
    bool queryNvCuda = false;
    bool queryNvOptix = false;
    bool queryAmdRt = false;
    bool queryGPU = false;
    bool returnGPS = false;
    bool watchesProcess = false;
    _qzString8_allSize<100> watchedProcess; ///< name of the process to watch

    /// Whether one of the four questions about the GPUs is asked.
    bool isQuery() const { return queryNvCuda || queryNvOptix || queryAmdRt || queryGPU; }

    /// Whether one update is all, without shared memory.
    bool isSingleRun() const { return isQuery() || returnGPS || single; }

    /// A query answers at once, whatever else is asked: only `returnGPS` has it benchmark first.
    bool runsBenchmark() const { return isQuery() ? returnGPS : returnGPS || benchmark; }
};

/// Reads the arguments. What is no option is ignored, but for the first that does not begin with "-": it
/// names the process to watch. `arguments` may be empty.
CommandLine parseCommandLine(int count, const char* const* arguments);
