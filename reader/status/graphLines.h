// Figures over time, drawn with characters.
#pragma once

#include <optional>
#include <vector>

#include "reader/status/tableLines.h"

namespace qzstatus {

struct GraphPoint {
    double height = 0.0; ///< 0 to 1
    Tone tone = Tone::Plain;
};

/// `rows` lines of exactly `columns` columns, the latest point at the right. A point of height 0 shows the
/// lowest mark; one that is absent shows none. Block characters, or with `ascii` only "." ":" "#".
std::vector<TextLine> graphLines(const std::vector<std::optional<GraphPoint>>& points, int columns, int rows,
                                 bool ascii);

} // namespace qzstatus
