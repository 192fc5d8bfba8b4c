// Bytes of unknown origin as valid UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace qzgpuinfo {

/// Replaces bytes that are not UTF-8.
constexpr char32_t replacementCharacter = 0xFFFD;

/// The code points of `bytes`. Each longest beginning of a valid sequence that is cut short or goes wrong,
/// and each byte that begins none, gives one replacement character; surrogates and overlong forms are not
/// UTF-8.
std::u32string decodeUtf8(std::string_view bytes);

/// Appends one code point to `text` as UTF-8.
void appendUtf8(std::string& text, char32_t codePoint);

/// `bytes` with the replacement character for what is not UTF-8: at most three times as long.
std::string validUtf8(std::string_view bytes);

} // namespace qzgpuinfo
