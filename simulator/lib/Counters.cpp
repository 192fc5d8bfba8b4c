#include "simulator/lib/Counters.h"

#include <algorithm>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace qzsim {

namespace {

void* mapCounterFile(const std::string& path) {
    constexpr std::size_t size = sizeof(CounterFile);
    void* memory = MAP_FAILED;
    if (!path.empty()) {
        const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (descriptor >= 0) {
            // Every library may do this: growing to the current size changes nothing.
            if (ftruncate(descriptor, static_cast<off_t>(size)) == 0)
                memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
            close(descriptor);
        }
    }
    if (memory == MAP_FAILED)
        memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return memory;
}

} // namespace

Counters::Counters(const std::string& path) {
    void* memory = mapCounterFile(path);
    if (memory == MAP_FAILED)
        throw std::bad_alloc();
    file = static_cast<CounterFile*>(memory);
    std::memcpy(file->magic, "QZSIM 1", sizeof(file->magic));
}

Counters::~Counters() {
    munmap(file, sizeof(CounterFile));
}

CounterSlot* Counters::slot(std::string_view name) {
    const std::string key(name.substr(0, sizeof(CounterSlot::name) - 1));
    const auto cached = known.find(key);
    if (cached != known.end())
        return cached->second;
    const auto taken = std::min(file->slotCount.load(), CounterFile::maxSlots);
    CounterSlot* found = std::find_if(file->entries, file->entries + taken,
                                      [&key](const CounterSlot& slot) { return key == slot.name; });
    if (found == file->entries + taken) {
        const auto index = file->slotCount.fetch_add(1);
        if (index >= CounterFile::maxSlots)
            return nullptr;
        found = &file->entries[index];
        std::memcpy(found->name, key.data(), key.size());
    }
    known.emplace(key, found);
    return found;
}

std::int64_t Counters::add(std::string_view name, std::int64_t amount) {
    CounterSlot* counted = slot(name);
    return counted == nullptr ? 0 : counted->value.fetch_add(amount) + amount;
}

std::int64_t Counters::happened(std::string_view name) {
    CounterSlot* counted = slot(name);
    if (counted == nullptr)
        return 0;
    const auto event = file->eventCount.fetch_add(1);
    if (event < CounterFile::maxEvents)
        file->events[event] = static_cast<std::uint16_t>(counted - file->entries);
    return counted->value.fetch_add(1) + 1;
}

std::int64_t Counters::value(std::string_view name) {
    const CounterSlot* counted = slot(name);
    return counted == nullptr ? 0 : counted->value.load();
}

} // namespace qzsim
