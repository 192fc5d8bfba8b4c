// The least that a query can cost: an empty Qt program that loads the vendors' libraries and makes the calls
// that `qzGpuInfo -queryGPU` makes, and does nothing with the answers. With the argument "stay" it then runs
// an empty event loop: the companion's memory is compared with that. Without NVML it asks for OpenCL's
// devices once, as the query does for an AMD card. benchmarks/query checks that the calls are the same.
#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include <QCoreApplication>

#include "nvidia/GpuCuda_Loader.h"
#include "nvidia/GpuNvml_Loader.h"
#include "opencl/OpenCLDevices.h"

namespace {

constexpr unsigned int noBus = 0xFFFF;

struct Gpu {
    nvmlDevice_t handle = nullptr;
    nvmlPciInfo_t pci{};
};

void askCuda(unsigned int bus) {
    int count = 0;
    GpuCuda_Loader::cudaGetDeviceCount(&count);
    CudaDeviceProperties properties;
    for (int device = 0; device < count; ++device)
        if (GpuCuda_Loader::cudaGetDeviceProperties(&properties, device) == 0 &&
            static_cast<unsigned int>(properties.pciBusID) == bus)
            break;
}

std::vector<Gpu> listGpus() {
    const GpuNvml_Table& nvml = GpuNvml_Loader::table();
    unsigned int count = 0;
    nvml.nvmlInit_v2();
    nvml.nvmlDeviceGetCount_v2(&count);
    GpuCuda_Loader::load();
    std::vector<Gpu> gpus(count);
    for (unsigned int i = 0; i < count; ++i) {
        std::array<char, 64> name{};
        nvml.nvmlDeviceGetHandleByIndex_v2(i, &gpus[i].handle);
        nvml.nvmlDeviceGetName(gpus[i].handle, name.data(), name.size());
        nvml.nvmlDeviceGetPciInfo_v3(gpus[i].handle, &gpus[i].pci);
        askCuda(gpus[i].pci.bus);
    }
    return gpus;
}

/// Whether one of the platform's devices is on the bus; they are asked until one is.
bool hasDeviceOnBus(cl_platform_id platform, unsigned int bus) {
    const GpuOpenCL_Table& openCL = GpuOpenCL_Loader::table();
    std::array<cl_device_id, 12> devices{};
    cl_uint count = 0;
    openCL.clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, devices.size(), devices.data(), &count);
    for (cl_uint i = 0; i < std::min<cl_uint>(count, devices.size()); ++i) {
        std::array<char, 128> name{};
        cl_uint deviceBus = 0;
        openCL.clGetDeviceInfo(devices[i], CL_DEVICE_NAME, name.size(), name.data(), nullptr);
        openCL.clGetDeviceInfo(devices[i], deviceAttributePciBusIdNv, sizeof deviceBus, &deviceBus, nullptr);
        if (deviceBus == bus)
            return true;
    }
    return false;
}

void pairWithOpenCL(const std::vector<Gpu>& gpus) {
    const GpuOpenCL_Table& openCL = GpuOpenCL_Loader::table();
    std::array<cl_platform_id, 8> platforms{};
    cl_uint count = 0;
    openCL.clGetPlatformIDs(platforms.size(), platforms.data(), &count);
    for (cl_uint i = 0; i < count; ++i) {
        std::array<char, 128> name{};
        openCL.clGetPlatformInfo(platforms[i], CL_PLATFORM_NAME, name.size(), name.data(), nullptr);
    }
    if (gpus.empty())
        for (cl_uint i = 0; i < count; ++i)
            hasDeviceOnBus(platforms[i], noBus);
    for (const Gpu& gpu : gpus) {
        nvmlPciInfo_t pci{};
        GpuNvml_Loader::table().nvmlDeviceGetPciInfo_v3(gpu.handle, &pci);
        for (cl_uint i = 0; i < count; ++i)
            if (hasDeviceOnBus(platforms[i], pci.bus))
                break;
    }
}

void readFigures(const std::vector<Gpu>& gpus) {
    const GpuNvml_Table& nvml = GpuNvml_Loader::table();
    for (const Gpu& gpu : gpus) {
        nvmlUtilization_t utilization{};
        unsigned int temperature = 0;
        nvmlMemory_t memory{};
        nvml.nvmlDeviceGetUtilizationRates(gpu.handle, &utilization);
        nvml.nvmlDeviceGetTemperature(gpu.handle, NVML_TEMPERATURE_GPU, &temperature);
        nvml.nvmlDeviceGetMemoryInfo(gpu.handle, &memory);
    }
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    const bool hasNvml = GpuNvml_Loader::load() != 0;
    const std::vector<Gpu> gpus = hasNvml ? listGpus() : std::vector<Gpu>();
    if (GpuOpenCL_Loader::load() == 0)
        return 1;
    pairWithOpenCL(gpus);
    readFigures(gpus);
    if (argc > 1 && std::strcmp(argv[1], "stay") == 0)
        return QCoreApplication::exec();
    if (hasNvml)
        GpuNvml_Loader::table().nvmlShutdown();
    GpuNvml_Loader::unload();
    GpuOpenCL_Loader::unload();
    return 0;
}
