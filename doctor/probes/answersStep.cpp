#include "doctor/probes/answersStep.h"

#include <unistd.h>

#include <QFile>
#include <QFileInfo>

#include "support/qzLastOSError.h"

namespace doctor {

void askProgram(Channel& channel, const QString& program, const QString& option) {
    const QByteArray path = QFile::encodeName(program);
    const QByteArray argument = option.toLocal8Bit();
    channel.begin(QStringLiteral("%1 %2").arg(QFileInfo(program).fileName(), option));
    ::execl(path.constData(), path.constData(), argument.constData(), static_cast<char*>(nullptr));
    channel.send("cannot", {{"reason", QString(qzLastOSError(-1))}});
    ::_exit(127);
}

QString programBeside() {
    return QFileInfo(QFile::symLinkTarget(QStringLiteral("/proc/self/exe"))).path() + "/qzGpuInfo";
}

} // namespace doctor
