// The PCI bus: devices as they follow from the GPUs and cards, and as [pci] sections add or change them.
#include <algorithm>
#include <array>
#include <cstdio>

#include "simulator/lib/readSections.h"

namespace qzsim {

namespace {

struct Vendor {
    const char* text; ///< as the kernel's file has it
    std::uint32_t device;
    const char* driver;
};

constexpr Vendor nvidia{"0x10de\n", 0x2684, "nvidia"};
constexpr Vendor amd{"0x1002\n", 0x744c, "amdgpu"};

std::string addressText(const PciPlace& place, unsigned function) {
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "%04x:%02x:%02x.%x", place.domain, place.bus, place.device,
                  function);
    return text.data();
}

bool canExist(const PciPlace& place) {
    return place.domain <= 0xfffff && place.bus <= 0xff && place.device <= 31;
}

bool isPciAddress(const std::string& address) {
    std::array<std::uint32_t, 4> numbers{};
    std::size_t next = 0;
    for (const std::string& part : splitList(address, ':'))
        for (const std::string& digits : splitList(part, '.'))
            if (next < numbers.size())
                numbers[next++] = static_cast<std::uint32_t>(parseNumber("0x" + digits).value_or(maxU32));
    const PciPlace place{numbers[0], numbers[1], numbers[2]};
    // Formatting it again reveals anything else in the text.
    return canExist(place) && numbers[3] <= 7 && addressText(place, numbers[3]) == address;
}

const PciDevice* deviceAt(const Machine& machine, const std::string& address) {
    const auto found = std::find_if(machine.pciDevices.begin(), machine.pciDevices.end(),
                                    [&](const PciDevice& device) { return device.address == address; });
    return found == machine.pciDevices.end() ? nullptr : &*found;
}

void removeDevice(Machine& machine, const std::string& address) {
    auto& devices = machine.pciDevices;
    devices.erase(std::remove_if(devices.begin(), devices.end(),
                                 [&](const PciDevice& device) { return device.address == address; }),
                  devices.end());
}

void addDevice(Machine& machine, const std::string& address, const Vendor& vendor, bool hasVendorFile) {
    if (address.empty() || deviceAt(machine, address) != nullptr)
        return;
    PciDevice device;
    device.address = address;
    device.vendor = hasVendorFile ? "" : vendor.text;
    device.device = vendor.device;
    device.driver = vendor.driver;
    machine.pciDevices.push_back(device);
}

/// The vendor whose number is in a card's file; AMD if it is none of these.
const Vendor& vendorOf(const Card& card) {
    for (const SysfsFile& file : card.files)
        if (file.path == "vendor" && parseNumber(trimmed(file.bytes)) == 0x10de)
            return nvidia;
    return amd;
}

bool hasVendorFile(const Card& card) {
    return std::any_of(card.files.begin(), card.files.end(),
                       [](const SysfsFile& file) { return file.path == "vendor"; });
}

std::uint32_t numberOr(SectionReader& section, const char* key, std::uint32_t fallback, std::int64_t most) {
    return static_cast<std::uint32_t>(section.number(key, 0, most).value_or(fallback));
}

/// Only below /sys/class/drm can files change or fail.
void readStaticFiles(SectionReader& section, int index, std::vector<SysfsFile>& files) {
    readFilesBelow(section, ".", "", index, files);
    for (const SysfsFile& file : files)
        if (file.kind == SysfsFile::Kind::Changing || file.kind == SysfsFile::Kind::Fails ||
            file.kind == SysfsFile::Kind::Unreadable) {
            const Entry& entry = *section.take("./" + file.path);
            throw DescriptionError(entry.place,
                                   "a file of a PCI device doesn't change or fail: " + entry.value);
        }
}

} // namespace

std::string addressOf(const PciPlace& place) {
    return canExist(place) ? addressText(place, 0) : std::string();
}

void derivePciDevices(Machine& machine) {
    for (const Card& card : machine.cards)
        if (card.deviceEntry == SysfsFile::Kind::Bytes && isPciAddress(card.address))
            addDevice(machine, card.address, vendorOf(card), hasVendorFile(card));
    for (const NvmlGpu& gpu : machine.nvmlGpus)
        addDevice(machine, addressOf(gpu.pci), nvidia, false);
}

void readPciDevice(SectionReader& section, Machine& machine) {
    const Place& place = section.section().place;
    const int count = repetitions(section);
    const bool isMissing = section.flag("missing", false);
    for (int i = 0; i < count; ++i) {
        const std::string address = numberedAddress(section.section().argument, i);
        if (!isPciAddress(address))
            throw DescriptionError(place, "a PCI device needs its address: [pci 0000:41:00.0]");
        const PciDevice* known = deviceAt(machine, address);
        PciDevice device = known == nullptr ? PciDevice() : *known;
        device.address = address;
        device.classCode = numberOr(section, "class", device.classCode, 0xffffff);
        device.device = numberOr(section, "device", device.device, 0xffff);
        if (const Entry* vendor = section.take("vendor"))
            device.vendor = readSysfsFile(*vendor, "vendor", i).bytes;
        else if (known == nullptr)
            throw DescriptionError(place, "no GPU is at " + address + ", so its vendor must be given");
        device.driver = section.text("driver", device.driver);
        if (device.driver == "none")
            device.driver.clear();
        else if (!device.driver.empty() && !isFileName(device.driver))
            throw DescriptionError(place, "not a driver's name: " + device.driver);
        readStaticFiles(section, i, device.files);
        removeDevice(machine, address);
        if (!isMissing)
            machine.pciDevices.push_back(device);
    }
    section.finish();
}

} // namespace qzsim
