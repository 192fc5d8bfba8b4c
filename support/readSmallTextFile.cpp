#include "support/readSmallTextFile.h"

#include <QFile>

namespace {
// What is read lies far below this; the bound is for a file that never ends.
constexpr qint64 maxBytes = 64 * 1024;
} // namespace

QByteArray readSmallTextFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    return file.read(maxBytes);
}
