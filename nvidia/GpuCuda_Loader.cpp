#include "nvidia/GpuCuda_Loader.h"

#include <map>

namespace {

// CUDA's code for: no usable device.
constexpr int cudaErrorNoDevice = 100;

struct Cuda {
    std::unique_ptr<CudaLibrary> library;
    std::map<int, CudaDeviceProperties> known; ///< cached answers by device number
};

Cuda cuda;

} // namespace

int GpuCuda_Loader::load(const DynamicLoader& loader) {
    if (!isLoaded())
        cuda.library = openCudaRuntime(loader);
    if (!isLoaded())
        cuda.library = openCudaDriver(loader);
    return isLoaded() ? 1 : 0;
}

bool GpuCuda_Loader::isLoaded() {
    return cuda.library != nullptr;
}

void GpuCuda_Loader::unload() {
    cuda.library.reset();
    cuda.known.clear();
}

int GpuCuda_Loader::cudaGetDeviceCount(int* count) {
    return isLoaded() ? cuda.library->deviceCount(*count) : cudaErrorNoDevice;
}

int GpuCuda_Loader::cudaGetDeviceProperties(CudaDeviceProperties* properties, int device) {
    if (!isLoaded() || device < 0)
        return cudaErrorNoDevice;
    const auto known = cuda.known.find(device);
    if (known != cuda.known.end()) {
        *properties = known->second;
        return 0;
    }
    CudaDeviceProperties told;
    const int status = cuda.library->deviceProperties(told, device);
    if (status == 0)
        *properties = cuda.known[device] = told;
    return status;
}
