// The stand-in libraries, by the names under which they are opened, and their functions.
#pragma once

#include <string_view>
#include <vector>

namespace qzsim {

struct LibraryInfo {
    std::string_view name;                   ///< the versioned name it is opened under
    std::string_view plainName;              ///< the development link's name
    std::string_view file;                   ///< the stand-in's file in the build folder
    std::vector<std::string_view> functions; ///< names that a fault may give
};

const std::vector<LibraryInfo>& knownLibraries();

/// The library opened as `name` (either of its names), or null.
const LibraryInfo* findLibrary(std::string_view name);

bool isKnownFunction(std::string_view name);

} // namespace qzsim
