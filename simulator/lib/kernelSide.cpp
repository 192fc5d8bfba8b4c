// What the kernel shows of its GPU drivers beside /sys/class/drm: modules, device nodes, files of /proc.
#include <algorithm>

#include "simulator/lib/readSections.h"

namespace qzsim {

namespace {

/// Modules that are loaded when a driver is bound; a driver without an entry is the module of its name.
struct DriverModules {
    std::string_view driver;
    std::vector<std::string> modules;
};

const std::vector<DriverModules>& knownDrivers() {
    static const std::vector<DriverModules> drivers = {
        {"nvidia", {"nvidia", "nvidia_modeset", "nvidia_drm", "nvidia_uvm"}},
        {"vfio-pci", {"vfio_pci"}},
    };
    return drivers;
}

bool hasModule(const Machine& machine, std::string_view name) {
    return std::find(machine.modules.begin(), machine.modules.end(), name) != machine.modules.end();
}

void addModulesOf(Machine& machine, const std::string& driver) {
    std::vector<std::string> modules = {driver};
    for (const DriverModules& known : knownDrivers())
        if (known.driver == driver)
            modules = known.modules;
    for (const std::string& module : modules)
        if (!module.empty() && !hasModule(machine, module))
            machine.modules.push_back(module);
}

void addNode(Machine& machine, const std::string& path) {
    machine.nodes.push_back({path});
}

constexpr std::string_view nvidiaVersionFile = "driver/nvidia/version";

} // namespace

void deriveModules(Machine& machine) {
    for (const PciDevice& device : machine.pciDevices)
        addModulesOf(machine, device.driver);
    // GPUs at an address that no PCI bus can have still have their driver.
    for (const NvmlGpu& gpu : machine.nvmlGpus)
        if (addressOf(gpu.pci).empty())
            addModulesOf(machine, "nvidia");
}

void deriveNodes(Machine& machine) {
    if (hasModule(machine, "nvidia")) {
        addNode(machine, "nvidiactl");
        for (std::size_t i = 0; i < machine.nvmlGpus.size(); ++i)
            addNode(machine, "nvidia" + std::to_string(i));
    }
    if (hasModule(machine, "nvidia_uvm"))
        addNode(machine, "nvidia-uvm");
    if (hasModule(machine, "amdgpu"))
        addNode(machine, "kfd");
    int number = 128;
    for (const Card& card : machine.cards) {
        addNode(machine, "dri/" + card.name);
        addNode(machine, "dri/renderD" + std::to_string(number++));
    }
}

void deriveProcFiles(Machine& machine) {
    if (!hasModule(machine, "nvidia"))
        return;
    SysfsFile file;
    file.path = nvidiaVersionFile;
    file.kind = SysfsFile::Kind::Bytes;
    file.bytes = "NVRM version: NVIDIA UNIX x86_64 Kernel Module  " + machine.driverVersion +
                 "  Thu Feb 22 01:44:30 UTC 2024\nGCC version:  gcc version 12.2.0 (Debian 12.2.0-14) \n";
    machine.procFiles.push_back(file);
}

void readNode(SectionReader& section, Machine& machine) {
    const Place& place = section.section().place;
    const std::string& argument = section.section().argument;
    const std::string root = "/dev/";
    const std::string path = argument.rfind(root, 0) == 0 ? argument.substr(root.size()) : std::string();
    const auto parts = splitList(path, '/');
    const bool isBelowDri = parts.size() == 2 && parts[0] == "dri";
    if (parts.empty() || (parts.size() != 1 && !isBelowDri) ||
        !std::all_of(parts.begin(), parts.end(), isFileName) || parts.back() == "..")
        throw DescriptionError(place, "a device node needs its path: [node /dev/nvidia0]");
    const auto known = std::find_if(machine.nodes.begin(), machine.nodes.end(),
                                    [&](const DeviceNode& node) { return node.path == path; });
    DeviceNode node = known == machine.nodes.end() ? DeviceNode{path} : *known;
    if (known != machine.nodes.end())
        machine.nodes.erase(known);
    if (const auto mode = section.text("mode")) {
        if (mode->empty() || mode->size() > 4 || mode->find_first_not_of("01234567") != std::string::npos)
            throw DescriptionError(place, "a mode is up to four octal digits: " + *mode);
        node.mode = static_cast<unsigned>(std::stoul(*mode, nullptr, 8));
    }
    if (!section.flag("missing", false))
        machine.nodes.push_back(node);
    section.finish();
}

void readProc(SectionReader& section, Machine& machine) {
    for (const std::string_view path :
         {nvidiaVersionFile, std::string_view("version"), std::string_view("meminfo")}) {
        const Entry* entry = section.take(path);
        if (entry == nullptr)
            continue;
        SysfsFile file = readSysfsFile(*entry, std::string(path), 0);
        if (file.kind != SysfsFile::Kind::Bytes && file.kind != SysfsFile::Kind::Missing)
            throw DescriptionError(entry->place, "a file of /proc is a text or @missing: " + entry->value);
        auto& files = machine.procFiles;
        files.erase(std::remove_if(files.begin(), files.end(),
                                   [&](const SysfsFile& known) { return known.path == path; }),
                    files.end());
        if (file.kind == SysfsFile::Kind::Bytes)
            files.push_back(std::move(file));
    }
    section.finish();
}

} // namespace qzsim
