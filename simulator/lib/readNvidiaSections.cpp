#include <array>
#include <cstdio>

#include "simulator/lib/EntryPoints.h"
#include "simulator/lib/readSections.h"

namespace qzsim {

namespace {

constexpr std::int64_t gibibyte = std::int64_t{1} << 30;

PciPlace readPci(SectionReader& section, int index) {
    PciPlace pci;
    pci.domain = static_cast<std::uint32_t>(section.number("domain", 0, maxU32).value_or(0));
    pci.bus = static_cast<std::uint32_t>(section.number("bus", 0, maxU32).value_or(1));
    pci.device = static_cast<std::uint32_t>(section.number("device", 0, 31).value_or(0));
    // Repeated GPUs are on consecutive buses; a step of 0 keeps them on one.
    const auto busStep = section.number("bus_step", 0, 0xffff).value_or(1);
    const auto domainStep = section.number("domain_step", 0, 0xffff).value_or(0);
    pci.bus += static_cast<std::uint32_t>(busStep * index);
    pci.domain += static_cast<std::uint32_t>(domainStep * index);
    return pci;
}

std::optional<ComputeCapability> readCompute(SectionReader& section) {
    const Entry* entry = section.take("compute");
    if (entry == nullptr || entry->value == "none")
        return std::nullopt;
    const auto parts = splitList(entry->value, '.');
    const auto major = parts.size() == 2 ? parseNumber(parts[0]) : std::nullopt;
    const auto minor = parts.size() == 2 ? parseNumber(parts[1]) : std::nullopt;
    if (!major || !minor || *major < 0 || *major > 999 || *minor < 0 || *minor > 999)
        throw DescriptionError(entry->place, "compute must be MAJOR.MINOR or none: " + entry->value);
    return ComputeCapability{static_cast<int>(*major), static_cast<int>(*minor)};
}

std::string defaultUuid(std::size_t number) {
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "GPU-5f1a7e00-0000-4000-8000-%012zu", number);
    return text.data();
}

/// Figures that only diagnostic programs query; `number` is the count of GPUs before this one.
void readIdentity(SectionReader& section, NvmlGpu& gpu, int index, std::size_t number) {
    gpu.uuid = numberedText(section, "uuid", defaultUuid(number), index);
    gpu.vbiosVersion = section.text("vbios", "94.02.71.00.01");
    const std::string mig = section.text("mig", "none");
    if (mig != "none")
        gpu.mig = section.flag("mig", false);
    gpu.persistence = section.flag("persistence", true);
}

void addCudart(std::vector<LibraryLink>& links, const std::string& major, const Place& place, bool plain) {
    const std::string name = "libcudart.so." + (major == "11" ? "11.0" : major);
    const LibraryInfo* library = findLibrary(name);
    if (library == nullptr)
        throw DescriptionError(place, "a CUDA runtime is 11, 12 or 13: " + major);
    links.push_back({plain ? std::string(library->plainName) : name, std::string(library->file)});
}

void addNamed(std::vector<LibraryLink>& links, const std::string& name, std::string_view expected,
              const Place& place) {
    if (name == "none")
        return;
    const LibraryInfo* library = findLibrary(name);
    if (library == nullptr || library->name != expected) {
        throw DescriptionError(place,
                               "neither \"none\" nor a name of " + std::string(expected) + ": " + name);
    }
    links.push_back({name, std::string(library->file)});
}

} // namespace

int repetitions(SectionReader& section) {
    return static_cast<int>(section.number("count", 1, 64).value_or(1));
}

std::string numberedText(SectionReader& section, std::string_view key, std::string_view fallback, int index) {
    const Entry* entry = section.take(key);
    const auto bytes = unquoted(numbered(entry != nullptr ? entry->value : fallback, index));
    if (!bytes)
        throw DescriptionError(entry->place, "invalid escape sequence: " + entry->value);
    return *bytes;
}

void readNvidia(SectionReader& section, Machine& machine) {
    const int count = repetitions(section);
    for (int i = 0; i < count; ++i) {
        NvmlGpu gpu;
        gpu.name = numberedText(section, "name", "NVIDIA Simulated", i);
        gpu.pci = readPci(section, i);
        gpu.utilisation = section.figure("utilisation", 0, 0, maxU32);
        gpu.temperature = section.figure("temperature", 40, 0, maxU32);
        gpu.memoryTotal = section.figure("memory_total", 8 * gibibyte, 0, INT64_MAX);
        gpu.memoryUsed = section.figure("memory_used", gibibyte, 0, INT64_MAX);
        gpu.memoryFree =
            section.figure("memory_free", gpu.memoryTotal.at(1) - gpu.memoryUsed.at(1), 0, INT64_MAX);
        gpu.hasHandle = section.flag("handle", true);
        gpu.compute = readCompute(section);
        readIdentity(section, gpu, i, machine.nvmlGpus.size());
        machine.nvmlGpus.push_back(gpu);
    }
    section.finish();
}

void readCudaDevice(SectionReader& section, Machine& machine) {
    const int count = repetitions(section);
    for (int i = 0; i < count; ++i) {
        CudaDevice device;
        device.name = numberedText(section, "name", "NVIDIA Simulated", i);
        device.pci = readPci(section, i);
        device.compute = readCompute(section).value_or(ComputeCapability{});
        const std::string seenBy = section.text("seen_by", "both");
        if (seenBy != "both" && seenBy != "runtime" && seenBy != "driver") {
            throw DescriptionError(section.section().place,
                                   "seen_by must be runtime, driver or both: " + seenBy);
        }
        device.inRuntime = seenBy != "driver";
        device.inDriver = seenBy != "runtime";
        machine.cudaDevices.push_back(device);
    }
    section.finish();
}

LibraryChoice readLibraries(SectionReader& section) {
    LibraryChoice choice;
    choice.place = section.section().place;
    choice.nvml = section.text("nvml");
    choice.openCl = section.text("opencl");
    choice.plainCudart = section.text("cudart_plain");
    if (section.take("cudart") != nullptr)
        choice.cudart = section.list("cudart");
    if (section.take("cuda") != nullptr)
        choice.cuda = section.flag("cuda", true);
    section.finish();
    return choice;
}

std::vector<LibraryLink> chosenLibraries(const LibraryChoice& choice, bool hasNvidia, bool hasOpenCl) {
    std::vector<LibraryLink> links;
    addNamed(links, choice.nvml.value_or(hasNvidia ? "libnvidia-ml.so.1" : "none"), "libnvidia-ml.so.1",
             choice.place);
    const std::vector<std::string> usual =
        hasNvidia ? std::vector<std::string>{"12"} : std::vector<std::string>();
    for (const std::string& major : choice.cudart.value_or(usual))
        if (major != "none")
            addCudart(links, major, choice.place, false);
    if (choice.plainCudart)
        addCudart(links, *choice.plainCudart, choice.place, true);
    if (choice.cuda.value_or(hasNvidia))
        addNamed(links, "libcuda.so.1", "libcuda.so.1", choice.place);
    addNamed(links, choice.openCl.value_or(hasOpenCl ? "libOpenCL.so.1" : "none"), "libOpenCL.so.1",
             choice.place);
    return links;
}

} // namespace qzsim
