// Named counters and the order of events, in a file shared with whoever watches, so that they outlive a
// program that is killed. The launcher decodes the file by the layout below.
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
    std::atomic<std::uint32_t> eventCount; ///< goes on counting when the room below is used up
    CounterSlot entries[maxSlots];
    std::uint16_t events[maxEvents]; ///< the entries' indices, in the order in which things happened
};

static_assert(sizeof(CounterSlot) == 128);
static_assert(offsetof(CounterFile, entries) == 16);
static_assert(offsetof(CounterFile, events) == 16 + 128 * CounterFile::maxSlots);

class Counters {
  public:
    /// Maps `path`, which is made when it is not there; an empty path, or one that fails, counts in memory
    /// only.
    explicit Counters(const std::string& path);
    ~Counters();
    Counters(const Counters&) = delete;
    Counters& operator=(const Counters&) = delete;

    /// Adds and gives the new value. A new name when all slots are taken is not counted; the answer is then
    /// 0.
    std::int64_t add(std::string_view name, std::int64_t amount = 1);

    /// As add(name, 1), and noted in the order of events.
    std::int64_t happened(std::string_view name);

    std::int64_t value(std::string_view name);

  private:
    CounterSlot* slot(std::string_view name);

    CounterFile* file = nullptr;
    std::unordered_map<std::string, CounterSlot*> known;
};

} // namespace qzsim
