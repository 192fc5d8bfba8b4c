#include "nvidia/NvidiaAdvice.h"

#include "support/distributionId.h"

namespace {

const auto cudaDownloads = QStringLiteral("https://developer.nvidia.com/cuda-downloads");

constexpr const char* orOfDriversVersion =
    "  -> Or: sudo apt install nvidia-opencl-icd-$(nvidia-smi --query-gpu=driver_version "
    "--format=csv,noheader | cut -d. -f1)";

/// The two lines of advice for a distribution.
QStringList installLines(const QString& distributionId) {
    switch (distributionFamily(distributionId)) {
    case DistributionFamily::Debian:
        return {"  -> Ubuntu/Debian: sudo apt install nvidia-opencl-icd", orOfDriversVersion};
    case DistributionFamily::RedHat:
        return {"  -> RHEL/Rocky: sudo dnf install nvidia-driver-cuda-libs",
                "  -> Or install the CUDA toolkit from " + cudaDownloads};
    case DistributionFamily::Other:
        break;
    }
    return {"  -> Install: nvidia-opencl-icd  or  cuda-opencl", "  -> See: " + cudaDownloads};
}

} // namespace

QStringList NvidiaAdvice::noOpenCLLibrary(const QString& distributionId) {
    return QStringList{"CUDA GPU OpenCL: libOpenCL.so could not be loaded - benchmark not available.",
                       "  -> No OpenCL runtime is installed or registered.",
                       "  -> The Nvidia OpenCL ICD is usually included with the Nvidia driver,",
                       "     but on Ubuntu 24+ it may be split into a separate package.",
                       "  -> Check: ls /etc/OpenCL/vendors/nvidia.icd"} +
           installLines(distributionId);
}

QStringList NvidiaAdvice::noOpenCLPlatform(const QString& distributionId) {
    const QStringList lines{
        "CUDA GPU OpenCL: libOpenCL.so loaded, but no OpenCL platforms found - benchmark not available.",
        "  -> The ICD loader found no registered OpenCL drivers.",
        "  -> Check: ls /etc/OpenCL/vendors/   (nvidia.icd should be present)",
        "  -> Note: MESA OpenCL does not support Nvidia GPUs."};
    return lines + installLines(distributionId);
}

QStringList NvidiaAdvice::noMatchingDevice() {
    return {"  -> Benchmark will not be available for this GPU.",
            "  -> The Nvidia OpenCL ICD may not be registered.",
            "  -> Check: ls /etc/OpenCL/vendors/nvidia.icd",
            "  -> Check: clinfo --list",
            "  -> To fix: sudo apt install nvidia-opencl-icd",
            "  -> Note: MESA OpenCL does not support Nvidia GPUs."};
}
