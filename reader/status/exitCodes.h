// The command's answers to its caller; `--help` and the manual list them.
#pragma once

namespace qzstatus {

enum ExitCode : int {
    ExitCode_Ok = 0,
    ExitCode_NoData = 1, ///< missing or not ready
    ExitCode_Usage = 2,
    ExitCode_Stale = 3,
    ExitCode_Foreign = 4, ///< foreign or too small
    ExitCode_Locked = 5,
    ExitCode_NotReadable = 6, ///< permission denied, or the system refused an operation
    ExitCode_Output = 7,      ///< standard output or the output file could not be written
};

} // namespace qzstatus
