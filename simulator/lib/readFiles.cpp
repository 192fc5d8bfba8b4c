// Files and their places, as several sections describe them.
#include <algorithm>
#include <array>
#include <cstdio>

#include "simulator/lib/readSections.h"

namespace qzsim {

namespace {

bool isPathBelow(const std::string& path) {
    const auto parts = splitList(path, '/');
    return !parts.empty() && std::all_of(parts.begin(), parts.end(), [](const std::string& part) {
        return isFileName(part) && part != "." && part != "..";
    });
}

} // namespace

bool isFileName(const std::string& name) {
    return !name.empty() && name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

SysfsFile readSysfsFile(const Entry& entry, std::string path, int index) {
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
        const auto bytes = unquoted(numbered(entry.value, index));
        if (!bytes)
            throw DescriptionError(entry.place, "invalid escape sequence: " + entry.value);
        file.bytes = *bytes;
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

void readFilesBelow(SectionReader& section, const std::string& folder, const std::string& place, int index,
                    std::vector<SysfsFile>& files) {
    // A bare name is not accepted for an arbitrary file, so that a misspelt key is an error.
    for (const Entry& entry : section.section().entries) {
        if (entry.key.rfind(folder + "/", 0) != 0)
            continue;
        const std::string path = entry.key.substr(folder.size() + 1);
        if (!isPathBelow(path))
            throw DescriptionError(entry.place, "not a file below the device: " + entry.key);
        section.take(entry.key);
        files.push_back(readSysfsFile(entry, place + path, index));
    }
}

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

} // namespace qzsim
