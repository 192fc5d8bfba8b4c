// Recorded calls, counted as the simulator counts them.
#pragma once

#include <QMap>
#include <QString>
#include <QVector>

#include "doctor/facts/ProgramFacts.h"

namespace doctor {

/// A call with its place among those of its kind.
struct NumberedCall {
    const CallFacts* call = nullptr;
    QString target;  ///< as faults name it: the function, the library, or "card0/FILE"
    int device = -1; ///< the vendor's number of the device it is about; -1: of none
    int number = 0;  ///< from 1, among the target's calls for that device, or all of the target's
};

/// The calls of one run, in their order.
class NumberedCalls {
  public:
    explicit NumberedCalls(const QVector<CallFacts>& calls);

    const QVector<NumberedCall>& all() const { return numbered; }

    /// Those of one target and device.
    QVector<NumberedCall> of(const QString& target, int device = -1) const;

    /// NVML's devices by their handles, and OpenCL's in the order of platforms and their devices.
    QMap<QString, int> nvmlDevices;
    QVector<QString> openCLDevices;
    QVector<QString> platforms; ///< OpenCL's, by their places

  private:
    void noteHandles(const QVector<CallFacts>& calls);
    int deviceOf(const CallFacts& call) const;

    QVector<NumberedCall> numbered;
    QMap<int, int> cudaOrdinals; ///< the driver's own device numbers by its handles
};

/// The platforms or devices that a call returned.
QVector<QString> handlesOf(const CallFacts& call);

/// "card0/gpu_busy_percent" of /sys/class/drm/card0/device/gpu_busy_percent; empty for other files.
QString cardFileOf(const QString& path);

} // namespace doctor
