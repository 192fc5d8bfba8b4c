// A number that may change over time: what a sensor shows at its first, second, third reading.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qzsim {

/// "45", "45, 47, 50" (one per reading, the last stays), "45, 47, ..." (over and over) or "cycle", "cycle
/// 1MiB" (the reading's own number, times a factor, so that all figures of a cycle carry the same number).
class Figure {
  public:
    Figure() = default;
    explicit Figure(std::int64_t constant) : values{constant} {}

    /// Empty if the text has none of the forms above.
    static std::optional<Figure> parse(std::string_view text);

    /// The value of the n-th reading, counted from 1. `cycleStart` is added to n in the cycle form.
    std::int64_t at(std::uint64_t reading, std::int64_t cycleStart = 0) const;

    bool changes() const { return cycleFactor.has_value() || values.size() > 1; }
    std::int64_t smallest() const;
    std::int64_t largest() const;

  private:
    std::vector<std::int64_t> values{0};
    std::optional<std::int64_t> cycleFactor;
    bool repeats = false;
};

} // namespace qzsim
