#include "reader/utf8.h"

namespace qzgpuinfo {

namespace {

/// How a first byte goes on: the number of bytes that follow and the range of the next one. The ranges that
/// are narrower than 80 to BF leave out over-long forms, surrogates and what lies above U+10FFFF.
struct Sequence {
    int following = -1; ///< -1: no first byte
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
};

Sequence sequenceOf(unsigned char first) {
    if (first < 0x80)
        return {0};
    if (first >= 0xC2 && first <= 0xDF)
        return {1};
    if (first == 0xE0)
        return {2, 0xA0, 0xBF};
    if (first == 0xED)
        return {2, 0x80, 0x9F};
    if (first >= 0xE1 && first <= 0xEF)
        return {2};
    if (first == 0xF0)
        return {3, 0x90, 0xBF};
    if (first >= 0xF1 && first <= 0xF3)
        return {3};
    if (first == 0xF4)
        return {3, 0x80, 0x8F};
    return {};
}

/// Takes one code point off the front of `rest`, which is not empty.
char32_t takeCodePoint(std::string_view& rest) {
    const auto first = static_cast<unsigned char>(rest.front());
    rest.remove_prefix(1);
    Sequence sequence = sequenceOf(first);
    if (sequence.following < 0)
        return replacementCharacter;
    if (sequence.following == 0)
        return first;

    char32_t codePoint = first & (0x3FU >> sequence.following);
    for (; sequence.following > 0; --sequence.following) {
        const auto next = static_cast<unsigned char>(rest.empty() ? '\0' : rest.front());
        if (next < sequence.low || next > sequence.high)
            return replacementCharacter;
        rest.remove_prefix(1);
        codePoint = (codePoint << 6) | (char32_t{next} & 0x3F);
        sequence.low = 0x80;
        sequence.high = 0xBF;
    }
    return codePoint;
}

} // namespace

std::u32string decodeUtf8(std::string_view bytes) {
    std::u32string codePoints;
    while (!bytes.empty())
        codePoints.push_back(takeCodePoint(bytes));
    return codePoints;
}

void appendUtf8(std::string& text, char32_t codePoint) {
    const auto append = [&text](char32_t byte) { text.push_back(static_cast<char>(byte)); };
    if (codePoint < 0x80) {
        append(codePoint);
    } else if (codePoint < 0x800) {
        append(0xC0 | (codePoint >> 6));
        append(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        append(0xE0 | (codePoint >> 12));
        append(0x80 | ((codePoint >> 6) & 0x3F));
        append(0x80 | (codePoint & 0x3F));
    } else {
        append(0xF0 | (codePoint >> 18));
        append(0x80 | ((codePoint >> 12) & 0x3F));
        append(0x80 | ((codePoint >> 6) & 0x3F));
        append(0x80 | (codePoint & 0x3F));
    }
}

std::string validUtf8(std::string_view bytes) {
    std::string text;
    for (const char32_t codePoint : decodeUtf8(bytes))
        appendUtf8(text, codePoint);
    return text;
}

} // namespace qzgpuinfo
