// Stand-in for libcuda.so.1, the driver's own library: the four functions that report a device's PCI bus and
// capability.
#include "simulator/lib/Session.h"

namespace {

using namespace qzsim;

enum : int {
    CUDA_SUCCESS = 0,
    CUDA_ERROR_INVALID_VALUE = 1,
    CUDA_ERROR_NOT_INITIALIZED = 3,
    CUDA_ERROR_NO_DEVICE = 100,
    CUDA_ERROR_INVALID_DEVICE = 101,
};

enum : int {
    CU_DEVICE_ATTRIBUTE_PCI_BUS_ID = 33,
    CU_DEVICE_ATTRIBUTE_PCI_DEVICE_ID = 34,
    CU_DEVICE_ATTRIBUTE_PCI_DOMAIN_ID = 50,
    CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MAJOR = 75,
    CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MINOR = 76,
};

LibraryPresence presence("libcuda.so.1");

bool isReady = false;

std::vector<const CudaDevice*> visibleDevices() {
    std::vector<const CudaDevice*> devices;
    for (const CudaDevice& device : Session::instance().machine().cudaDevices)
        if (device.inDriver)
            devices.push_back(&device);
    return devices;
}

/// What every function but cuInit answers before cuInit has succeeded.
int checkReady(const char* function) {
    if (!isReady) {
        Session::instance().misuse(std::string(function) + " without cuInit");
        return CUDA_ERROR_NOT_INITIALIZED;
    }
    return CUDA_SUCCESS;
}

} // namespace

QZSIM_API int cuInit(unsigned flags) {
    const Verdict verdict = Session::instance().call("cuInit");
    if (verdict.code)
        return *verdict.code;
    if (flags != 0)
        return CUDA_ERROR_INVALID_VALUE;
    if (visibleDevices().empty())
        return CUDA_ERROR_NO_DEVICE;
    isReady = true;
    return CUDA_SUCCESS;
}

QZSIM_API int cuDeviceGetCount(int* count) {
    const Verdict verdict = Session::instance().call("cuDeviceGetCount");
    if (verdict.code)
        return *verdict.code;
    if (const int bad = checkReady("cuDeviceGetCount"))
        return bad;
    const auto& reported = Session::instance().machine().reportedCudaDevices;
    *count =
        static_cast<int>(verdict.number(reported.value_or(static_cast<unsigned>(visibleDevices().size()))));
    return CUDA_SUCCESS;
}

QZSIM_API int cuDeviceGet(int* device, int ordinal) {
    const Verdict verdict = Session::instance().call("cuDeviceGet", ordinal);
    if (verdict.code)
        return *verdict.code;
    if (const int bad = checkReady("cuDeviceGet"))
        return bad;
    if (ordinal < 0 || static_cast<std::size_t>(ordinal) >= visibleDevices().size())
        return CUDA_ERROR_INVALID_DEVICE;
    *device = ordinal;
    return CUDA_SUCCESS;
}

QZSIM_API int cuDeviceGetAttribute(int* value, int attribute, int device) {
    const Verdict verdict = Session::instance().call("cuDeviceGetAttribute", device);
    if (verdict.code)
        return *verdict.code;
    if (const int bad = checkReady("cuDeviceGetAttribute"))
        return bad;
    const auto devices = visibleDevices();
    if (device < 0 || static_cast<std::size_t>(device) >= devices.size())
        return CUDA_ERROR_INVALID_DEVICE;
    const CudaDevice& asked = *devices[static_cast<std::size_t>(device)];
    std::int64_t fact = 0;
    switch (attribute) {
    case CU_DEVICE_ATTRIBUTE_PCI_BUS_ID:
        fact = asked.pci.bus;
        break;
    case CU_DEVICE_ATTRIBUTE_PCI_DEVICE_ID:
        fact = asked.pci.device;
        break;
    case CU_DEVICE_ATTRIBUTE_PCI_DOMAIN_ID:
        fact = asked.pci.domain;
        break;
    case CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MAJOR:
        fact = asked.compute.major;
        break;
    case CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MINOR:
        fact = asked.compute.minor;
        break;
    default:
        return CUDA_ERROR_INVALID_VALUE;
    }
    *value = static_cast<int>(verdict.number(fact));
    return CUDA_SUCCESS;
}
