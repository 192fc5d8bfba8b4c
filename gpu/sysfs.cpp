#include "gpu/sysfs.h"

#include <QDir>
#include <QFileInfo>
#include <QRegExp>

#include "support/readSmallTextFile.h"

namespace {

// QDir::NoSort as an argument would mean the directory object's own order, which is by name.
QStringList directoriesInFileSystemOrder(const QString& path, const QString& nameFilter) {
    return QDir(path).entryList({nameFilter}, QDir::Dirs, QDir::Unsorted);
}

} // namespace

QString readSysfsValue(const QString& path) {
    return QString::fromLatin1(readSmallTextFile(path)).trimmed();
}

QStringList listDrmCards(const QString& drmDirectory) {
    QStringList cards;
    const QStringList names = directoriesInFileSystemOrder(drmDirectory, QStringLiteral("card[0-9]*"));
    for (const QString& name : names)
        if (isDrmCardName(name))
            cards.append(name);
    return cards;
}

bool isDrmCardName(const QString& name) {
    return QRegExp(QStringLiteral("^card\\d+$")).exactMatch(name);
}

QString findHwmonDir(const QString& deviceDirectory) {
    const QString parent = deviceDirectory + "/hwmon";
    const QStringList monitors = directoriesInFileSystemOrder(parent, QStringLiteral("hwmon*"));
    return monitors.isEmpty() ? QString() : parent + "/" + monitors.first();
}

quint32 pciBusOfDevice(const QString& deviceDirectory) {
    return parsePciBus(QFileInfo(deviceDirectory).symLinkTarget());
}

quint32 parsePciBus(const QString& devicePath) {
    const QString address = devicePath.split('/').last();
    const QStringList pieces = address.split(':');
    return pieces.size() < 2 ? 0 : pieces[1].toUInt(nullptr, 16);
}
