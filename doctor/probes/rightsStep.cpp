#include "doctor/probes/rightsStep.h"

#include <vector>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <QDir>
#include <QFile>

#include "doctor/facts/RightsFacts.h"
#include "doctor/facts/json.h"
#include "support/qzLastOSError.h"

namespace doctor {

namespace {

QString userName(uid_t id) {
    const passwd* entry = ::getpwuid(id);
    return entry != nullptr ? QString::fromLocal8Bit(entry->pw_name) : QString::number(id);
}

QString groupName(gid_t id) {
    const group* entry = ::getgrgid(id);
    return entry != nullptr ? QString::fromLocal8Bit(entry->gr_name) : QString::number(id);
}

UserFacts currentUser() {
    UserFacts facts;
    facts.id = static_cast<int>(::geteuid());
    facts.name = userName(::geteuid());
    std::vector<gid_t> ids(static_cast<std::size_t>(std::max(0, ::getgroups(0, nullptr))));
    ids.resize(static_cast<std::size_t>(std::max(0, ::getgroups(static_cast<int>(ids.size()), ids.data()))));
    facts.groups.append(groupName(::getegid()));
    for (const gid_t id : ids)
        facts.groups.append(groupName(id));
    facts.groups.removeDuplicates();
    return facts;
}

/// The existing device nodes that the vendors' drivers open.
QStringList nodePaths(const QString& dev) {
    QStringList paths;
    const auto add = [&](const QString& directory, const QStringList& names) {
        const QStringList found = QDir(directory).entryList(names, QDir::System | QDir::Files, QDir::Name);
        for (const QString& name : found)
            paths.append(directory + "/" + name);
    };
    add(dev, {"nvidiactl", "nvidia-uvm", "nvidia[0-9]*", "kfd"});
    add(dev + "/dri", {"renderD[0-9]*"});
    return paths;
}

NodeFacts nodeAt(const QString& path) {
    const QByteArray name = QFile::encodeName(path);
    NodeFacts facts;
    facts.path = path;
    struct stat info{};
    if (::stat(name.constData(), &info) == 0) {
        facts.owner = userName(info.st_uid);
        facts.group = groupName(info.st_gid);
        facts.mode = static_cast<int>(info.st_mode & 07777U);
    }
    facts.accessible = ::eaccess(name.constData(), R_OK | W_OK) == 0;
    return facts;
}

SharedMemoryFacts sharedMemoryAt(const QString& path) {
    const QByteArray name = QFile::encodeName(path);
    SharedMemoryFacts facts;
    struct statvfs room{};
    facts.exists = QDir(path).exists() && ::statvfs(name.constData(), &room) == 0;
    if (!facts.exists)
        return facts;
    facts.writable = ::eaccess(name.constData(), W_OK | X_OK) == 0;
    facts.freeMb =
        static_cast<double>(room.f_bavail) * static_cast<double>(room.f_frsize) / (1024.0 * 1024.0);
    return facts;
}

} // namespace

QString becomeUser(const QString& name) {
    const QByteArray user = name.toLocal8Bit();
    const passwd* entry = ::getpwnam(user.constData());
    if (entry == nullptr)
        return QStringLiteral("there is no user %1").arg(name);
    if (entry->pw_uid == ::geteuid())
        return {};
    const gid_t group = entry->pw_gid;
    const uid_t id = entry->pw_uid;
    if (::initgroups(user.constData(), group) != 0 || ::setgid(group) != 0 || ::setuid(id) != 0)
        return QStringLiteral("only root can judge another user's rights (%1)")
            .arg(QString(qzLastOSError(-1)));
    return {};
}

void judgeRights(Channel& channel, const Places& places, const QString& name) {
    RightsFacts facts;
    const QString problem = name.isEmpty() ? QString() : becomeUser(name);
    facts.user = currentUser();
    facts.user.problem = problem;
    const QStringList paths = nodePaths(places.dev);
    for (const QString& path : paths)
        facts.nodes.append(nodeAt(path));
    facts.sharedMemory = sharedMemoryAt(places.dev + "/shm");
    channel.send("rights", toJson(facts));
}

} // namespace doctor
