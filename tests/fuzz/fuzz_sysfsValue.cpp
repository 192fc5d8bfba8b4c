// One of the kernel's values, read through a real file.
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "gpu/sysfs.h"
#include "tests/fuzz/FuzzInput.h"

namespace {

constexpr std::size_t readerBound = 64 * 1024;

/// The rule once more, by other means; for 7-bit files. A text file is read without its carriage returns.
std::string expectedValue(std::string_view file) {
    std::string text;
    for (const char c : file)
        if (c != '\r')
            text += c;
    return std::string(asciiTrimmed(text.substr(0, text.find('\0'))));
}

class MemoryFile {
  public:
    MemoryFile() : fd(memfd_create("value", MFD_CLOEXEC)) {
        require(fd >= 0, "a file can be made");
        path = "/proc/self/fd/" + std::to_string(fd);
    }
    void fill(std::string_view bytes) const {
        const auto count = static_cast<ssize_t>(bytes.size());
        require(ftruncate(fd, 0) == 0 && pwrite(fd, bytes.data(), bytes.size(), 0) == count,
                "the file can be written");
    }

    int fd;
    std::string path;
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    const std::string_view text = asText(data, size);
    file.fill(text);
    const QString value = readSysfsValue(QString::fromStdString(file.path));

    require(value == value.trimmed(), "a value has no white space at its ends");
    require(!value.contains(QChar(0)), "a value ends at the first NUL");
    require(static_cast<std::size_t>(value.size()) <= text.size(),
            "a value holds nothing but the file's bytes");
    if (isAscii(text) && text.size() < readerBound)
        require(value == QString::fromStdString(expectedValue(text)), "a value is the file's trimmed text");
    return 0;
}
