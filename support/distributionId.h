#pragma once

#include <QByteArray>
#include <QString>

/// The distribution's identifier in lower case, such as "debian", read from an os-release file. Empty without
/// the file or an "ID=" line in it.
QString distributionId(const QString& osReleasePath = QStringLiteral("/etc/os-release"));

/// The same from the file's bytes: the first line that begins with "ID=", without quotes and white space.
QString parseDistributionId(const QByteArray& osRelease);

/// Distributions that share package names.
enum class DistributionFamily { Debian, RedHat, Other };

/// The family of an identifier; `Other` if unknown or empty.
DistributionFamily distributionFamily(const QString& id);
