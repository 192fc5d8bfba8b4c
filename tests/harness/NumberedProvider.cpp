#include "tests/harness/NumberedProvider.h"

#include "gpu/GpuInfoBlock.h"

int NumberedProvider::detectGpus() {
    for (int i = 0; i < GpuInfoBlock::capacity; ++i) {
        GpuDevice& gpu = appendGpu();
        setGpuName(gpu, "Numbered");
        gpu.gpuType = type;
        gpu.deviceIndex = i;
    }
    return 1;
}

int NumberedProvider::updateUsage(const bool& /*doBenchmark*/) {
    for (GpuDevice* gpu : qAsConst(gpus)) {
        gpu->statsValid = 1;
        gpu->hasTemperature = gpu->hasMemTotal = gpu->hasMemUsage = gpu->hasUsage = gpu->hasSpeed = 1;
        gpu->temperature = gpu->memTotalMb = gpu->memUsedMb = gpu->memFreeMb = gpu->usagePercent = number;
        gpu->speedGps = static_cast<float>(number);
    }
    return 1;
}
