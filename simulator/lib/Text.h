// Small text operations of the description files, and the one error they raise.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace qzsim {

/// Position in a description: its file (or "--fault") and line, counted from 1.
struct Place {
    std::string file;
    int line = 0;
};

/// A description that cannot be used. `what()` is one line: "FILE:LINE: reason".
class DescriptionError : public std::runtime_error {
  public:
    DescriptionError(const Place& place, const std::string& reason)
        : std::runtime_error(place.file + ":" + std::to_string(place.line) + ": " + reason) {}
};

std::string_view trimmed(std::string_view text);

/// The parts between separators, each trimmed; an empty text has no parts.
std::vector<std::string> splitList(std::string_view text, char separator = ',');

/// The words between blanks; a part in double quotes is one word and keeps its quotes.
std::vector<std::string> splitWords(std::string_view text);

/// A whole number: decimal or 0x hexadecimal, with an optional sign and an optional suffix KiB, MiB, GiB.
std::optional<std::int64_t> parseNumber(std::string_view text);

/// A decimal number with an optional fraction; nothing else, "nan" and "-0" included.
std::optional<double> parseReal(std::string_view text);

bool isQuoted(std::string_view text);

/// The bytes of a text: "..." with \n, \t, \\, \" and \xHH resolved, anything else literally.
std::optional<std::string> unquoted(std::string_view text);

/// `text` with every "{i}" replaced by `index`.
std::string numbered(std::string_view text, int index);

} // namespace qzsim
