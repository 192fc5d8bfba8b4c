#include "doctor/steps/processes.h"

#include <QDir>

#include "support/procEntry.h"
#include "support/readSmallTextFile.h"

namespace doctor {

namespace {

struct Process {
    bool exists = false;
    char state = '?';
    pid_t parent = 0;
};

Process processOf(const QString& directory) {
    const QByteArray bytes = readSmallTextFile(directory + "/stat");
    ProcStat stat;
    Process process;
    if (parseProcStat({bytes.constData(), static_cast<std::size_t>(bytes.size())}, stat))
        process = {true, stat.state, stat.parent};
    return process;
}

} // namespace

std::vector<pid_t> childrenOf(pid_t parent, const char* procRoot) {
    std::vector<pid_t> children;
    const QStringList entries = QDir(procRoot).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted);
    for (const QString& entry : entries) {
        const pid_t pid = parseProcPid(entry.toStdString());
        if (pid > 0 && processOf(QString::fromLatin1(procRoot) + "/" + entry).parent == parent)
            children.push_back(pid);
    }
    return children;
}

char processState(pid_t pid, const char* procRoot) {
    return processOf(QStringLiteral("%1/%2").arg(QLatin1String(procRoot)).arg(pid)).state;
}

} // namespace doctor
