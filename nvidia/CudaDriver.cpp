#include "nvidia/CudaLibrary.h"

namespace {

using CUdevice = int;

// Attributes of cuDeviceGetAttribute.
constexpr int attributePciBusId = 33;
constexpr int attributeComputeCapabilityMajor = 75;
constexpr int attributeComputeCapabilityMinor = 76;

class CudaDriver final : public CudaLibrary {
  public:
    /// False if the library lacks an entry point or cannot be initialised.
    bool start(void* library, const DynamicLoader& loader) {
        int (*cuInit)(unsigned int flags) = nullptr;
        return loader.resolve(library, "cuInit", cuInit) &&
               loader.resolve(library, "cuDeviceGetCount", cuDeviceGetCount) &&
               loader.resolve(library, "cuDeviceGet", cuDeviceGet) &&
               loader.resolve(library, "cuDeviceGetAttribute", cuDeviceGetAttribute) && cuInit(0) == 0;
    }

    int deviceCount(int& count) const override { return cuDeviceGetCount(&count); }

    int deviceProperties(CudaDeviceProperties& properties, int device) const override {
        CUdevice handle = 0;
        int status = cuDeviceGet(&handle, device);
        const auto read = [&](int attribute, int& value) {
            if (status == 0)
                status = cuDeviceGetAttribute(&value, attribute, handle);
        };
        read(attributePciBusId, properties.pciBusID);
        read(attributeComputeCapabilityMajor, properties.major);
        read(attributeComputeCapabilityMinor, properties.minor);
        return status;
    }

  private:
    int (*cuDeviceGetCount)(int* count) = nullptr;
    int (*cuDeviceGet)(CUdevice* device, int ordinal) = nullptr;
    int (*cuDeviceGetAttribute)(int* value, int attribute, CUdevice device) = nullptr;
};

} // namespace

std::unique_ptr<CudaLibrary> openCudaDriver(const DynamicLoader& loader) {
    void* library = loader.openFirst({"libcuda.so.1"});
    if (library == nullptr)
        return nullptr;
    auto driver = std::make_unique<CudaDriver>();
    return driver->start(library, loader) ? std::move(driver) : nullptr;
}
