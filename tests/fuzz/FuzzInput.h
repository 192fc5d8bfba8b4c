// Shared by the fuzz targets: stating what must hold, and splitting an input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

/// The fuzzer's entry point: libFuzzer calls it, and so does replay.cpp.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the process, as a crash would, when something does not hold.
inline void require(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

/// The input as text, cut at `most` bytes.
inline std::string_view asText(const std::uint8_t* data, std::size_t size,
                               std::size_t most = std::string_view::npos) {
    return std::string_view(reinterpret_cast<const char*>(data), size).substr(0, most);
}

/// The pieces between the separators, empty ones too: one more than there are separators.
inline std::vector<std::string_view> pieces(std::string_view text, char separator) {
    std::vector<std::string_view> found;
    for (std::size_t end = text.find(separator); end != std::string_view::npos; end = text.find(separator)) {
        found.push_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    found.push_back(text);
    return found;
}

/// Whether all of the text is 7-bit: for this part the rules can be restated without tables.
inline bool isAscii(std::string_view text) {
    for (const char c : text)
        if (static_cast<unsigned char>(c) > 0x7F)
            return false;
    return true;
}

inline char asciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Without white space at its ends, as `isspace` defines it in the "C" locale.
inline std::string_view asciiTrimmed(std::string_view text) {
    constexpr std::string_view space = " \t\n\v\f\r";
    const std::size_t first = text.find_first_not_of(space);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(space) - first + 1);
}
