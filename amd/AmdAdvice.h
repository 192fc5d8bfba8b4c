// What to tell a user whose AMD GPU can't be reached through OpenCL.
#pragma once

#include <vector>

#include <QString>
#include <QStringList>

#include "amd/AmdOclCandidate.h"

namespace AmdAdvice {

/// The OpenCL loader itself is missing.
QStringList noOpenCLLibrary(const QString& distributionId);

/// The OpenCL loader knows no driver at all.
QStringList noOpenCLPlatform(const QString& distributionId);

/// Drivers, but no GPU device in any of them.
QStringList noGpuDevices();

/// None of OpenCL's devices, which are named, is the GPU `name` on a PCI bus.
QStringList noMatchingDevice(const QString& name, quint32 bus,
                             const std::vector<AmdOclCandidate>& candidates);

} // namespace AmdAdvice
