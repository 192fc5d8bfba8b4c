// Parsers for what the kernel publishes about a process. Pure functions of arbitrary bytes: a process
// chooses its own name and arguments.
#pragma once

#include <string_view>

#include <QtGlobal>

/// Longest command name that the kernel keeps; longer ones are truncated.
constexpr std::size_t commCapacity = 15;

/// From /proc/PID/stat.
struct ProcStat {
    std::string_view comm; ///< points into the parsed bytes
    char state = '?';      ///< of the main thread: 'R', 'S', 'D', 'Z', ...
    int parent = 0;        ///< process id; 0: none or unknown
    int threads = 0;       ///< including the main thread, ended or not; 0: unknown
    quint64 startTime = 0; ///< clock ticks since boot; 0: unknown

    /// Whether the process has ended and only waits to be reaped. One of which only the main thread has
    /// ended looks the same except for its other threads.
    bool isDead() const { return (state == 'Z' && threads <= 1) || state == 'X' || state == 'x'; }
};

/// False if the bytes hold no name and state.
bool parseProcStat(std::string_view bytes, ProcStat& stat);

/// From /proc/PID/cmdline: the first two arguments, empty where missing. They point into the parsed
/// bytes.
struct ProcArguments {
    std::string_view program;
    std::string_view first;
};

ProcArguments parseProcCmdline(std::string_view bytes);

/// The name in /proc/PID/comm, without the line's end.
std::string_view parseProcComm(std::string_view bytes);

/// The path in a /proc/PID/exe link, without the suffix of an executable that was removed or replaced.
std::string_view withoutDeletedMark(std::string_view exe);

/// The process id that a /proc entry's name is; 0 for all other entries.
int parseProcPid(std::string_view entry);

/// The part after the last slash, or the whole path without one.
std::string_view baseName(std::string_view path);
