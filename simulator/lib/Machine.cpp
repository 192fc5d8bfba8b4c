#include "simulator/lib/Machine.h"

#include <algorithm>

#include "simulator/lib/readSections.h"

namespace qzsim {

namespace {

/// Sections that change what follows from the others, in the order in which they are looked at.
constexpr std::string_view lateSections[] = {"icd", "pci", "kernel", "node", "proc"};

bool isLate(const Section& section) {
    return std::find(std::begin(lateSections), std::end(lateSections), section.name) !=
           std::end(lateSections);
}

void readMachineSection(SectionReader& section, Machine& machine) {
    machine.summary = section.text("summary", "");
    machine.processes = section.list("processes");
    machine.fastRandom = section.flag("fast_random", false);
    section.finish();
}

void readOsRelease(SectionReader& section, Machine& machine) {
    const auto text = section.text("text");
    const auto id = section.text("id");
    const bool missing = section.flag("missing", false);
    if (int{text.has_value()} + int{id.has_value()} + int{missing} != 1) {
        throw DescriptionError(section.section().place,
                               "[os-release] has one of text, id and \"missing = yes\"");
    }
    machine.osRelease = text;
    if (id)
        machine.osRelease = "PRETTY_NAME=\"Simulated\"\nID=" + *id + "\nID_LIKE=debian\n";
    section.finish();
}

std::optional<std::uint32_t> readReportedDevices(SectionReader& section) {
    const auto count = section.number("reported_devices", 0, maxU32);
    section.finish();
    return count ? std::optional(static_cast<std::uint32_t>(*count)) : std::nullopt;
}

/// What the tests expect of the program on this machine; the simulator ignores it.
void readExpectations(SectionReader& section) {
    for (const char* key : {"queries", "scored", "unscored", "hidden", "left_over", "problems", "exit_code"})
        section.take(key);
    section.finish();
}

void readFaults(const Section& section, Machine& machine) {
    for (const Entry& entry : section.entries)
        machine.faults.push_back(parseFault(entry));
}

void readSection(const Section& section, Machine& machine, LibraryChoice& libraries) {
    if (section.name == "faults") {
        // Only here may a key occur more than once: a function can have several faults.
        readFaults(section, machine);
        return;
    }
    SectionReader reader(section);
    if (section.name == "machine") {
        readMachineSection(reader, machine);
    } else if (section.name == "os-release") {
        readOsRelease(reader, machine);
    } else if (section.name == "libraries") {
        libraries = readLibraries(reader);
    } else if (section.name == "nvml") {
        machine.driverVersion = reader.text("driver_version", machine.driverVersion);
        machine.nvmlVersion = reader.text("nvml_version", machine.nvmlVersion);
        machine.reportedNvmlDevices = readReportedDevices(reader);
    } else if (section.name == "cuda") {
        machine.reportedCudaDevices = readReportedDevices(reader);
    } else if (section.name == "nvidia") {
        readNvidia(reader, machine);
    } else if (section.name == "cuda-device") {
        readCudaDevice(reader, machine);
    } else if (section.name == "opencl") {
        readOpenCl(reader, machine);
    } else if (section.name == "platform") {
        readPlatform(reader, machine);
    } else if (section.name == "device") {
        readClDevice(reader, machine);
    } else if (section.name == "drm") {
        machine.drmEntries = reader.list("entries");
        reader.finish();
    } else if (section.name == "expected") {
        readExpectations(reader);
    } else if (section.name == "card") {
        readCard(reader, machine);
    } else {
        throw DescriptionError(section.place, "there is no section [" + section.name + "]");
    }
}

/// Without [cuda-device] sections CUDA sees the GPUs of NVML that have a compute capability.
void deriveCudaDevices(Machine& machine) {
    if (!machine.cudaDevices.empty())
        return;
    for (const NvmlGpu& gpu : machine.nvmlGpus)
        if (gpu.compute)
            machine.cudaDevices.push_back({gpu.name, gpu.pci, *gpu.compute, true, true});
}

/// `[kernel] modules`, in place of those that follow from the drivers.
void readKernel(SectionReader& section, Machine& machine) {
    if (section.take("modules") != nullptr)
        machine.modules = section.list("modules");
    for (const std::string& module : machine.modules)
        if (!isFileName(module))
            throw DescriptionError(section.section().place, "not a module's name: " + module);
    section.finish();
}

void readLateSections(const std::vector<Section>& sections, std::string_view name, Machine& machine) {
    for (const Section& section : sections) {
        if (section.name != name)
            continue;
        SectionReader reader(section);
        if (name == "icd")
            readIcd(reader, machine);
        else if (name == "pci")
            readPciDevice(reader, machine);
        else if (name == "kernel")
            readKernel(reader, machine);
        else if (name == "node")
            readNode(reader, machine);
        else
            readProc(reader, machine);
    }
}

/// What the kernel shows of the GPUs: derived from them, except for what the description states.
void deriveKernelSide(const std::vector<Section>& sections, Machine& machine) {
    derivePciDevices(machine);
    readLateSections(sections, "pci", machine);
    deriveModules(machine);
    readLateSections(sections, "kernel", machine);
    deriveNodes(machine);
    readLateSections(sections, "node", machine);
    deriveProcFiles(machine);
    readLateSections(sections, "proc", machine);
}

void numberDevices(Machine& machine) {
    int index = 0;
    for (ClPlatform& platform : machine.openCl.platforms)
        for (ClDevice& device : platform.devices)
            device.index = index++;
}

} // namespace

Machine parseMachine(std::string_view text, const std::string& file) {
    Machine machine;
    machine.osRelease = "PRETTY_NAME=\"Simulated\"\nID=debian\n";
    LibraryChoice libraries;
    bool hasNvidia = false;
    bool hasOpenCl = false;
    const std::vector<Section> sections = parseDescription(text, file);
    for (const Section& section : sections) {
        hasNvidia = hasNvidia || section.name == "nvidia";
        hasOpenCl = hasOpenCl || section.name == "opencl" || section.name == "platform";
        if (!isLate(section))
            readSection(section, machine, libraries);
    }
    machine.libraries = chosenLibraries(libraries, hasNvidia, hasOpenCl);
    deriveCudaDevices(machine);
    numberDevices(machine);
    registerDrivers(machine);
    readLateSections(sections, "icd", machine);
    deriveKernelSide(sections, machine);
    return machine;
}

Machine readMachine(const std::string& path) {
    return parseMachine(readDescriptionFile(path), path);
}

void addFaults(Machine& machine, std::string_view text, const std::string& source) {
    Place place{source, 0};
    for (const std::string& line : splitList(text, '\n')) {
        ++place.line;
        if (!line.empty())
            machine.faults.push_back(parseFault(parseEntry(line, place)));
    }
}

} // namespace qzsim
