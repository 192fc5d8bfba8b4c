// Detects AMD GPUs, once, at startup.
#include <algorithm>

#include "amd/AmdAdvice.h"
#include "amd/GpuInfoAmdLinux.h"
#include "amd/amdCard.h"
#include "app/log/logLine.h"
#include "gpu/sysfs.h"
#include "opencl/GpuOpenCL_Loader.h"
#include "support/distributionId.h"

namespace {

constexpr std::size_t extensionsRoom = 4096;

bool hasRayTracing(const GpuDevice& gpu) {
    cl_device_id device = openCLDeviceOf(gpu);
    return device != nullptr &&
           openCLDeviceText(device, CL_DEVICE_EXTENSIONS, extensionsRoom).contains("cl_khr_ray_tracing");
}

} // namespace

int GpuInfoAmdLinux::detectGpus() {
    const QStringList cards = listDrmCards(drm);
    for (const QString& card : cards)
        addCard(card);
    if (gpus.isEmpty()) {
        logLine(2, QStringLiteral("No AMD GPU found in /sys/class/drm/"));
        return 0;
    }
    numberByBus();
    matchWithOpenCL();
    return 1;
}

void GpuInfoAmdLinux::addCard(const QString& cardEntry) {
    const QString deviceDirectory = drm + "/" + cardEntry + "/device";
    if (!isAmdCard(deviceDirectory))
        return;
    const AmdCard card = readAmdCard(cardEntry, deviceDirectory);
    if (!card.isListed())
        return;
    GpuDevice& gpu = appendGpu();
    gpu.statsValid = 1;
    setGpuName(gpu, card.name.toLatin1().constData());
    gpu.gpuType = GpuType_Amd;
    gpu.hasMemTotal = 1;
    gpu.memTotalMb = static_cast<std::int32_t>(card.memoryMb);
    cardPaths.append({card.deviceDirectory, card.hwmonDirectory});
    pciBuses.append(card.bus);
}

void GpuInfoAmdLinux::numberByBus() {
    QList<quint32> sorted = pciBuses;
    std::sort(sorted.begin(), sorted.end());
    for (int i = 0; i < gpus.size(); ++i)
        gpus[i]->deviceIndex = sorted.indexOf(pciBuses[i]);
}

void GpuInfoAmdLinux::matchWithOpenCL() {
    const QString distribution = distributionId(osRelease);
    if (GpuOpenCL_Loader::load(loader) == 0) {
        logLines(2, AmdAdvice::noOpenCLLibrary(distribution));
        logCount("%1 AMD GPU(s) found (no OpenCL, no benchmark)");
        return;
    }
    const OpenCLPlatforms platforms = listOpenCLPlatforms();
    if (platforms.reported == 0) {
        logLines(2, AmdAdvice::noOpenCLPlatform(distribution));
        logCount("%1 AMD GPU(s) found (no OpenCL platform, no benchmark)");
        return;
    }
    logLine(5, QStringLiteral("AMD GPU OpenCL: %1 platform(s) found").arg(platforms.reported));
    const std::vector<AmdOclCandidate> candidates = collectAmdOclCandidates(platforms);
    if (candidates.empty()) {
        logLines(2, AmdAdvice::noGpuDevices());
        logCount("%1 AMD GPU(s) found (no OpenCL GPU devices, no benchmark)");
        return;
    }
    for (int i = 0; i < gpus.size(); ++i)
        matchCandidate(*gpus[i], pciBuses[i], candidates);
    for (GpuDevice* gpu : qAsConst(gpus))
        gpu->amdRayTracing = hasRayTracing(*gpu) ? 1 : 0;
    logCount("%1 AMD GPU(s) found");
}

void GpuInfoAmdLinux::matchCandidate(GpuDevice& gpu, quint32 bus,
                                     const std::vector<AmdOclCandidate>& candidates) const {
    const QString name = gpuName(gpu);
    if (const AmdOclCandidate* onBus = findCandidateByBus(candidates, bus)) {
        setOpenCLDevice(gpu, onBus->device);
        logLine(5, QStringLiteral("  %1: matched via PCI bus 0x%2").arg(name, pciBusText(bus)));
        return;
    }
    if (const AmdOclCandidate* byName = findCandidateByName(candidates, QString::fromLatin1(gpu.name))) {
        setOpenCLDevice(gpu, byName->device);
        logLine(5, QStringLiteral("  %1: matched via name fallback to OCL '%2'").arg(name, byName->name));
        return;
    }
    logLines(2, AmdAdvice::noMatchingDevice(name, bus, candidates));
}

void GpuInfoAmdLinux::logCount(const char* line) const {
    logLine(3, QString::fromLatin1(line).arg(gpuCount()));
}
