// Detects NVIDIA GPUs, once, at startup.
#include <algorithm>
#include <array>

#include "app/log/logLine.h"
#include "nvidia/GpuCuda_Loader.h"
#include "nvidia/GpuInfoNvml_CUDA.h"
#include "nvidia/GpuNvml_Loader.h"
#include "nvidia/NvidiaAdvice.h"
#include "nvidia/nvidiaPairing.h"
#include "opencl/GpuOpenCL_Loader.h"
#include "support/distributionId.h"

int GpuInfoNvml_CUDA::detectGpus() {
    if (GpuNvml_Loader::load(loader) == 0) {
        logLine(5, QStringLiteral("0 CUDA GPU(s) found - NVML not available"));
        return 0;
    }
    unsigned int count = 0;
    if (!countDevices(count)) {
        logCount(5, "%1 CUDA GPU(s) found");
        return 0;
    }
    if (count > 0)
        GpuCuda_Loader::load(loader);
    for (unsigned int index = 0; index < std::min(count, maxNvidiaDevices); ++index)
        addDevice(index);

    const QString distribution = distributionId(osRelease);
    if (GpuOpenCL_Loader::load(loader) == 0) {
        logLines(2, NvidiaAdvice::noOpenCLLibrary(distribution));
        return withoutOpenCL("%1 CUDA GPU(s) found (no OpenCL, no benchmark)");
    }
    const OpenCLPlatforms platforms = listOpenCLPlatforms();
    if (platforms.reported == 0) {
        logLines(2, NvidiaAdvice::noOpenCLPlatform(distribution));
        return withoutOpenCL("%1 CUDA GPU(s) found (no OpenCL platform, no benchmark)");
    }
    logLine(5, QStringLiteral("CUDA GPU OpenCL: %1 platform(s) found").arg(platforms.reported));
    for (const OpenCLPlatform& platform : platforms.listed)
        logOpenCLPlatform(platform);
    for (int i = 0; i < gpus.size(); ++i)
        matchOpenCLDevice(*gpus[i], handles[i], platforms);
    logCount(3, "%1 CUDA GPU(s) found");
    return 1;
}

bool GpuInfoNvml_CUDA::countDevices(unsigned int& count) {
    const GpuNvml_Table& nvml = GpuNvml_Loader::table();
    const auto failed = [&nvml](const char* line, nvmlReturn_t result) {
        logLine(2, QString::fromLatin1(line).arg(QString::fromUtf8(nvml.nvmlErrorString(result))));
    };
    nvmlReturn_t result = nvml.nvmlInit_v2();
    if (result != NVML_SUCCESS) {
        failed("Failed to initialize NVML: %1", result);
        shutdown();
        return false;
    }
    result = nvml.nvmlDeviceGetCount_v2(&count);
    if (result != NVML_SUCCESS)
        failed("Failed to query device count: %1", result);
    return result == NVML_SUCCESS;
}

void GpuInfoNvml_CUDA::addDevice(unsigned int index) {
    const GpuNvml_Table& nvml = GpuNvml_Loader::table();
    nvmlDevice_t handle = nullptr;
    if (nvml.nvmlDeviceGetHandleByIndex_v2(index, &handle) != NVML_SUCCESS)
        return;
    GpuDevice& gpu = appendGpu();
    handles.append(handle);

    std::array<char, sizeof gpu.name> name{};
    if (nvml.nvmlDeviceGetName(handle, name.data(), name.size()) == NVML_SUCCESS)
        setGpuName(gpu, name.data());

    nvmlPciInfo_t pci{};
    if (nvml.nvmlDeviceGetPciInfo_v3(handle, &pci) == NVML_SUCCESS)
        gpu.deviceIndex = cudaDeviceOnBus(pci.bus);
    gpu.optixCapable = isOptixCapable(gpu.deviceIndex) ? 1 : 0;
}

int GpuInfoNvml_CUDA::withoutOpenCL(const char* countLine) {
    logCount(3, countLine);
    return gpus.isEmpty() ? 0 : 1;
}

void GpuInfoNvml_CUDA::matchOpenCLDevice(GpuDevice& gpu, nvmlDevice_t handle,
                                         const OpenCLPlatforms& platforms) {
    gpu.gpuType = GpuType_Cuda;
    const QString name = gpuName(gpu);
    nvmlPciInfo_t pci{};
    if (GpuNvml_Loader::table().nvmlDeviceGetPciInfo_v3(handle, &pci) != NVML_SUCCESS) {
        logLine(2, QStringLiteral("CUDA GPU '%1': failed to get PCI info from NVML.").arg(name));
        return;
    }
    for (const OpenCLPlatform& platform : platforms.listed)
        for (cl_device_id device : listOpenCLGpuDevices(platform)) {
            // Only for people who trace the calls: a device's name precedes its other queries, as with AMD's.
            openCLDeviceText(device, CL_DEVICE_NAME, openCLNameRoom);
            const NvidiaOclBus location = nvidiaOclBus(device);
            if (location.attribute != nullptr && isSameBus(location.bus, pci.bus)) {
                setOpenCLDevice(gpu, device);
                logLine(5, QStringLiteral("  %1: matched via %2 PCI bus 0x%3")
                               .arg(name, QLatin1String(location.attribute), pciBusText(pci.bus)));
                return;
            }
        }
    logLine(2, QStringLiteral("CUDA GPU '%1' (PCI bus 0x%2): no matching OpenCL device found.")
                   .arg(name, pciBusText(pci.bus)));
    logLines(2, NvidiaAdvice::noMatchingDevice());
}

void GpuInfoNvml_CUDA::logCount(int level, const char* line) const {
    logLine(level, QString::fromLatin1(line).arg(gpuCount()));
}
