#include "nvidia/GpuCuda_Loader.h"

#include <map>

namespace {

// As CUDA calls it: no usable device is there.
constexpr int cudaErrorNoDevice = 100;

struct Answer {
    int status;
    CudaDeviceProperties properties;
};

struct Cuda {
    std::unique_ptr<CudaLibrary> library;
    std::map<int, Answer> answers; ///< by device
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
    cuda.answers.clear();
}

int GpuCuda_Loader::cudaGetDeviceCount(int* count) {
    return isLoaded() ? cuda.library->deviceCount(*count) : cudaErrorNoDevice;
}

int GpuCuda_Loader::cudaGetDeviceProperties(CudaDeviceProperties* properties, int device) {
    if (!isLoaded() || device < 0)
        return cudaErrorNoDevice;
    auto known = cuda.answers.find(device);
    if (known == cuda.answers.end()) {
        Answer answer{};
        answer.status = cuda.library->deviceProperties(answer.properties, device);
        known = cuda.answers.emplace(device, answer).first;
    }
    if (known->second.status == 0)
        *properties = known->second.properties;
    return known->second.status;
}
