// The distribution's identifier, from a file that anybody may have edited.
#include <string>

#include "support/distributionId.h"
#include "tests/fuzz/FuzzInput.h"

namespace {

/// The rule once more, by other means; for 7-bit files.
std::string expectedId(std::string_view file) {
    file = file.substr(0, file.find('\0'));
    for (const std::string_view line : pieces(file, '\n')) {
        if (line.substr(0, 3) != "ID=")
            continue;
        std::string id;
        for (const char c : line.substr(3))
            if (c != '"')
                id += asciiLower(c);
        return std::string(asciiTrimmed(id));
    }
    return {};
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = asText(data, size);
    const QByteArray file(text.data(), static_cast<int>(text.size()));
    const QString id = parseDistributionId(file);

    require(id == id.trimmed() && id == id.toLower(), "an identifier is trimmed and in lower case");
    require(!id.contains('"') && !id.contains('\n') && !id.contains(QChar(0)),
            "an identifier is one plain word");
    if (isAscii(text))
        require(id == QString::fromStdString(expectedId(text)), "the identifier is the first ID= line's");
    if (distributionFamily(id) != DistributionFamily::Other)
        require(parseDistributionId("ID=" + id.toLatin1()) == id, "a known identifier is found unchanged");
    return 0;
}
