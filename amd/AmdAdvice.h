// Advice for a user whose AMD GPU has no OpenCL device.
#pragma once

#include <vector>

#include <QString>
#include <QStringList>

#include "amd/AmdOclCandidate.h"

namespace AmdAdvice {

/// The OpenCL loader itself is missing.
QStringList noOpenCLLibrary(const QString& distributionId);

/// The OpenCL loader knows no driver.
QStringList noOpenCLPlatform(const QString& distributionId);

/// There are drivers, but none offers a GPU device.
QStringList noGpuDevices();

/// None of OpenCL's devices, which are listed, is the GPU `name` on a PCI bus.
QStringList noMatchingDevice(const QString& name, quint32 bus,
                             const std::vector<AmdOclCandidate>& candidates);

} // namespace AmdAdvice
