#include "simulator/lib/readSections.h"

namespace qzsim {

namespace {

/// card1 for card0 and index 1: the number at the end is increased.
std::string numberedCard(const std::string& name, int index) {
    const auto digits = name.find_last_not_of("0123456789") + 1;
    if (index == 0 || digits >= name.size())
        return name;
    return name.substr(0, digits) +
           std::to_string(std::stoul(name.substr(digits, 6)) + static_cast<unsigned>(index));
}

void readHwmon(SectionReader& section, Card& card) {
    card.hwmonDirs = section.list("hwmon");
    for (const auto& dir : card.hwmonDirs)
        if (!isFileName(dir))
            throw DescriptionError(section.section().place, "not a directory's name: " + dir);
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
                card.files.push_back(readSysfsFile(*entry, key, i));
        readHwmon(section, card);
        readFilesBelow(section, ".", "", i, card.files);
        for (const std::string& monitor : card.hwmonDirs)
            readFilesBelow(section, monitor, "hwmon/" + monitor + "/", i, card.files);
        machine.cards.push_back(card);
    }
    section.finish();
}

} // namespace qzsim
