#include "simulator/lib/Figure.h"

#include <algorithm>

#include "simulator/lib/Text.h"

namespace qzsim {

std::optional<Figure> Figure::parse(std::string_view text) {
    Figure figure;
    const auto words = splitWords(text);
    if (!words.empty() && words[0] == "cycle") {
        figure.cycleFactor = words.size() == 1 ? 1 : parseNumber(words[1]).value_or(0);
        return words.size() <= 2 && *figure.cycleFactor > 0 ? std::optional(figure) : std::nullopt;
    }
    auto parts = splitList(text);
    if (parts.size() > 1 && parts.back() == "...") {
        figure.repeats = true;
        parts.pop_back();
    }
    figure.values.clear();
    for (const auto& part : parts) {
        const auto value = parseNumber(part);
        if (!value)
            return std::nullopt;
        figure.values.push_back(*value);
    }
    return figure.values.empty() ? std::nullopt : std::optional(figure);
}

std::int64_t Figure::at(std::uint64_t reading, std::int64_t cycleStart) const {
    if (cycleFactor)
        return (static_cast<std::int64_t>(reading) + cycleStart) * *cycleFactor;
    const std::uint64_t index = reading > 0 ? reading - 1 : 0;
    const std::uint64_t count = values.size();
    return values[repeats ? index % count : std::min(index, count - 1)];
}

std::int64_t Figure::smallest() const {
    return *std::min_element(values.begin(), values.end());
}

std::int64_t Figure::largest() const {
    return *std::max_element(values.begin(), values.end());
}

} // namespace qzsim
