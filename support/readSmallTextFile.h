#pragma once

#include <QByteArray>
#include <QString>

/// The bytes of a small text file such as the kernel and the system publish, at most 64 KiB, line ends as
/// "\n". Null when the file can't be opened or read, or is empty.
QByteArray readSmallTextFile(const QString& path);
