#include <array>
#include <cstddef>
#include <cstring>

#include <dlfcn.h>

#include "nvidia/CudaLibrary.h"

namespace {

using GetDeviceCount = int(int* count);
using GetDeviceProperties = int(void* properties, int device);

/// Offsets in the runtime's properties record, which differ between major versions.
struct RuntimeVersion {
    const char* soname;
    std::size_t majorOffset;
    std::size_t minorOffset;
    std::size_t pciBusOffset;
    std::array<const char*, 2> propertiesNames; ///< in order of preference; the last may be null
};

constexpr RuntimeVersion runtimeVersions[] = {
    {"libcudart.so.13", 360, 364, 568, {"cudaGetDeviceProperties", nullptr}},
    {"libcudart.so.12", 360, 364, 584, {"cudaGetDeviceProperties_v2", "cudaGetDeviceProperties"}},
    {"libcudart.so.11.0", 360, 364, 584, {"cudaGetDeviceProperties", nullptr}},
};

constexpr const char* runtimeFiles[] = {"libcudart.so.13", "libcudart.so.12", "libcudart.so.11.0",
                                        "libcudart.so"};

// The record has some 1000 bytes in every known version.
constexpr std::size_t propertiesRoom = 16384;

const RuntimeVersion* versionOf(const char* soname) {
    for (const RuntimeVersion& version : runtimeVersions)
        if (soname != nullptr && std::strcmp(version.soname, soname) == 0)
            return &version;
    return nullptr;
}

void readRecord(const RuntimeVersion& version, const void* record, CudaDeviceProperties& properties) {
    const char* bytes = static_cast<const char*>(record);
    std::memcpy(&properties.major, bytes + version.majorOffset, sizeof properties.major);
    std::memcpy(&properties.minor, bytes + version.minorOffset, sizeof properties.minor);
    std::memcpy(&properties.pciBusID, bytes + version.pciBusOffset, sizeof properties.pciBusID);
}

class CudaRuntime final : public CudaLibrary {
  public:
    CudaRuntime(const RuntimeVersion& ofVersion, GetDeviceCount* count, GetDeviceProperties* properties)
        : version(ofVersion), getDeviceCount(count), getDeviceProperties(properties) {}

    int deviceCount(int& count) const override { return getDeviceCount(&count); }

    int deviceProperties(CudaDeviceProperties& properties, int device) const override {
        alignas(std::max_align_t) std::array<char, propertiesRoom> record{};
        const int status = getDeviceProperties(record.data(), device);
        if (status == 0)
            readRecord(version, record.data(), properties);
        return status;
    }

  private:
    const RuntimeVersion& version;
    GetDeviceCount* getDeviceCount;
    GetDeviceProperties* getDeviceProperties;
};

std::unique_ptr<CudaLibrary> useRuntime(void* library, const DynamicLoader& loader) {
    const RuntimeVersion* version = versionOf(loader.soname(library));
    if (version == nullptr)
        return nullptr;
    GetDeviceCount* getDeviceCount = nullptr;
    GetDeviceProperties* getDeviceProperties = nullptr;
    loader.resolve(library, "cudaGetDeviceCount", getDeviceCount);
    for (const char* name : version->propertiesNames)
        if (name != nullptr && getDeviceProperties == nullptr)
            loader.resolve(library, name, getDeviceProperties);
    if (getDeviceCount == nullptr || getDeviceProperties == nullptr)
        return nullptr;
    auto runtime = std::make_unique<CudaRuntime>(*version, getDeviceCount, getDeviceProperties);
    int count = 0;
    // A runtime newer than the driver can be opened but fails here.
    return runtime->deviceCount(count) == 0 ? std::move(runtime) : nullptr;
}

} // namespace

std::unique_ptr<CudaLibrary> openCudaRuntime(const DynamicLoader& loader) {
    for (const char* file : runtimeFiles)
        if (void* library = loader.open(file, RTLD_LAZY))
            if (auto runtime = useRuntime(library, loader))
                return runtime;
    return nullptr;
}

bool readCudaProperties(const char* runtimeSoname, const void* record, CudaDeviceProperties& properties) {
    const RuntimeVersion* version = versionOf(runtimeSoname);
    if (version != nullptr)
        readRecord(*version, record, properties);
    return version != nullptr;
}
