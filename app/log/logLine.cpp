#include "app/log/logLine.h"

#include "app/log/output.h"
#include "support/qzTime.h"

int logLevel = 3;
bool logTimeStamps = false;

void logLine(int level, const QString& message) {
    if (logLevel < level)
        return;
    QByteArray line;
    if (logTimeStamps)
        line = QByteArray(_qzTime(true).asString8_Md_hms().c_str()) + "| ";
    line += message.toUtf8();
    printLine(line.constData());
}

void logLines(int level, const QStringList& messages) {
    for (const QString& message : messages)
        logLine(level, message);
}
