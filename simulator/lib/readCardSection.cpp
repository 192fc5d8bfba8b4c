#include <algorithm>
#include <array>
#include <cstdio>

#include "simulator/lib/readSections.h"

namespace qzsim {

namespace {

SysfsFile readFile(const Entry& entry, std::string path, int index) {
    SysfsFile file;
    file.path = std::move(path);
    file.kind = SysfsFile::Kind::Bytes;
    const auto words = splitWords(entry.value);
    const std::string first = words.empty() ? std::string() : words[0];
    if (first == "@missing") {
        file.kind = SysfsFile::Kind::Missing;
    } else if (first == "@directory") {
        file.kind = SysfsFile::Kind::Directory;
    } else if (first == "@dangling") {
        file.kind = SysfsFile::Kind::Dangling;
    } else if (first == "@unreadable") {
        file.kind = SysfsFile::Kind::Unreadable;
    } else if (first == "@fails") {
        const auto number = words.size() == 2 ? parseErrno(words[1]) : std::nullopt;
        if (!number)
            throw DescriptionError(entry.place, "@fails needs an errno: " + entry.value);
        file.kind = SysfsFile::Kind::Fails;
        file.errorNumber = *number;
    } else if (!first.empty() && first[0] == '@') {
        throw DescriptionError(entry.place, "not a kind of file: " + first);
    } else if (isQuoted(entry.value)) {
        const auto bytes = unquoted(entry.value);
        if (!bytes)
            throw DescriptionError(entry.place, "an escape that is none: " + entry.value);
        file.bytes = numbered(*bytes, index);
    } else if (const auto figure = Figure::parse(entry.value); figure && figure->changes()) {
        file.kind = SysfsFile::Kind::Changing;
        file.figure = *figure;
    } else if (const auto size = parseNumber(entry.value);
               size && entry.value.find("iB") != std::string::npos) {
        file.bytes = std::to_string(*size) + "\n";
    } else {
        file.bytes = entry.value.empty() ? std::string() : numbered(entry.value, index) + "\n";
    }
    return file;
}

/// card1 for card0 and index 1: the digits at the end are counted on.
std::string numberedCard(const std::string& name, int index) {
    const auto digits = name.find_last_not_of("0123456789") + 1;
    if (index == 0 || digits >= name.size())
        return name;
    return name.substr(0, digits) +
           std::to_string(std::stoul(name.substr(digits, 6)) + static_cast<unsigned>(index));
}

/// 0000:04:00.0 for 0000:03:00.0 and index 1; a text of another form stays.
std::string numberedAddress(const std::string& address, int index) {
    const auto parts = splitList(address, ':');
    const auto bus = parts.size() == 3 ? parseNumber("0x" + parts[1]) : std::nullopt;
    if (index == 0 || !bus)
        return address;
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "%02x",
                  static_cast<unsigned>(*bus) + static_cast<unsigned>(index));
    return parts[0] + ":" + text.data() + ":" + parts[2];
}

bool isFileName(const std::string& name) {
    return !name.empty() && name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

bool isPathBelow(const std::string& path) {
    const auto parts = splitList(path, '/');
    return !parts.empty() && std::all_of(parts.begin(), parts.end(), [](const std::string& part) {
        return isFileName(part) && part != "." && part != "..";
    });
}

void readHwmon(SectionReader& section, Card& card) {
    card.hwmonDirs = section.list("hwmon");
    for (const auto& dir : card.hwmonDirs)
        if (!isFileName(dir))
            throw DescriptionError(section.section().place, "not a directory's name: " + dir);
}

/// Files of any name: HWMON/FILE in a monitor's folder, ./PATH in the device's. A bare name would not do for
/// these: a misspelt key is an error.
void readFiles(SectionReader& section, Card& card, int index) {
    for (const Entry& entry : section.section().entries) {
        const auto slash = entry.key.find('/');
        if (slash == std::string::npos)
            continue;
        const std::string folder = entry.key.substr(0, slash);
        const std::string path = entry.key.substr(slash + 1);
        const bool isMonitor =
            std::find(card.hwmonDirs.begin(), card.hwmonDirs.end(), folder) != card.hwmonDirs.end();
        if (!isMonitor && folder != ".")
            continue;
        if (!isPathBelow(path))
            throw DescriptionError(entry.place, "not a file below the card's device: " + entry.key);
        section.take(entry.key);
        card.files.push_back(readFile(entry, isMonitor ? "hwmon/" + entry.key : path, index));
    }
}

SysfsFile::Kind readDeviceEntry(SectionReader& section) {
    const std::string form = section.text("device_entry", "link");
    if (form == "link")
        return SysfsFile::Kind::Bytes;
    if (form == "directory")
        return SysfsFile::Kind::Directory;
    if (form == "dangling")
        return SysfsFile::Kind::Dangling;
    if (form != "missing") {
        throw DescriptionError(section.section().place,
                               "device_entry must be link, directory, dangling or missing: " + form);
    }
    return SysfsFile::Kind::Missing;
}

} // namespace

void readCard(SectionReader& section, Machine& machine) {
    if (!isFileName(section.section().argument))
        throw DescriptionError(section.section().place, "a card needs its name: [card card0]");
    const int count = repetitions(section);
    for (int i = 0; i < count; ++i) {
        Card card;
        card.name = numberedCard(section.section().argument, i);
        card.address = numberedAddress(section.text("address", "0000:01:00.0"), i);
        if (!isFileName(card.address)) {
            throw DescriptionError(section.section().place,
                                   "an address is one name of a folder: " + card.address);
        }
        card.deviceEntry = readDeviceEntry(section);
        card.connectors = section.list("connectors");
        for (const char* key : {"vendor", "product_name", "label", "mem_info_vram_total", "gpu_busy_percent",
                                "mem_info_vram_used"})
            if (const Entry* entry = section.take(key))
                card.files.push_back(readFile(*entry, key, i));
        readHwmon(section, card);
        readFiles(section, card, i);
        machine.cards.push_back(card);
    }
    section.finish();
}

} // namespace qzsim
