#include "simulator/lib/Description.h"

#include <fstream>
#include <sstream>

namespace qzsim {

namespace {

Section parseHeader(std::string_view line, const Place& place) {
    if (line.back() != ']')
        throw DescriptionError(place, "the section's closing bracket is missing");
    const auto inside = trimmed(line.substr(1, line.size() - 2));
    const auto blank = inside.find(' ');
    Section section;
    section.name = inside.substr(0, blank);
    if (blank != std::string_view::npos)
        section.argument = trimmed(inside.substr(blank));
    section.place = place;
    if (section.name.empty())
        throw DescriptionError(place, "a section without a name");
    return section;
}

} // namespace

const Entry* Section::find(std::string_view key) const {
    for (const Entry& entry : entries)
        if (entry.key == key)
            return &entry;
    return nullptr;
}

Entry parseEntry(std::string_view line, const Place& place) {
    const auto equals = line.find('=');
    if (equals == std::string_view::npos || trimmed(line.substr(0, equals)).empty()) {
        throw DescriptionError(place,
                               "neither a section, a comment nor \"key = value\": " + std::string(line));
    }
    return Entry{std::string(trimmed(line.substr(0, equals))), std::string(trimmed(line.substr(equals + 1))),
                 place};
}

std::vector<Section> parseDescription(std::string_view text, const std::string& file) {
    std::vector<Section> sections;
    Place place{file, 0};
    while (!text.empty()) {
        const auto end = text.find('\n');
        const auto line = trimmed(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        ++place.line;
        if (line.empty() || line.front() == '#')
            continue;
        if (line.front() == '[')
            sections.push_back(parseHeader(line, place));
        else if (sections.empty())
            throw DescriptionError(place, "a line before the first section");
        else
            sections.back().entries.push_back(parseEntry(line, place));
    }
    return sections;
}

std::string readDescriptionFile(const std::string& path) {
    const std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    // A folder can be opened but not read, and would otherwise be taken for an empty description.
    if (!file || !(text << file.rdbuf()))
        throw DescriptionError(Place{path, 0}, "the description cannot be read");
    return text.str();
}

} // namespace qzsim
