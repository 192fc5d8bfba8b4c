// What NVML reports beyond what the program asks for.
#pragma once

#include <QString>
#include <QVector>

#include "doctor/steps/StepRunner.h"

namespace doctor {

struct NvmlIdentity {
    int index = 0;
    QString address; ///< empty if it is not reported
    QString uuid;    ///< texts are empty if not reported
    QString vbiosVersion;
    int migMode = -1; ///< -1: not reported, or the GPU has none
    int persistenceMode = -1;

    template <class Visit>
    void walk(Visit visit) {
        visit("index", index);
        visit("address", address);
        visit("uuid", uuid);
        visit("vbiosVersion", vbiosVersion);
        visit("migMode", migMode);
        visit("persistenceMode", persistenceMode);
    }
};

struct NvmlLibrary {
    QString file;          ///< the path that was opened
    QString driverVersion; ///< empty if it is not reported
    QString nvmlVersion;

    template <class Visit>
    void walk(Visit visit) {
        visit("file", file);
        visit("driverVersion", driverVersion);
        visit("nvmlVersion", nvmlVersion);
    }
};

struct NvmlFacts {
    NvmlLibrary library;
    QVector<NvmlIdentity> devices;

    NvmlFacts() = default;
    explicit NvmlFacts(const StepOutcome& outcome);
    const NvmlIdentity* at(const QString& address) const;
};

/// NVML's name of a status, such as "NVML_ERROR_GPU_IS_LOST (15)".
QString nvmlStatusName(int status);

/// The same for CUDA: the runtime and the driver share their codes.
QString cudaStatusName(int status);

} // namespace doctor
