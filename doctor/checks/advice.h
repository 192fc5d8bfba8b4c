// What to do, in the words of the machine's distribution.
#pragma once

#include <QString>

namespace doctor {

enum class Package { NvidiaDriver, NvidiaOpenCL, OpenCLLoader, AmdOpenCL };

/// "install NVIDIA's driver: sudo apt install nvidia-driver".
QString installAdvice(Package package, const QString& distributionId);

/// How to leave an OpenCL driver out.
QString leaveOutAdvice(const QString& icdFile);

} // namespace doctor
