// How every part of the program reports.
#pragma once

#include <QString>
#include <QStringList>

/// Messages of a level above this are not printed. 0 fatal set-up, 1 error, 2 warning and advice, 3 progress,
/// 4 update report, 5 detail.
extern int logLevel;

/// When set, every line begins with the local time and "| ".
extern bool logTimeStamps;

/// Writes `message` and a line break to standard output as UTF-8, if `level` is at most `logLevel`. Does not
/// flush.
void logLine(int level, const QString& message);

/// Logs each message as one line.
void logLines(int level, const QStringList& messages);
