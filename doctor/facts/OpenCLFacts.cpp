#include "doctor/facts/OpenCLFacts.h"

#include <algorithm>

#include <QDir>
#include <QFileInfo>

#include "doctor/facts/json.h"
#include "support/readSmallTextFile.h"

namespace doctor {

OpenCLFacts::OpenCLFacts(const StepOutcome& outcome)
    : platforms(fromJson<OpenCLPlatformFacts>(outcome.reported("platform"))),
      devices(fromJson<OpenCLDeviceFacts>(outcome.reported("device"))) {
    const auto libraries = outcome.reported("library");
    for (const QJsonObject& message : libraries)
        library = fromJson<OpenCLLibrary>(message);
}

quint32 OpenCLFacts::seenOf(const OpenCLPlatformFacts& platform) const {
    return static_cast<quint32>(
        std::count_if(devices.begin(), devices.end(),
                      [&](const OpenCLDeviceFacts& device) { return device.platform == platform.number; }));
}

QVector<IcdFile> listIcdFiles(const Places& places, const QString& oclIcdVendors) {
    const auto read = [](const QString& path) {
        const QString text = QString::fromLocal8Bit(readSmallTextFile(path));
        return IcdFile{path, text.section('\n', 0, 0).trimmed()};
    };
    if (oclIcdVendors.endsWith(".icd") && QFileInfo(oclIcdVendors).isFile())
        return {read(oclIcdVendors)};
    const QDir folder(oclIcdVendors.isEmpty() ? places.icdFiles() : oclIcdVendors);
    QVector<IcdFile> files;
    const QStringList names = folder.entryList({"*.icd"}, QDir::Files | QDir::System, QDir::Name);
    for (const QString& name : names)
        files.append(read(folder.filePath(name)));
    return files;
}

} // namespace doctor
