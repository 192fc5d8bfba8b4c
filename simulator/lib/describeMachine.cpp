// qzsim-describe FILE [FAULT]...: checks a description and tells the launcher, as one JSON object, what to
// lay around the program. Bytes above 0x7f stand as the Latin-1 characters of their value.
#include <cstdio>
#include <functional>
#include <iostream>

#include "simulator/lib/EntryPoints.h"
#include "simulator/lib/Machine.h"

namespace {

using namespace qzsim;

std::string jsonText(std::string_view bytes) {
    std::string text = "\"";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte >= 0x7f || c == '"' || c == '\\') {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", byte);
            text += escape;
        } else {
            text += c;
        }
    }
    return text + "\"";
}

template <typename Items, typename Convert>
std::string jsonList(const Items& items, Convert convert) {
    std::string text = "[";
    for (const auto& item : items)
        text += (text.size() > 1 ? ", " : "") + convert(item);
    return text + "]";
}

const char* kindText(SysfsFile::Kind kind) {
    static const char* const names[] = {"missing",    "bytes", "directory", "dangling",
                                        "unreadable", "fails", "changing"};
    return names[static_cast<int>(kind)];
}

std::string jsonFile(const SysfsFile& file) {
    const bool isText = file.kind == SysfsFile::Kind::Changing;
    const std::string bytes = isText ? std::to_string(file.figure.at(1)) + "\n" : file.bytes;
    return "{\"path\": " + jsonText(file.path) + ", \"kind\": " + jsonText(kindText(file.kind)) +
           ", \"bytes\": " + jsonText(bytes) + "}";
}

std::string jsonCard(const Card& card) {
    return "{\"name\": " + jsonText(card.name) + ", \"address\": " + jsonText(card.address) +
           ", \"device\": " + jsonText(kindText(card.deviceEntry)) +
           ", \"hwmon\": " + jsonList(card.hwmonDirs, jsonText) +
           ", \"connectors\": " + jsonList(card.connectors, jsonText) +
           ", \"files\": " + jsonList(card.files, jsonFile) + "}";
}

/// The library, and what of it is changed before the program starts.
std::string jsonLibrary(const LibraryLink& library, const Machine& machine) {
    std::string form = "good";
    std::vector<std::string> omitted;
    for (const Fault& fault : machine.faults) {
        const bool isThis = fault.kind == TargetKind::Library &&
                            (fault.target == library.link || findLibrary(fault.target)->file == library.file);
        if (!isThis)
            continue;
        form = fault.action == Action::Absent              ? "absent"
               : fault.action == Action::TextFile          ? "text-file"
               : fault.action == Action::OtherArchitecture ? "other-architecture"
                                                           : form;
        if (fault.action == Action::Omit)
            omitted.push_back(fault.text);
    }
    return "{\"link\": " + jsonText(library.link) + ", \"file\": " + jsonText(library.file) +
           ", \"form\": " + jsonText(form) + ", \"omit\": " + jsonList(omitted, jsonText) + "}";
}

std::string jsonMachine(const Machine& machine) {
    const bool hasOpenCl = !machine.openCl.platforms.empty();
    return "{\"summary\": " + jsonText(machine.summary) +
           ", \"processes\": " + jsonList(machine.processes, jsonText) +
           ", \"os_release\": " + (machine.osRelease ? jsonText(*machine.osRelease) : "null") +
           ", \"fast_random\": " + (machine.fastRandom ? "true" : "false") +
           ", \"pocl\": " + (hasOpenCl && machine.openCl.usesPocl ? "true" : "false") + ", \"libraries\": " +
           jsonList(machine.libraries, [&](const LibraryLink& link) { return jsonLibrary(link, machine); }) +
           ", \"drm_entries\": " + jsonList(machine.drmEntries, jsonText) +
           ", \"cards\": " + jsonList(machine.cards, jsonCard) + "}";
}

} // namespace

int main(int count, char** arguments) {
    if (count < 2) {
        std::cerr << "usage: qzsim-describe FILE [FAULT]...\n";
        return 2;
    }
    try {
        Machine machine = readMachine(arguments[1]);
        for (int i = 2; i < count; ++i)
            addFaults(machine, arguments[i], "--fault");
        std::cout << jsonMachine(machine) << "\n";
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
    return 0;
}
