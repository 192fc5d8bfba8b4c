// Stand-in for the CUDA runtime, built once for each major version: the layout of cudaDeviceProp is the
// version's.
#include <algorithm>
#include <cstring>

#include "simulator/lib/Session.h"

namespace {

using namespace qzsim;

enum : int {
    cudaSuccess = 0,
    cudaErrorInvalidValue = 1,
    cudaErrorNoDevice = 100,
    cudaErrorInvalidDevice = 101,
};

/// The offsets in cudaDeviceProp of the members that the stand-in sets; the rest is noise, so that a reader
/// with wrong offsets does not find zeros by luck.
struct PropLayout {
    std::size_t size;
    std::size_t pciBusId;
};

#if QZSIM_CUDART_MAJOR == 11
constexpr PropLayout plainLayout{728, 584};
constexpr const char* libraryName = "libcudart.so.11.0";
#elif QZSIM_CUDART_MAJOR == 12
constexpr PropLayout plainLayout{728, 584};
constexpr PropLayout secondLayout{1032, 584};
constexpr const char* libraryName = "libcudart.so.12";
#elif QZSIM_CUDART_MAJOR == 13
constexpr PropLayout plainLayout{1008, 568};
constexpr const char* libraryName = "libcudart.so.13";
#else
#error "no such major version"
#endif

constexpr std::size_t nameSize = 256;
constexpr std::size_t majorOffset = 360;
constexpr std::size_t minorOffset = 364;
constexpr unsigned char noise = 0xa5;

LibraryPresence presence(libraryName);

std::vector<const CudaDevice*> visibleDevices() {
    std::vector<const CudaDevice*> devices;
    for (const CudaDevice& device : Session::instance().machine().cudaDevices)
        if (device.inRuntime)
            devices.push_back(&device);
    return devices;
}

int fillProperties(const char* function, const PropLayout& layout, unsigned char* properties, int index) {
    const Verdict verdict = Session::instance().call(function, index);
    if (verdict.code)
        return *verdict.code;
    const auto devices = visibleDevices();
    if (properties == nullptr)
        return cudaErrorInvalidValue;
    if (index < 0 || static_cast<std::size_t>(index) >= devices.size())
        return cudaErrorInvalidDevice;
    const CudaDevice& device = *devices[static_cast<std::size_t>(index)];
    const auto put = [properties](std::size_t offset, std::int64_t value) {
        const auto number = static_cast<std::int32_t>(value);
        std::memcpy(properties + offset, &number, sizeof number);
    };
    std::memset(properties, noise, layout.size);
    std::memset(properties, 0, nameSize);
    std::copy_n(device.name.begin(), std::min(device.name.size(), nameSize - 1), properties);
    put(majorOffset, device.compute.major);
    put(minorOffset, device.compute.minor);
    put(layout.pciBusId, verdict.number(device.pci.bus));
    put(layout.pciBusId + 4, device.pci.device);
    put(layout.pciBusId + 8, device.pci.domain);
    return cudaSuccess;
}

} // namespace

QZSIM_API int cudaGetDeviceCount(int* count) {
    const Verdict verdict = Session::instance().call("cudaGetDeviceCount");
    if (verdict.code)
        return *verdict.code;
    if (count == nullptr)
        return cudaErrorInvalidValue;
    const auto& reported = Session::instance().machine().reportedCudaDevices;
    *count =
        static_cast<int>(verdict.number(reported.value_or(static_cast<unsigned>(visibleDevices().size()))));
    return *count == 0 ? cudaErrorNoDevice : cudaSuccess;
}

QZSIM_API int cudaGetDeviceProperties(unsigned char* properties, int device) {
    return fillProperties("cudaGetDeviceProperties", plainLayout, properties, device);
}

#if QZSIM_CUDART_MAJOR == 12
QZSIM_API int cudaGetDeviceProperties_v2(unsigned char* properties, int device) {
    return fillProperties("cudaGetDeviceProperties_v2", secondLayout, properties, device);
}
#endif
