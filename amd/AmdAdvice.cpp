#include "amd/AmdAdvice.h"

#include "support/distributionId.h"

namespace {

const auto systemRequirements = QStringLiteral(
    "https://rocm.docs.amd.com/projects/install-on-linux/en/latest/reference/system-requirements.html");
const auto communityBuilds = QStringLiteral("https://github.com/lamikr/rocm_sdk_builder");

QString mesaHint(const QString& distributionId) {
    switch (distributionFamily(distributionId)) {
    case DistributionFamily::Debian:
        return QStringLiteral("       Ubuntu/Debian: sudo apt install mesa-opencl-icd");
    case DistributionFamily::RedHat:
        return QStringLiteral("       RHEL/Rocky:    Not available for rocky 9 any more");
    case DistributionFamily::Other:
        break;
    }
    return QStringLiteral("       Install package: mesa-opencl-icd  (or mesa-libOpenCL)");
}

/// The rest of option 1 and the other two options.
QStringList installOptions(const QString& distributionId) {
    return {
        "       Supported GPUs: Radeon RX 7700 and newer (RDNA3+), Radeon PRO W6800+, AMD Instinct MI100+",
        "       NOT supported: Older GPUs (RX 6000 series / RDNA2 and below)",
        "       Full list: " + systemRequirements,
        "  -> Option 2 - Community ROCm builds (recommended for unsupported GPUs, works with Blender etc.):",
        "       " + communityBuilds,
        "  -> Option 3 - MESA OpenCL (basic fallback, limited compute support):",
        mesaHint(distributionId)};
}

QString candidateLine(const AmdOclCandidate& candidate) {
    if (!candidate.busKnown)
        return QStringLiteral("     '%1' (no PCI bus info)").arg(candidate.name);
    return QStringLiteral("     '%1' on PCI bus 0x%2")
        .arg(candidate.name, pciBusText(static_cast<quint32>(candidate.bus)));
}

} // namespace

QStringList AmdAdvice::noOpenCLLibrary(const QString& distributionId) {
    return QStringList{"AMD GPU OpenCL: libOpenCL.so could not be loaded - benchmark not available.",
                       "  -> No OpenCL runtime is installed or registered.",
                       "  -> Option 1 - ROCm drivers (official AMD OpenCL, recommended for compute):"} +
           installOptions(distributionId);
}

QStringList AmdAdvice::noOpenCLPlatform(const QString& distributionId) {
    const QStringList lines{
        "AMD GPU OpenCL: libOpenCL.so loaded, but no OpenCL platforms found - benchmark not available.",
        "  -> The ICD loader found no registered OpenCL drivers.",
        "  -> Check: ls /etc/OpenCL/vendors/   (should contain .icd files)",
        " ",
        "If no openCL file is found, you have to install openCL:",
        "  -> Option 1 - ROCm (official AMD OpenCL):"};
    return lines + installOptions(distributionId);
}

QStringList AmdAdvice::noGpuDevices() {
    return {"AMD GPU OpenCL: Platforms found, but no GPU devices in any platform.",
            "  -> Check if the AMD GPU OpenCL driver is correctly installed."};
}

QStringList AmdAdvice::noMatchingDevice(const QString& name, quint32 bus,
                                        const std::vector<AmdOclCandidate>& candidates) {
    QStringList lines{QStringLiteral("AMD GPU '%1' (PCI bus 0x%2): no matching OpenCL device found.")
                          .arg(name, pciBusText(bus)),
                      "  -> Benchmark will not be available for this GPU."};
    // Without any candidate the provider has stopped before, with `noGpuDevices`.
    lines += candidates.empty() ? QStringLiteral("  -> No OpenCL GPU devices were found at all.")
                                : QStringLiteral("  -> Available OpenCL devices:");
    for (const AmdOclCandidate& candidate : candidates)
        lines += candidateLine(candidate);
    return lines + QStringList{"  -> Possible fixes:", "     Ubuntu:  sudo apt install mesa-opencl-icd",
                               "     Rocky 9: sudo dnf install mesa-libOpenCL",
                               "     Check /etc/OpenCL/vendors/ for missing .icd files",
                               "     Run 'clinfo' to see what OpenCL sees"};
}
