// The bus number in the path that a device's link leads to.
#include <string>

#include "gpu/sysfs.h"
#include "tests/fuzz/FuzzInput.h"

namespace {

/// The rule once more, for 7-bit paths whose bus is plain hexadecimal digits.
bool plainBus(std::string_view path, quint32& bus) {
    const std::string_view address = path.substr(path.rfind('/') + 1);
    const auto parts = pieces(address, ':');
    bus = 0;
    if (parts.size() < 2)
        return true;
    constexpr std::size_t mostDigits = 8;
    const std::string digits(parts[1]);
    if (digits.empty() || digits.size() > mostDigits ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        return false;
    bus = static_cast<quint32>(std::stoull(digits, nullptr, 16));
    return true;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = asText(data, size);
    const QString path = QString::fromLatin1(text.data(), static_cast<int>(text.size()));
    const quint32 bus = parsePciBus(path);

    quint32 expected = 0;
    if (isAscii(text) && plainBus(text, expected))
        require(bus == expected, "the bus is the second piece of the last part");
    require(parsePciBus("/sys/devices/" + path) == bus, "what comes before the last part does not matter");
    require(parsePciBus(path + "/gpu") == 0, "a last part without a colon is on no bus");
    const QString again = QString::number(bus, 16);
    require(parsePciBus("/sys/devices/0000:" + again + ":00.0") == bus, "a bus that is written is read back");
    return 0;
}
