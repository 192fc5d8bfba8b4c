#include "support/distributionId.h"

#include <QStringList>

#include "support/readSmallTextFile.h"

QString distributionId(const QString& osReleasePath) {
    return parseDistributionId(readSmallTextFile(osReleasePath));
}

// ID="rocky"
QString parseDistributionId(const QByteArray& osRelease) {
    const QString key = QStringLiteral("ID=");
    const auto lines = QString::fromLatin1(osRelease).split(QLatin1Char('\n'));
    for (const QString& line : lines)
        if (line.startsWith(key))
            return line.mid(key.size()).remove(QLatin1Char('"')).trimmed().toLower();
    return {};
}

DistributionFamily distributionFamily(const QString& id) {
    for (const char* debianLike : {"ubuntu", "debian"})
        if (id == QLatin1String(debianLike))
            return DistributionFamily::Debian;
    for (const char* redHatLike : {"rhel", "rocky", "centos", "fedora", "ol"})
        if (id == QLatin1String(redHatLike))
            return DistributionFamily::RedHat;
    return DistributionFamily::Other;
}
