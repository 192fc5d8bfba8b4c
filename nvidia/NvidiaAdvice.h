// What to tell a user whose NVIDIA GPU can't be reached through OpenCL.
#pragma once

#include <QString>
#include <QStringList>

namespace NvidiaAdvice {

/// The OpenCL loader itself is missing.
QStringList noOpenCLLibrary(const QString& distributionId);

/// The OpenCL loader knows no driver at all.
QStringList noOpenCLPlatform(const QString& distributionId);

/// OpenCL has drivers, but none of them has this GPU. The same on every distribution.
QStringList noMatchingDevice();

} // namespace NvidiaAdvice
