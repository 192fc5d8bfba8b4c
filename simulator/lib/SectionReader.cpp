#include "simulator/lib/SectionReader.h"

namespace qzsim {

namespace {

void checkRange(const Entry& entry, std::int64_t smallest, std::int64_t largest, std::int64_t least,
                std::int64_t most) {
    if (smallest < least || largest > most) {
        throw DescriptionError(entry.place, entry.key + " must lie between " + std::to_string(least) +
                                                " and " + std::to_string(most) + ": " + entry.value);
    }
}

} // namespace

SectionReader::SectionReader(const Section& section) : source(section) {
    std::set<std::string> seen;
    for (const Entry& entry : section.entries)
        if (!seen.insert(entry.key).second)
            throw DescriptionError(entry.place, "duplicate key in this section: " + entry.key);
}

const Entry* SectionReader::take(std::string_view key) {
    taken.insert(std::string(key));
    return source.find(key);
}

std::optional<std::string> SectionReader::text(std::string_view key) {
    const Entry* entry = take(key);
    if (entry == nullptr)
        return std::nullopt;
    auto bytes = unquoted(entry->value);
    if (!bytes)
        throw DescriptionError(entry->place, "invalid escape sequence: " + entry->value);
    return bytes;
}

std::string SectionReader::text(std::string_view key, std::string_view fallback) {
    return text(key).value_or(std::string(fallback));
}

std::optional<std::int64_t> SectionReader::number(std::string_view key, std::int64_t least,
                                                  std::int64_t most) {
    const Entry* entry = take(key);
    if (entry == nullptr)
        return std::nullopt;
    const auto value = parseNumber(entry->value);
    if (!value)
        throw DescriptionError(entry->place, entry->key + " must be a number: " + entry->value);
    checkRange(*entry, *value, *value, least, most);
    return value;
}

double SectionReader::real(std::string_view key, double fallback, double least, double most) {
    const Entry* entry = take(key);
    if (entry == nullptr)
        return fallback;
    const auto value = parseReal(entry->value);
    if (!value || *value < least || *value > most) {
        throw DescriptionError(entry->place, entry->key + " must be a number between " +
                                                 std::to_string(least) + " and " + std::to_string(most) +
                                                 ": " + entry->value);
    }
    return *value;
}

bool SectionReader::flag(std::string_view key, bool fallback) {
    const Entry* entry = take(key);
    if (entry == nullptr)
        return fallback;
    if (entry->value != "yes" && entry->value != "no")
        throw DescriptionError(entry->place, entry->key + " must be yes or no: " + entry->value);
    return entry->value == "yes";
}

Figure SectionReader::figure(std::string_view key, std::int64_t fallback, std::int64_t least,
                             std::int64_t most) {
    const Entry* entry = take(key);
    if (entry == nullptr)
        return Figure(fallback);
    const auto figure = Figure::parse(entry->value);
    if (!figure) {
        throw DescriptionError(
            entry->place, entry->key + " must be a number, a list of them or \"cycle\": " + entry->value);
    }
    checkRange(*entry, figure->smallest(), figure->largest(), least, most);
    return *figure;
}

std::vector<std::string> SectionReader::list(std::string_view key) {
    const Entry* entry = take(key);
    return entry == nullptr ? std::vector<std::string>() : splitList(entry->value);
}

void SectionReader::finish() const {
    for (const Entry& entry : source.entries)
        if (taken.count(entry.key) == 0)
            throw DescriptionError(entry.place, "[" + source.name + "] has no key " + entry.key);
}

} // namespace qzsim
