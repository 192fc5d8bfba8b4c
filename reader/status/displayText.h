// Text from outside, made fit for people, terminals and formats that demand valid UTF-8.
#pragma once

#include <string>
#include <string_view>

#include "reader/utf8.h"

namespace qzstatus {

using qzgpuinfo::appendUtf8;
using qzgpuinfo::decodeUtf8;
using qzgpuinfo::replacementCharacter;

/// C0, DEL or C1: what a terminal may obey instead of showing it.
constexpr bool isControl(char32_t codePoint) {
    return codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0);
}

/// A line of text and the columns it takes on a terminal.
struct DisplayText {
    std::string text;
    int columns = 0;
};

/// Makes any bytes one line that moves no cursor: control characters, line breaks, direction marks, combining
/// characters and invalid bytes become the replacement character. At most `limit` columns: what is longer
/// ends with an ellipsis. Column widths are those of the current LC_CTYPE; a character that it does not know
/// is replaced.
DisplayText displayText(std::string_view bytes, int limit = 1 << 20);

/// `displayText` filled up with blanks to exactly `columns`.
std::string padded(std::string_view bytes, int columns, bool alignRight);

/// A line in ASCII that takes as many columns: each column of another character becomes "?", an ellipsis "~".
std::string asciiText(std::string_view line);

} // namespace qzstatus
