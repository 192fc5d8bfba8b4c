// What the kernel publishes of a process, taken apart. Pure functions of bytes, which may be any bytes at
// all: a process chooses its own name and arguments.
#pragma once

#include <string_view>

#include <QtGlobal>

/// Longest command name that the kernel keeps; a longer one is cut.
constexpr std::size_t commCapacity = 15;

/// From /proc/PID/stat.
struct ProcStat {
    std::string_view comm; ///< lies in the bytes that were parsed
    char state = '?';      ///< of the main thread: 'R', 'S', 'D', 'Z', ...
    int parent = 0;        ///< process id; 0: none or not told
    int threads = 0;       ///< the main thread is among them, ended or not; 0: not told
    quint64 startTime = 0; ///< clock ticks since the machine's start; 0: not told

    /// Whether the process has ended and only waits to be collected. One whose main thread alone has ended
    /// looks the same but for its other threads.
    bool isDead() const { return (state == 'Z' && threads <= 1) || state == 'X' || state == 'x'; }
};

/// False when the bytes hold no name and state.
bool parseProcStat(std::string_view bytes, ProcStat& stat);

/// From /proc/PID/cmdline: the first two arguments; empty where there is none. They lie in the bytes that
/// were parsed.
struct ProcArguments {
    std::string_view program;
    std::string_view first;
};

ProcArguments parseProcCmdline(std::string_view bytes);

/// The name in /proc/PID/comm, without the line's end.
std::string_view parseProcComm(std::string_view bytes);

/// The path in a /proc/PID/exe link without the mark of an executable that was removed or replaced meanwhile.
std::string_view withoutDeletedMark(std::string_view exe);

/// The process that an entry of /proc stands for; 0 for all other entries.
int parseProcPid(std::string_view entry);

/// What follows the last slash; all of a path without one.
std::string_view baseName(std::string_view path);
