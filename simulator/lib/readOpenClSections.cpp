#include <algorithm>

#include "simulator/lib/readSections.h"

namespace qzsim {

namespace {

/// "0x0c" answers that number, "refused" and "refused -33" refuse with CL_INVALID_VALUE or with that code.
ClAttribute readAttribute(SectionReader& section, std::string_view key, int index) {
    ClAttribute attribute;
    const Entry* entry = section.take(key);
    if (entry == nullptr)
        return attribute;
    const auto words = splitWords(entry->value);
    constexpr std::int64_t none = INT64_MAX;
    const std::int64_t last = words.empty() ? none : parseNumber(words.back()).value_or(none);
    if (words.size() == 1 && last >= 0 && last <= maxU32)
        attribute.value = static_cast<std::uint32_t>(last + index);
    else if (words.size() == 2 && words[0] == "refused" && last < 0 && last > -100000)
        attribute.refusal = static_cast<int>(last);
    else if (words.size() != 1 || words[0] != "refused")
        throw DescriptionError(entry->place,
                               entry->key + " must be a number or \"refused [CODE]\": " + entry->value);
    return attribute;
}

std::uint64_t readType(SectionReader& section) {
    const std::string type = section.text("type", "gpu");
    const struct {
        std::string_view name;
        std::uint64_t bits;
    } types[] = {{"cpu", 2}, {"gpu", 4}, {"accelerator", 8}};
    for (const auto& known : types)
        if (known.name == type)
            return known.bits;
    throw DescriptionError(section.section().place, "a device's type is gpu, cpu or accelerator: " + type);
}

bool isIcdName(const std::string& name) {
    const std::string ending = ".icd";
    return isFileName(name) && name.size() > ending.size() &&
           name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
}

std::vector<float> readResults(SectionReader& section, std::vector<float> fallback) {
    const Entry* entry = section.take("results");
    if (entry == nullptr)
        return fallback;
    std::vector<float> results;
    for (const auto& part : splitList(entry->value)) {
        const auto value = parseReal(part);
        if (!value)
            throw DescriptionError(entry->place, "results must be numbers: " + part);
        results.push_back(static_cast<float>(*value));
    }
    if (results.empty())
        throw DescriptionError(entry->place, "results must be numbers");
    return results;
}

/// A driver and the file that registers it, by a word of its platforms' names.
struct Driver {
    std::string_view word;
    std::string_view icd;
    std::string_view file;
};

constexpr Driver drivers[] = {
    {"NVIDIA", "nvidia.icd", "libnvidia-opencl.so.1"}, {"AMD", "amdocl64.icd", "libamdocl64.so"},
    {"Clover", "mesa.icd", "libMesaOpenCL.so.1"},      {"rusticl", "rusticl.icd", "libRusticlOpenCL.so.1"},
    {"", "simulated.icd", "libsimulated-opencl.so.1"},
};

void readDriver(SectionReader& section, ClPlatform& platform) {
    const Driver* driver = std::find_if(std::begin(drivers), std::end(drivers), [&](const Driver& known) {
        return platform.name.find(known.word) != std::string::npos;
    });
    platform.icd = section.text("icd", driver->icd);
    platform.driver = section.text("library", driver->file);
    const bool isKnown = std::any_of(std::begin(drivers), std::end(drivers),
                                     [&](const Driver& known) { return known.file == platform.driver; });
    if (!isIcdName(platform.icd) || !isKnown)
        throw DescriptionError(section.section().place,
                               "no driver and file for it: " + platform.driver + ", " + platform.icd);
}

bool hasIcd(const Machine& machine, const std::string& name) {
    return std::any_of(machine.icds.begin(), machine.icds.end(),
                       [&](const IcdFile& icd) { return icd.name == name; });
}

} // namespace

void registerDrivers(Machine& machine) {
    for (const ClPlatform& platform : machine.openCl.platforms)
        if (!hasIcd(machine, platform.icd))
            machine.icds.push_back({platform.icd, platform.driver + "\n"});
}

void readIcd(SectionReader& section, Machine& machine) {
    const std::string& name = section.section().argument;
    if (!isIcdName(name))
        throw DescriptionError(section.section().place, "a driver's file needs its name: [icd nvidia.icd]");
    machine.icds.erase(std::remove_if(machine.icds.begin(), machine.icds.end(),
                                      [&](const IcdFile& icd) { return icd.name == name; }),
                       machine.icds.end());
    const std::string text = section.text("text", "");
    if (!section.flag("missing", false))
        machine.icds.push_back({name, text + "\n"});
    section.finish();
}

void readOpenCl(SectionReader& section, Machine& machine) {
    OpenClStack& stack = machine.openCl;
    const std::string mode = section.text("mode", "pocl");
    if (mode != "pocl" && mode != "scripted")
        throw DescriptionError(section.section().place, "mode must be pocl or scripted: " + mode);
    stack.usesPocl = mode == "pocl";
    stack.share = section.real("share", stack.share, 0.0, 1.0);
    stack.stretch = section.real("stretch", stack.stretch, 1.0, 1000.0);
    stack.roundMs = section.figure("round_ms", 20, 0, 3600000);
    stack.sleeps = section.flag("sleep", true);
    stack.results = readResults(section, stack.results);
    stack.buildLog = section.text("build_log", stack.buildLog);
    if (const auto count = section.number("reported_platforms", 0, maxU32))
        stack.reportedPlatforms = static_cast<std::uint32_t>(*count);
    section.finish();
}

void readPlatform(SectionReader& section, Machine& machine) {
    const int count = repetitions(section);
    for (int i = 0; i < count; ++i) {
        ClPlatform platform;
        const Entry* name = section.take("name");
        platform.answersName = name == nullptr || name->value != "@refused";
        platform.name = numberedText(section, "name", "Simulated OpenCL", i);
        readDriver(section, platform);
        if (const auto reported = section.number("reported_devices", 0, maxU32))
            platform.reportedDevices = static_cast<std::uint32_t>(*reported);
        machine.openCl.platforms.push_back(platform);
    }
    section.finish();
}

void readClDevice(SectionReader& section, Machine& machine) {
    if (machine.openCl.platforms.empty())
        throw DescriptionError(section.section().place, "a [device] comes after its [platform]");
    const int count = repetitions(section);
    const auto step = static_cast<int>(section.number("bus_step", 0, 0xffff).value_or(1));
    for (int i = 0; i < count; ++i) {
        ClDevice device;
        const Entry* name = section.take("name");
        device.answersName = name == nullptr || name->value != "@refused";
        device.name = numberedText(section, "name", "Simulated device", i);
        device.type = readType(section);
        device.nvBus = readAttribute(section, "nv_bus", i * step);
        device.amdBus = readAttribute(section, "amd_topology_bus", i * step);
        device.khrBus = readAttribute(section, "khr_bus", i * step);
        device.khrDomain = static_cast<std::uint32_t>(section.number("khr_domain", 0, maxU32).value_or(0));
        device.extensions = section.text("extensions", "cl_khr_global_int32_base_atomics");
        machine.openCl.platforms.back().devices.push_back(device);
    }
    section.finish();
}

} // namespace qzsim
