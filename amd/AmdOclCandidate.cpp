#include "amd/AmdOclCandidate.h"

#include <algorithm>

#include "app/log/logLine.h"

namespace {

void readBus(AmdOclCandidate& candidate) {
    TopologyAmd topology{};
    PciBusInfoKhr location{};
    if (readOpenCLDevice(candidate.device, deviceAttributeTopologyAmd, topology)) {
        candidate.busKnown = true;
        candidate.busSource = "AMD topology";
        // NOLINTNEXTLINE(bugprone-signed-char-misuse,cert-str34-c): signed it is
        candidate.bus = topology.bus;
    } else if (readOpenCLDevice(candidate.device, deviceAttributePciBusInfoKhr, location)) {
        candidate.busKnown = true;
        candidate.busSource = "khr_pci_bus_info";
        candidate.bus = static_cast<std::int32_t>(location.pci_bus);
    }
    if (candidate.busKnown)
        logLine(5, QStringLiteral("    OCL device '%1': PCI bus 0x%2 (via %3)")
                       .arg(candidate.name, pciBusText(static_cast<quint32>(candidate.bus)),
                            QLatin1String(candidate.busSource)));
    else
        logLine(5, QStringLiteral("    OCL device '%1': no PCI bus info available, name-match only")
                       .arg(candidate.name));
}

} // namespace

std::vector<AmdOclCandidate> collectAmdOclCandidates(const OpenCLPlatforms& platforms) {
    std::vector<AmdOclCandidate> candidates;
    for (const OpenCLPlatform& platform : platforms.listed) {
        logOpenCLPlatform(platform);
        for (cl_device_id device : listOpenCLGpuDevices(platform)) {
            AmdOclCandidate candidate;
            candidate.device = device;
            candidate.name =
                QString::fromLatin1(openCLDeviceText(device, CL_DEVICE_NAME, openCLNameRoom)).trimmed();
            readBus(candidate);
            candidates.push_back(candidate);
        }
    }
    return candidates;
}

const AmdOclCandidate* findCandidateByBus(const std::vector<AmdOclCandidate>& candidates, quint32 bus) {
    const auto found =
        std::find_if(candidates.begin(), candidates.end(), [bus](const AmdOclCandidate& candidate) {
            return candidate.busKnown && isSameBus(static_cast<quint32>(candidate.bus), bus);
        });
    return found != candidates.end() ? &*found : nullptr;
}

const AmdOclCandidate* findCandidateByName(const std::vector<AmdOclCandidate>& candidates,
                                           const QString& gpuName) {
    constexpr int significant = 6;
    const QString gpu = gpuName.toLower();
    const auto found =
        std::find_if(candidates.begin(), candidates.end(), [&gpu](const AmdOclCandidate& candidate) {
            const QString name = candidate.name.toLower();
            return !candidate.busKnown &&
                   (name.contains(gpu.left(significant)) || gpu.contains(name.right(significant)));
        });
    return found != candidates.end() ? &*found : nullptr;
}
