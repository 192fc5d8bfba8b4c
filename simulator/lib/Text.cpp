#include "simulator/lib/Text.h"

#include <charconv>

namespace qzsim {

namespace {

constexpr std::string_view blanks = " \t\r\n";

std::optional<char> hexByte(std::string_view digits) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (digits.size() != 2 || error != std::errc() || end != digits.data() + digits.size())
        return std::nullopt;
    return static_cast<char>(value);
}

} // namespace

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::vector<std::string> splitList(std::string_view text, char separator) {
    std::vector<std::string> parts;
    if (trimmed(text).empty())
        return parts;
    for (;;) {
        const auto end = text.find(separator);
        parts.emplace_back(trimmed(text.substr(0, end)));
        if (end == std::string_view::npos)
            return parts;
        text.remove_prefix(end + 1);
    }
}

std::vector<std::string> splitWords(std::string_view text) {
    std::vector<std::string> words;
    std::string word;
    bool inQuotes = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inQuotes && c == '\\' && i + 1 < text.size()) {
            word += c;
            word += text[++i];
            continue;
        }
        inQuotes = inQuotes != (c == '"');
        if (!inQuotes && blanks.find(c) != std::string_view::npos) {
            if (!word.empty()) {
                words.push_back(std::move(word));
                word.clear();
            }
            continue;
        }
        word += c;
    }
    if (!word.empty())
        words.push_back(std::move(word));
    return words;
}

std::optional<std::int64_t> parseNumber(std::string_view text) {
    int shift = 0;
    const struct {
        std::string_view suffix;
        int shift;
    } units[] = {{"KiB", 10}, {"MiB", 20}, {"GiB", 30}};
    for (const auto& unit : units) {
        if (text.size() > unit.suffix.size() &&
            text.substr(text.size() - unit.suffix.size()) == unit.suffix) {
            shift = unit.shift;
            text = trimmed(text.substr(0, text.size() - unit.suffix.size()));
        }
    }
    const bool negative = !text.empty() && text.front() == '-';
    if (negative)
        text.remove_prefix(1);
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (text.empty() || text.front() == '-' || error != std::errc() || end != text.data() + text.size() ||
        value > (INT64_MAX >> shift))
        return std::nullopt;
    value <<= shift;
    return negative ? -value : value;
}

// With a point in every locale: the program around this library sets one.
std::optional<double> parseReal(std::string_view text) {
    if (text.empty() || text.find_first_not_of("0123456789.-") != std::string_view::npos)
        return std::nullopt;
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

bool isQuoted(std::string_view text) {
    return text.size() >= 2 && text.front() == '"' && text.back() == '"';
}

std::optional<std::string> unquoted(std::string_view text) {
    if (!isQuoted(text))
        return std::string(text);
    text = text.substr(1, text.size() - 2);
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            bytes += text[i];
            continue;
        }
        const char escape = ++i < text.size() ? text[i] : '\0';
        switch (escape) {
        case 'n':
            bytes += '\n';
            break;
        case 't':
            bytes += '\t';
            break;
        case '\\':
        case '"':
            bytes += escape;
            break;
        case 'x': {
            const auto byte = hexByte(text.substr(i + 1, 2));
            if (!byte)
                return std::nullopt;
            bytes += *byte;
            i += 2;
            break;
        }
        default:
            return std::nullopt;
        }
    }
    return bytes;
}

std::string numbered(std::string_view text, int index) {
    std::string result(text);
    const std::string number = std::to_string(index);
    for (auto at = result.find("{i}"); at != std::string::npos; at = result.find("{i}", at + number.size()))
        result.replace(at, 3, number);
    return result;
}

} // namespace qzsim
