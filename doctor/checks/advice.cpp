#include "doctor/checks/advice.h"

#include "support/distributionId.h"

namespace doctor {

namespace {

struct PackageNames {
    const char* what;
    const char* debian;
    const char* ubuntu;
    const char* redHat;
};

PackageNames namesOf(Package package) {
    switch (package) {
    case Package::NvidiaDriver:
        return {"NVIDIA's driver", "sudo apt install nvidia-driver", "sudo ubuntu-drivers install",
                "sudo dnf install nvidia-driver"};
    case Package::NvidiaOpenCL:
        return {"NVIDIA's OpenCL driver", "sudo apt install nvidia-opencl-icd",
                "sudo apt install nvidia-opencl-icd", "sudo dnf install nvidia-driver-cuda-libs"};
    case Package::OpenCLLoader:
        return {"the OpenCL loader", "sudo apt install ocl-icd-libopencl1",
                "sudo apt install ocl-icd-libopencl1", "sudo dnf install ocl-icd"};
    case Package::AmdOpenCL:
        break;
    }
    return {"an OpenCL driver for AMD (ROCm's or Mesa's)", "sudo apt install mesa-opencl-icd",
            "sudo apt install mesa-opencl-icd", "sudo dnf install rocm-opencl"};
}

} // namespace

QString installAdvice(Package package, const QString& distributionId) {
    const PackageNames names = namesOf(package);
    const QString what = QStringLiteral("install %1").arg(QLatin1String(names.what));
    switch (distributionFamily(distributionId)) {
    case DistributionFamily::Debian:
        return QStringLiteral("%1: %2").arg(
            what, QLatin1String(distributionId == QLatin1String("ubuntu") ? names.ubuntu : names.debian));
    case DistributionFamily::RedHat:
        return QStringLiteral("%1: %2").arg(what, QLatin1String(names.redHat));
    case DistributionFamily::Other:
        break;
    }
    return QStringLiteral("%1 from your distribution's packages").arg(what);
}

QString leaveOutAdvice(const QString& icdFile) {
    return QStringLiteral(
               "to leave it out: sudo mv %1 %1.off; for one run, name a folder with the other .icd "
               "files: OCL_ICD_VENDORS=FOLDER qzGpuInfo")
        .arg(icdFile);
}

} // namespace doctor
