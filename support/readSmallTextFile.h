#pragma once

#include <QByteArray>
#include <QString>

/// The bytes of a small text file such as the kernel and the system publish, at most 64 KiB, line ends as
/// "\n". Null when the file can't be opened or read (`errno` then has the reason), or is empty.
QByteArray readSmallTextFile(const QString& path);

/// What `readSmallTextFile` calls. A recorder of the program's readings puts a function of its own here and
/// calls the former one from it.
using TextFileReader = QByteArray (*)(const QString& path);
extern TextFileReader textFileReader;
