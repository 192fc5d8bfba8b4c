#pragma once

#include <QByteArray>
#include <QString>

/// The bytes of a small text file such as the kernel and the system publish, at most 64 KiB, line ends as
/// "\n". Null if the file cannot be opened or read (the reason is in `errno`), or is empty.
QByteArray readSmallTextFile(const QString& path);

/// What `readSmallTextFile` calls. A recorder of the program's readings replaces this function and calls
/// the previous one.
using TextFileReader = QByteArray (*)(const QString& path);
extern TextFileReader textFileReader;
