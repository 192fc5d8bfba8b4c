#include "nvidia/GpuInfoNvml_CUDA.h"

#include "app/log/logLine.h"
#include "nvidia/GpuNvml_Loader.h"
#include "opencl/benchmarkGpu.h"

GpuInfoNvml_CUDA::GpuInfoNvml_CUDA(const QString& osReleasePath, const DynamicLoader& dynamicLoader)
    : osRelease(osReleasePath), loader(dynamicLoader) {}

int GpuInfoNvml_CUDA::updateUsage(const bool& doBenchmark) {
    if (!GpuNvml_Loader::isLoaded() || gpus.isEmpty())
        return 1;
    const GpuNvml_Table& nvml = GpuNvml_Loader::table();
    for (int i = 0; i < gpus.size(); ++i) {
        GpuDevice& gpu = *gpus[i];
        const nvmlDevice_t handle = handles[i];
        gpu.statsValid = 1;
        logLine(5, QStringLiteral("  %1: retrieving GPU stats ...").arg(gpuName(gpu)));

        nvmlUtilization_t utilization{};
        gpu.hasUsage = nvml.nvmlDeviceGetUtilizationRates(handle, &utilization) == NVML_SUCCESS;
        if (gpu.hasUsage)
            gpu.usagePercent = static_cast<std::int32_t>(utilization.gpu);

        unsigned int temperature = 0;
        gpu.hasTemperature =
            nvml.nvmlDeviceGetTemperature(handle, NVML_TEMPERATURE_GPU, &temperature) == NVML_SUCCESS;
        if (gpu.hasTemperature)
            gpu.temperature = static_cast<std::int32_t>(temperature);

        nvmlMemory_t memory{};
        gpu.hasMemUsage = nvml.nvmlDeviceGetMemoryInfo(handle, &memory) == NVML_SUCCESS;
        if (gpu.hasMemUsage) {
            // A total that was read once stays present when a later query fails: a card does not change its
            // size.
            gpu.hasMemTotal = 1;
            gpu.memTotalMb = static_cast<std::int32_t>(memory.total >> 20);
            gpu.memFreeMb = static_cast<std::int32_t>(memory.free >> 20);
            gpu.memUsedMb = static_cast<std::int32_t>(memory.used >> 20);
        }

        if (doBenchmark)
            benchmarkGpu(gpu);
    }
    return 1;
}

int GpuInfoNvml_CUDA::shutdown() {
    if (!GpuNvml_Loader::isLoaded())
        return 1;
    const GpuNvml_Table& nvml = GpuNvml_Loader::table();
    const nvmlReturn_t result = nvml.nvmlShutdown();
    if (result == NVML_SUCCESS)
        return 1;
    logLine(
        2,
        QStringLiteral("Failed to shutdown NVML: %1").arg(QString::fromUtf8(nvml.nvmlErrorString(result))));
    return 0;
}
