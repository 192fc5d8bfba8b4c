// Named counters and the order of events, in a file shared with the launcher, so that they outlive a
// killed program. The launcher decodes the file by the layout below.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace qzsim {

struct CounterSlot {
    std::atomic<std::int64_t> value;
    char name[120]; ///< NUL-terminated; cut when longer
};

struct CounterFile {
    static constexpr std::uint32_t maxSlots = 2048;
    static constexpr std::uint32_t maxEvents = 65536;

    char magic[8]; ///< "QZSIM 1"
    std::atomic<std::uint32_t> slotCount;
    std::atomic<std::uint32_t> eventCount; ///< keeps counting when the array below is full
    CounterSlot entries[maxSlots];
    std::uint16_t events[maxEvents]; ///< the entries' indices, in the order in which things happened
};

static_assert(sizeof(CounterSlot) == 128);
static_assert(offsetof(CounterFile, entries) == 16);
static_assert(offsetof(CounterFile, events) == 16 + 128 * CounterFile::maxSlots);

class Counters {
  public:
    /// Maps the file `path`, creating it if needed; with an empty path, or after a failure, counts in memory
    /// only.
    explicit Counters(const std::string& path);
    ~Counters();
    Counters(const Counters&) = delete;
    Counters& operator=(const Counters&) = delete;

    /// Adds and returns the new value. A new name is not counted if all slots are taken; returns 0 then.
    std::int64_t add(std::string_view name, std::int64_t amount = 1);

    /// As add(name, 1), and records the event's order.
    std::int64_t happened(std::string_view name);

    std::int64_t value(std::string_view name);

  private:
    CounterSlot* slot(std::string_view name);

    CounterFile* file = nullptr;
    std::unordered_map<std::string, CounterSlot*> known;
};

} // namespace qzsim
