// One library's view of the simulated machine: the description, what goes wrong at which call, and the
// counters.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/lib/Counters.h"
#include "simulator/lib/Machine.h"

#define QZSIM_API extern "C" __attribute__((visibility("default")))

namespace qzsim {

/// What one call does.
struct Verdict {
    std::optional<int> code;           ///< return this at once and do nothing
    std::optional<std::string> answer; ///< answer this instead of the machine's value
    std::uint64_t call = 0; ///< the call's number, counted from 1, of this device where there is one

    /// The answer as a number, else `otherwise`.
    std::int64_t number(std::int64_t otherwise) const;
};

/// Reads QZSIM_MACHINE (the description's path), QZSIM_FAULTS (further faults, one a line), QZSIM_COUNTERS
/// (the counters' file) and QZSIM_CYCLE_START on first use. A description that cannot be used
/// ends the process with status 99 and one line on standard error, so that no test continues with half a
/// machine.
class Session {
  public:
    static Session& instance();

    const Machine& machine() const { return description; }
    Counters& counters() { return counts; }

    /// Counts the call of an entry point, applies its faults, and returns what the entry point does.
    Verdict call(std::string_view function, int device = -1);

    /// The value of a figure at a reading, the cycle numbers' start included.
    std::int64_t valueAt(const Figure& figure, std::uint64_t reading) const {
        return figure.at(reading, cycleStart);
    }

    /// Counts the opening of a file and returns the fault that applies to it, or null. Delays happen here.
    const Fault* opened(std::string_view path, std::uint64_t& reading);

    /// Reports a use of the library that would break a real driver.
    void misuse(std::string_view what) { counts.happened("misuse:" + std::string(what)); }

  private:
    Session();

    Machine description;
    Counters counts;
    std::int64_t cycleStart = 0;
};

/// A static object of this kind in a stand-in counts its loads and unloads and applies its faults.
class LibraryPresence {
  public:
    /// `liveCounter` names the counter that must be 0 at the end where "crash-without-shutdown" is set.
    explicit LibraryPresence(std::string_view name, std::string_view liveCounter = {});
    ~LibraryPresence();
    LibraryPresence(const LibraryPresence&) = delete;
    LibraryPresence& operator=(const LibraryPresence&) = delete;

  private:
    std::string library;
    std::string zeroAtEnd;
};

} // namespace qzsim
