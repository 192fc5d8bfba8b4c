#include "doctor/facts/SystemFacts.h"

#include <cstdlib>

#include <sys/utsname.h>

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include "support/distributionId.h"
#include "support/readSmallTextFile.h"

namespace doctor {

namespace {

const QStringList moduleNames{"nvidia", "nvidia_uvm", "nouveau", "amdgpu", "radeon", "vfio_pci"};

QVector<EnvironmentVariable> setVariables() {
    QVector<EnvironmentVariable> set;
    for (const QString& name : watchedVariables())
        if (const char* value = std::getenv(name.toLatin1().constData()))
            set.append({name, QString::fromLocal8Bit(value)});
    return set;
}

QString kernelRelease() {
    utsname names{};
    return ::uname(&names) == 0 ? QString::fromLocal8Bit(names.release) : QString();
}

} // namespace

const QStringList& watchedVariables() {
    static const QStringList names{"CUDA_VISIBLE_DEVICES", "ROCR_VISIBLE_DEVICES", "HIP_VISIBLE_DEVICES",
                                   "GPU_DEVICE_ORDINAL",   "OCL_ICD_VENDORS",      "RUSTICL_ENABLE",
                                   "LD_LIBRARY_PATH"};
    return names;
}

SystemFacts readSystem(const Places& places) {
    const QByteArray osRelease = readSmallTextFile(places.osRelease());
    SystemFacts facts;
    facts.distribution = osReleaseValue(osRelease, "PRETTY_NAME");
    facts.distributionId = parseDistributionId(osRelease);
    facts.kernel = kernelRelease();
    facts.container = containerOf(places);
    facts.wsl = isWsl(readSmallTextFile(places.proc + "/version"));
    facts.environment = setVariables();
    facts.memoryAvailableMb = parseMemoryAvailable(readSmallTextFile(places.proc + "/meminfo"));
    for (const QString& module : moduleNames)
        if (QDir(places.modules() + "/" + module).exists())
            facts.modules.append(module);
    facts.nvidiaModuleVersion =
        parseNvidiaModuleVersion(readSmallTextFile(places.proc + "/driver/nvidia/version"));
    return facts;
}

// PRETTY_NAME="Debian GNU/Linux 12 (bookworm)"
QString osReleaseValue(const QByteArray& osRelease, const QString& key) {
    const QStringList lines = QString::fromUtf8(osRelease).split('\n');
    for (const QString& line : lines)
        if (line.startsWith(key + "="))
            return line.mid(key.size() + 1).remove('"').trimmed();
    return {};
}

QString parseNvidiaModuleVersion(const QByteArray& text) {
    static const QRegularExpression version(R"(Kernel Module.*?\s(\d+\.\d+(?:\.\d+)?)\s)");
    return version.match(QString::fromLatin1(text.left(text.indexOf('\n') + 1))).captured(1);
}

double parseMemoryAvailable(const QByteArray& meminfo) {
    static const QRegularExpression available(R"(^MemAvailable:\s+(\d+) kB$)",
                                              QRegularExpression::MultilineOption);
    const QRegularExpressionMatch match = available.match(QString::fromLatin1(meminfo));
    return match.hasMatch() ? match.captured(1).toDouble() / 1024.0 : -1.0;
}

QString containerOf(const Places& places) {
    const QList<QByteArray> first = readSmallTextFile(places.proc + "/1/environ").split('\0');
    for (const QByteArray& variable : first)
        if (variable.startsWith("container="))
            return QString::fromLocal8Bit(variable.mid(10));
    if (QFile::exists(places.root + "/.dockerenv"))
        return QStringLiteral("docker");
    if (QFile::exists(places.root + "/run/.containerenv"))
        return QStringLiteral("podman");
    const QByteArray groups = readSmallTextFile(places.proc + "/1/cgroup");
    for (const char* manager : {"docker", "kubepods", "lxc"})
        if (groups.contains(manager))
            return QString::fromLatin1(manager);
    return {};
}

// Linux version 5.15.146.1-microsoft-standard-WSL2 ...
bool isWsl(const QByteArray& procVersion) {
    return procVersion.toLower().contains("microsoft");
}

} // namespace doctor
