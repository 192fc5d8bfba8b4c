#pragma once

#include "support/qzString.h"

/// What the arguments request.
struct CommandLine {
    bool noArguments = false;
    bool benchmark = false;
    bool shortBenchmark = false; ///< with `benchmark`: the short one
    bool single = false;
    bool verbose = false;
    bool queryNvCuda = false;
    bool queryNvOptix = false;
    bool queryAmdRt = false;
    bool queryGPU = false;
    bool returnGPS = false;
    bool watchesProcess = false;
    _qzString8_allSize<100> watchedProcess; ///< name of the process to watch

    /// Whether one of the four GPU queries is given.
    bool isQuery() const { return queryNvCuda || queryNvOptix || queryAmdRt || queryGPU; }

    /// Whether to run one update and exit, without shared memory.
    bool isSingleRun() const { return isQuery() || returnGPS || single; }

    /// A query answers without a benchmark, unless `returnGPS` is given too.
    bool runsBenchmark() const { return isQuery() ? returnGPS : returnGPS || benchmark; }
};

/// Parses the arguments. Unknown options are ignored. The first argument that does not begin with "-" is
/// the name of the process to watch. `arguments` may be empty.
CommandLine parseCommandLine(int count, const char* const* arguments);
