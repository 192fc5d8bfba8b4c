// The table as lines of text with a meaning, for those who draw it with more than characters.
#pragma once

#include <string>
#include <vector>

#include "reader/status/StatusReport.h"

namespace qzstatus {

/// What a piece of text is about.
enum class Tone {
    Plain,
    Heading,
    Hot,   ///< a temperature of 85 degrees or more
    Full,  ///< memory of which 95 % or more are in use
    Stale, ///< data that nobody refreshes
    Lost,  ///< a GPU that does not answer
};

/// Text that moves no cursor, see `displayText`.
struct TextRun {
    std::string text;
    Tone tone = Tone::Plain;
};

using TextLine = std::vector<TextRun>;

/// The line's characters, without blanks at its end.
std::string plainText(const TextLine& line);

/// The tone of a temperature and of a share of used memory (0 to 1).
Tone heatTone(double celsius);
Tone memoryTone(double ratio);

/// What the line above the table says: the number of GPUs and the data's age, or what is wrong.
std::string headline(const StatusReport& report);

/// The titles, then one line for each GPU in the list's order; see `tableForm` for the width and the bars.
/// Empty without GPUs.
std::vector<TextLine> tableLines(const StatusReport& report, int width, bool bars);

} // namespace qzstatus
