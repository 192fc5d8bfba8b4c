#include "doctor/probes/segmentStep.h"

#include <algorithm>
#include <cmath>

#include <pwd.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "doctor/facts/SegmentFacts.h"
#include "doctor/facts/json.h"
#include "doctor/probes/rightsStep.h"
#include "reader/GpuSegmentReader.h"
#include "reader/isFresh.h"
#include "support/procEntry.h"
#include "support/readSmallTextFile.h"

namespace doctor {

namespace {

void noteOwner(SegmentFacts& facts) {
    struct stat info{};
    if (::lstat(QFile::encodeName(facts.path).constData(), &info) != 0)
        return;
    facts.exists = true;
    facts.mode = static_cast<int>(info.st_mode & 07777U);
    const passwd* entry = ::getpwuid(info.st_uid);
    facts.owner = entry != nullptr ? QString::fromLocal8Bit(entry->pw_name) : QString::number(info.st_uid);
}

bool hasOpen(const QString& descriptors, const QString& path) {
    const QStringList names = QDir(descriptors).entryList(QDir::Files | QDir::System);
    return std::any_of(names.begin(), names.end(), [&](const QString& name) {
        return QFileInfo(descriptors + "/" + name).symLinkTarget() == path;
    });
}

/// The companions that have the segment open. Other users' processes can't be examined.
QVector<int> companionsOf(const QString& proc, const QString& path) {
    QVector<int> pids;
    const QStringList entries = QDir(proc).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& entry : entries) {
        const int pid = parseProcPid(entry.toStdString());
        if (pid > 0 && readSmallTextFile(proc + "/" + entry + "/comm") == "qzGpuInfo\n" &&
            hasOpen(proc + "/" + entry + "/fd", path))
            pids.append(pid);
    }
    return pids;
}

} // namespace

void readSegment(Channel& channel, const Places& places, const QString& name) {
    // Before the rights to see other users' processes are given up.
    const QString directory = places.dev + "/shm";
    const GpuSegmentReader reader(QFile::encodeName(directory).toStdString());
    SegmentFacts facts;
    facts.path = QString::fromStdString(reader.path());
    noteOwner(facts);
    if (facts.exists)
        facts.companions = companionsOf(places.proc, facts.path);
    if (!name.isEmpty())
        becomeUser(name);
    GpuSnapshot snapshot;
    const SegmentResult result = reader.read(snapshot);
    facts.result = static_cast<int>(result);
    facts.resultText = QString::fromUtf8(segmentResultText(result));
    facts.attached = snapshot.writerAttached;
    facts.published = snapshot.published;
    facts.measuring = snapshot.measuring;
    facts.ageSeconds = snapshot.ageSeconds;
    facts.ageLimitSeconds = ageLimit(snapshot);
    if (result == SegmentResult::Ok) {
        facts.freshness = static_cast<int>(freshness(snapshot));
        facts.gpus = snapshot.gpuCount();
    }
    channel.send("segment", toJson(facts));
}

} // namespace doctor
