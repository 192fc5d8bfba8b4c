// What to tell a user whose AMD GPU can't be reached through OpenCL.
#pragma once

#include <QString>
#include <QStringList>

namespace AmdAdvice {

/// The OpenCL loader itself is missing.
QStringList noOpenCLLibrary(const QString& distributionId);

/// The OpenCL loader knows no driver at all.
QStringList noOpenCLPlatform(const QString& distributionId);

/// Drivers, but no GPU device in any of them.
QStringList noGpuDevices();

/// What may help when none of OpenCL's devices is the GPU.
QStringList possibleFixes();

} // namespace AmdAdvice
