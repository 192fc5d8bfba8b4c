// system.*
#include "doctor/checks/checks.h"
#include "doctor/facts/Gpus.h"

namespace doctor {

namespace {

/// The user whose rights are checked, in words.
QString userText(const Facts& facts) {
    return facts.rights.user.name.isEmpty() ? QStringLiteral("the user") : facts.rights.user.name;
}

QString variableMeaning(const QString& name) {
    if (name == QLatin1String("OCL_ICD_VENDORS"))
        return QStringLiteral("the OpenCL loader looks there for drivers, not in /etc/OpenCL/vendors");
    if (name == QLatin1String("LD_LIBRARY_PATH"))
        return QStringLiteral("libraries there come before the system's");
    if (name == QLatin1String("RUSTICL_ENABLE"))
        return QStringLiteral("Mesa's OpenCL offers these drivers' GPUs only");
    return QStringLiteral("GPUs that it does not name are hidden");
}

bool hidesDevices(const QString& name) {
    return name.contains("VISIBLE") || name == QLatin1String("GPU_DEVICE_ORDINAL");
}

} // namespace

void judgeDistribution(const Facts& facts, Findings& findings) {
    const QString name = !facts.system.distribution.isEmpty()     ? facts.system.distribution
                         : !facts.system.distributionId.isEmpty() ? facts.system.distributionId
                                                                  : QString();
    const QString kernel = QStringLiteral("kernel %1").arg(facts.system.kernel);
    if (name.isEmpty())
        findings.note(QStringLiteral("/etc/os-release names no distribution; %1").arg(kernel));
    else
        findings.ok(QStringLiteral("%1, %2").arg(name, kernel));
}

void judgeContainer(const Facts& facts, Findings& findings) {
    if (facts.system.wsl)
        findings.note(
            QStringLiteral("this is the Windows Subsystem for Linux: GPUs come from Windows and are not "
                           "on the PCI bus"));
    else if (!facts.system.container.isEmpty())
        findings.note(
            QStringLiteral("this is a container (%1): it sees the GPUs and drivers that it was given")
                .arg(facts.system.container));
    else
        findings.ok(QStringLiteral("neither a container nor WSL"));
}

void judgeUser(const Facts& facts, Findings& findings) {
    const UserFacts& user = facts.rights.user;
    if (!facts.rightsEnd.isDone()) {
        findings.skipped(QStringLiteral("the user's rights could not be judged"));
        return;
    }
    const QString groups = user.groups.join(QStringLiteral(", "));
    if (!user.problem.isEmpty())
        findings.warning(
            QStringLiteral("the rights of %1 could not be judged: %2").arg(facts.user, user.problem),
            QStringLiteral("run this as root"));
    else if (user.id == 0 && facts.user.isEmpty())
        findings.note(QStringLiteral("the rights of root were checked, which may do everything"),
                      QStringLiteral("to check the rights of the user who runs the program: --user NAME"));
    else
        findings.ok(QStringLiteral("the rights of %1 were checked, in the groups %2").arg(user.name, groups));
}

void judgeDevices(const Facts& facts, Findings& findings) {
    for (const NodeFacts& node : facts.rights.nodes) {
        findings.on(node.path);
        const QString rights =
            QStringLiteral("%1:%2, mode %3")
                .arg(node.owner, node.group, QString::number(node.mode, 8).rightJustified(4, '0'));
        if (node.accessible)
            findings.ok(QStringLiteral("%1 may be opened (%2)").arg(node.path, rights));
        else
            findings.failure(
                QStringLiteral("%1 may not open %2 (%3)").arg(userText(facts), node.path, rights),
                node.group == QLatin1String("root")
                    ? QStringLiteral("give the device's group the right to it by a udev rule, and add "
                                     "the user to that group")
                    : QStringLiteral("add the user to the group and log in again: sudo usermod -aG %1 %2")
                          .arg(node.group, userText(facts)));
    }
    if (facts.rights.nodes.isEmpty())
        findings.ok(QStringLiteral("there are no device nodes of GPU drivers"));
}

void judgeEnvironment(const Facts& facts, Findings& findings) {
    for (const EnvironmentVariable& variable : facts.system.environment) {
        const QString fact = QStringLiteral("%1=%2 is set: %3")
                                 .arg(variable.name, variable.value, variableMeaning(variable.name));
        findings.on(variable.name);
        if (hidesDevices(variable.name))
            findings.warning(fact,
                             QStringLiteral("unset %1 where the program is started, if all GPUs are meant")
                                 .arg(variable.name));
        else
            findings.note(fact);
    }
    if (findings.isEmpty())
        findings.ok(QStringLiteral("no variable hides GPUs or moves drivers"));
}

void judgeSharedMemory(const Facts& facts, Findings& findings) {
    const SharedMemoryFacts& shm = facts.rights.sharedMemory;
    constexpr double enoughMb = 1.0;
    if (!facts.rightsEnd.isDone())
        findings.skipped(QStringLiteral("/dev/shm could not be looked at"));
    else if (!shm.exists)
        findings.failure(QStringLiteral("there is no /dev/shm, so no companion can publish"),
                         QStringLiteral("mount it: sudo mount -t tmpfs tmpfs /dev/shm"));
    else if (!shm.writable)
        findings.failure(
            QStringLiteral("%1 may not write to /dev/shm, so no companion can publish").arg(userText(facts)),
            QStringLiteral("give it its usual rights: sudo chmod 1777 /dev/shm"));
    else if (shm.freeMb < enoughMb)
        findings.warning(QStringLiteral("/dev/shm is full"),
                         QStringLiteral("see what fills it: ls -lS /dev/shm"));
    else
        findings.ok(QStringLiteral("/dev/shm can be written and has %1 MB free").arg(shm.freeMb, 0, 'f', 0));
}

void judgeMemory(const Facts& facts, Findings& findings) {
    // Two arrays of 512 MiB in the program; an OpenCL driver may hold as much again while they are copied.
    constexpr double neededMb = 1536.0;
    const double available = facts.system.memoryAvailableMb;
    if (available < 0.0)
        findings.skipped(QStringLiteral("/proc/meminfo does not say how much memory is available"));
    else if (available < neededMb)
        findings.warning(QStringLiteral("%1 MB of memory are available, and the benchmark needs %2 MB")
                             .arg(available, 0, 'f', 0)
                             .arg(neededMb, 0, 'f', 0),
                         QStringLiteral("end other programs before measuring, or add memory"));
    else
        findings.ok(QStringLiteral("%1 MB of memory are available; the benchmark needs %2 MB")
                        .arg(available, 0, 'f', 0)
                        .arg(neededMb, 0, 'f', 0));
}

} // namespace doctor
