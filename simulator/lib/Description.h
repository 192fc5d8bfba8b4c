// The syntax of a description file: sections of "key = value" lines. readSections.h gives the keys a meaning.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "simulator/lib/Text.h"

namespace qzsim {

struct Entry {
    std::string key;
    std::string value; ///< trimmed, quotes kept
    Place place;
};

/// "[name argument]" and the lines below it. Several sections may have one name.
struct Section {
    std::string name;
    std::string argument; ///< may be empty
    Place place;
    std::vector<Entry> entries;

    const Entry* find(std::string_view key) const;
};

/// The sections of `text`; `file` is the name for error messages. Throws DescriptionError.
std::vector<Section> parseDescription(std::string_view text, const std::string& file);

/// Splits a line "key = value". Throws DescriptionError.
Entry parseEntry(std::string_view line, const Place& place);

/// The bytes of a file. Throws DescriptionError when it cannot be read.
std::string readDescriptionFile(const std::string& path);

} // namespace qzsim
