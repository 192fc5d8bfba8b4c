// The processes below this one.
#pragma once

#include <vector>

#include <sys/types.h>

namespace doctor {

/// The children of a process, including ended ones that have not been reaped. Empty if the process list can't
/// be read.
std::vector<pid_t> childrenOf(pid_t parent, const char* procRoot = "/proc");

/// A process's state as in /proc/PID/stat, such as 'D' for one that waits in the kernel; '?' when it is not
/// known.
char processState(pid_t pid, const char* procRoot = "/proc");

} // namespace doctor
