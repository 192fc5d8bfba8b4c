#include "amd/GpuInfoAmdLinux.h"

#include "app/log/logLine.h"
#include "gpu/sysfs.h"
#include "opencl/benchmarkGpu.h"

namespace {

void readLoad(GpuDevice& gpu, const QString& deviceDirectory) {
    const QString percent = readSysfsValue(deviceDirectory + "/gpu_busy_percent");
    gpu.hasUsage = !percent.isEmpty();
    if (gpu.hasUsage)
        gpu.usagePercent = static_cast<std::int32_t>(percent.toUInt());
}

void readMemory(GpuDevice& gpu, const QString& deviceDirectory) {
    const QString bytes = readSysfsValue(deviceDirectory + "/mem_info_vram_used");
    gpu.hasMemUsage = !bytes.isEmpty();
    if (!gpu.hasMemUsage)
        return;
    const auto usedMb = static_cast<quint32>(bytes.toULongLong() >> 20);
    gpu.memUsedMb = static_cast<std::int32_t>(usedMb);
    // Unsigned: a used figure above the total wraps around.
    gpu.memFreeMb = static_cast<std::int32_t>(static_cast<quint32>(gpu.memTotalMb) - usedMb);
}

void readTemperature(GpuDevice& gpu, const QString& hwmonDirectory) {
    const QString millidegrees =
        hwmonDirectory.isEmpty() ? QString() : readSysfsValue(hwmonDirectory + "/temp1_input");
    gpu.hasTemperature = !millidegrees.isEmpty();
    if (gpu.hasTemperature)
        gpu.temperature = static_cast<std::int32_t>(millidegrees.toUInt() / 1000);
}

} // namespace

GpuInfoAmdLinux::GpuInfoAmdLinux(const QString& drmDirectory, const QString& osReleasePath,
                                 const DynamicLoader& dynamicLoader)
    : drm(drmDirectory), osRelease(osReleasePath), loader(dynamicLoader) {}

int GpuInfoAmdLinux::updateUsage(const bool& runBenchmark) {
    for (int i = 0; i < gpus.size(); ++i) {
        GpuDevice& gpu = *gpus[i];
        const AmdCardPaths& paths = cardPaths[i];
        gpu.statsValid = 1;
        logLine(5, QStringLiteral("  %1: retrieving GPU stats ...").arg(gpuName(gpu)));
        readLoad(gpu, paths.deviceDirectory);
        readMemory(gpu, paths.deviceDirectory);
        readTemperature(gpu, paths.hwmonDirectory);
        if (runBenchmark)
            benchmarkGpu(gpu);
    }
    return 1;
}

int GpuInfoAmdLinux::shutdown() {
    cardPaths.clear();
    pciBuses.clear();
    clearGpus();
    return 1;
}
