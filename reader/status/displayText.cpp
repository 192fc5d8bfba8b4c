#include "reader/status/displayText.h"

#include <algorithm>
#include <cwchar>

namespace qzstatus {

namespace {

constexpr char32_t ellipsis = 0x2026;

/// Columns of a character on a terminal; 0 or less: not to be shown there.
int columnsOf(char32_t codePoint) {
    if (codePoint >= 0x20 && codePoint < 0x7F)
        return 1;
    return ::wcwidth(static_cast<wchar_t>(codePoint));
}

} // namespace

DisplayText displayText(std::string_view bytes, int limit) {
    std::u32string line = decodeUtf8(bytes);
    int columns = 0;
    for (char32_t& codePoint : line) {
        if (columnsOf(codePoint) <= 0)
            codePoint = replacementCharacter;
        // One column where the locale knows no width for the replacement character either.
        columns += columnsOf(codePoint) > 0 ? columnsOf(codePoint) : 1;
    }
    if (columns > limit && limit > 0) {
        while (!line.empty() && columns > limit - 1) {
            columns -= columnsOf(line.back()) > 0 ? columnsOf(line.back()) : 1;
            line.pop_back();
        }
        line.push_back(ellipsis);
        columns += 1;
    } else if (limit <= 0) {
        return {};
    }

    DisplayText result;
    result.columns = columns;
    for (const char32_t codePoint : line)
        appendUtf8(result.text, codePoint);
    return result;
}

std::string asciiText(std::string_view line) {
    std::string text;
    for (const char32_t codePoint : decodeUtf8(line)) {
        if (codePoint < 0x7F)
            text += static_cast<char>(codePoint);
        else if (codePoint == ellipsis)
            text += '~';
        else
            text.append(static_cast<std::size_t>(std::max(columnsOf(codePoint), 1)), '?');
    }
    return text;
}

std::string padded(std::string_view bytes, int columns, bool alignRight) {
    const DisplayText shown = displayText(bytes, columns);
    const std::string blanks(static_cast<std::size_t>(columns > shown.columns ? columns - shown.columns : 0),
                             ' ');
    return alignRight ? blanks + shown.text : shown.text + blanks;
}

} // namespace qzstatus
