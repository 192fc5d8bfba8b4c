// The model token of any name that a driver gives its GPU.
#include <algorithm>
#include <string>

#include "gpu/shortGpuName.h"
#include "tests/fuzz/FuzzInput.h"

namespace {

bool standsAt(const std::string& text, std::size_t place, std::string_view word) {
    return text.size() - place >= word.size() &&
           std::equal(word.begin(), word.end(), text.begin() + static_cast<std::ptrdiff_t>(place),
                      [](char left, char right) { return asciiLower(left) == asciiLower(right); });
}

std::string replaced(const std::string& text, std::string_view word, std::string_view by) {
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        if (standsAt(text, i, word)) {
            result += by;
            i += word.size();
        } else {
            result += text[i++];
        }
    }
    return result;
}

/// The rule once more, by other means; for 7-bit names.
std::string expectedToken(std::string name) {
    for (const char* word :
         {"nvidia ", "geforce ", "quadro ", "tesla ", "titan ", "amd ", "radeon pro ", "radeon ", "instinct ",
          "apple ", "(tm) ", "(r) ", " laptop gpu", " mobile", " graphics", " series"})
        name = replaced(name, word, "");
    name = replaced(replaced(name, "ada generation", "Ada"), " ", "");
    return std::string(asciiTrimmed(name));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = asText(data, size);
    const QString name = QString::fromUtf8(text.data(), static_cast<int>(text.size()));
    QString edited = name;
    QString token = shortGpuName(edited);

    require(!token.contains(' ') && token == token.trimmed(), "a token has no blanks");
    require(token.size() <= name.size(), "a token is no longer than the name");
    require(edited.trimmed() == token, "the name is edited in place");
    QString again = token;
    require(shortGpuName(again) == token, "a token is its own token");
    if (isAscii(text))
        require(token == QString::fromStdString(expectedToken(std::string(text))), "the token is the rules'");
    return 0;
}
