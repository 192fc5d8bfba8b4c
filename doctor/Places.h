// Where the machine is described.
#pragma once

#include <QString>

namespace doctor {

/// Roots of the files that are read; tests use others.
struct Places {
    QString root;
    QString sys = root + "/sys";
    QString proc = root + "/proc";
    QString dev = root + "/dev";
    QString etc = root + "/etc";

    QString drm() const { return sys + "/class/drm"; }
    QString pciDevices() const { return sys + "/bus/pci/devices"; }
    QString modules() const { return sys + "/module"; }
    QString osRelease() const { return etc + "/os-release"; }
    QString icdFiles() const { return etc + "/OpenCL/vendors"; }
};

} // namespace doctor
