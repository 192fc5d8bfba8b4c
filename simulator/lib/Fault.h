// One thing that goes wrong: where, what and at which calls.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/lib/Description.h"

namespace qzsim {

enum class Action {
    Fail,   ///< a function returns `number` and does nothing; a file's reading fails with errno `number`
    Refuse, ///< a file's opening fails with errno `number`
    Answer, ///< a function or a file answers `text` instead of what the machine says
    Delay,  ///< `number` milliseconds more
    Hang,   ///< never returns
    Crash,  ///< SIGSEGV
    Signal, ///< the signal `number`
    Exit,   ///< the process ends with status `number`
    Print,  ///< `text` on standard output
    Fork,   ///< a child that inherits everything and lives for `number` milliseconds
    Spawn,  ///< another program, started as a child, that runs for `number` milliseconds
    // The rest apply to libraries.
    Absent,
    TextFile,
    OtherArchitecture,
    Omit, ///< the symbol `text` is missing
    CrashAtExit,
    CrashAtUnload,
    CrashWithoutShutdown,
};

enum class TargetKind { Function, Library, File };

struct Fault {
    std::string target; ///< a function, a library's name, or a path below /sys
    TargetKind kind = TargetKind::Function;
    std::optional<int> device; ///< only the calls for this device
    Action action = Action::Fail;
    std::int64_t number = 0;
    std::string text;
    std::uint64_t first = 1; ///< the first and the last call that it affects, counted from 1
    std::uint64_t last = UINT64_MAX;

    bool concerns(std::string_view name, int ofDevice) const {
        return target == name && (!device || *device == ofDevice);
    }
    bool strikesAt(std::uint64_t call) const { return call >= first && call <= last; }
};

/// "TARGET[#DEVICE] = ACTION [ARGUMENT] [at N | from N | until N]". Throws DescriptionError.
Fault parseFault(const Entry& entry);

/// The number of an errno name such as "EBUSY", or of a plain positive number.
std::optional<int> parseErrno(std::string_view text);

} // namespace qzsim
