#include "reader/status/graphLines.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace qzstatus {

namespace {

constexpr std::array blocks{" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::array letters{" ", ".", ":", "#"};

/// Adds one column's mark to the line.
void append(TextLine& line, const char* mark, Tone tone) {
    if (line.empty() || line.back().tone != tone)
        line.push_back({"", tone});
    line.back().text += mark;
}

} // namespace

std::vector<TextLine> graphLines(const std::vector<std::optional<GraphPoint>>& points, int columns, int rows,
                                 bool ascii) {
    const int steps = static_cast<int>(ascii ? letters.size() : blocks.size()) - 1;
    std::vector<TextLine> lines(static_cast<std::size_t>(std::max(rows, 0)));
    const int count = static_cast<int>(points.size());
    for (int column = count - columns; column < count; ++column) {
        const auto point = column >= 0 ? points[static_cast<std::size_t>(column)] : std::nullopt;
        const double height = point ? std::clamp(point->height, 0.0, 1.0) : 0.0;
        const int level = point ? std::max(static_cast<int>(std::lround(height * rows * steps)), 1) : 0;
        for (int row = 0; row < rows; ++row) {
            const auto part =
                static_cast<std::size_t>(std::clamp(level - (rows - 1 - row) * steps, 0, steps));
            append(lines[static_cast<std::size_t>(row)], ascii ? letters.at(part) : blocks.at(part),
                   point ? point->tone : Tone::Plain);
        }
    }
    return lines;
}

} // namespace qzstatus
