#include "nvidia/nvidiaPairing.h"

#include <algorithm>

#include "nvidia/GpuCuda_Loader.h"

NvidiaOclBus nvidiaOclBus(cl_device_id device) {
    cl_uint vendorBus = 0;
    if (readOpenCLDevice(device, deviceAttributePciBusIdNv, vendorBus))
        return {"NV", vendorBus};
    PciBusInfoKhr location{};
    if (readOpenCLDevice(device, deviceAttributePciBusInfoKhr, location))
        return {"KHR", location.pci_bus};
    return {};
}

int cudaDeviceOnBus(unsigned int bus) {
    int count = 0;
    GpuCuda_Loader::cudaGetDeviceCount(&count);
    for (int device = 0; device < std::min(count, static_cast<int>(maxNvidiaDevices)); ++device) {
        CudaDeviceProperties properties;
        if (GpuCuda_Loader::cudaGetDeviceProperties(&properties, device) == 0 &&
            static_cast<unsigned int>(properties.pciBusID) == bus)
            return device;
    }
    return -1;
}

bool isOptixCapable(int cudaDevice) {
    CudaDeviceProperties properties;
    if (GpuCuda_Loader::cudaGetDeviceProperties(&properties, cudaDevice) != 0)
        return false;
    return properties.major > 7 || (properties.major == 7 && properties.minor > 4);
}
