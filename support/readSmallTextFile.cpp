#include "support/readSmallTextFile.h"

#include <algorithm>
#include <array>

#include <fcntl.h>

#include <QFile>

#include "support/FileDescriptor.h"

namespace {

// Real files are far below this; the limit is for a file that never ends.
constexpr int maxBytes = 64 * 1024;

// Four system calls for a small file. QFile makes three more, for a size and a kind that are wrong for a
// kernel file. Without O_NONBLOCK, opening a FIFO would wait for its other end.
QByteArray readNow(const QString& path) {
    const FileDescriptor file(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    QByteArray bytes;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): filled by `read`, and only that part is used.
    std::array<char, 4096> piece;
    while (file.isOpen() && bytes.size() < maxBytes) {
        const auto room = static_cast<std::size_t>(maxBytes - bytes.size());
        const ssize_t length = ::read(file.get(), piece.data(), std::min(piece.size(), room));
        if (length < 0 && errno == EINTR)
            continue;
        if (length <= 0)
            break;
        bytes.append(piece.data(), static_cast<int>(length));
    }
    // As in Qt's text mode, carriage returns are dropped.
    return bytes.replace("\r", "");
}

} // namespace

TextFileReader textFileReader = readNow;

QByteArray readSmallTextFile(const QString& path) {
    return textFileReader(path);
}
