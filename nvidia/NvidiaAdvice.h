// Advice for a user whose NVIDIA GPU has no OpenCL device.
#pragma once

#include <QString>
#include <QStringList>

namespace NvidiaAdvice {

/// The OpenCL loader itself is missing.
QStringList noOpenCLLibrary(const QString& distributionId);

/// The OpenCL loader knows no driver.
QStringList noOpenCLPlatform(const QString& distributionId);

/// OpenCL has drivers, but none of them offers this GPU. The same on every distribution.
QStringList noMatchingDevice();

} // namespace NvidiaAdvice
