#include "doctor/facts/NvmlFacts.h"

#include <algorithm>

#include "doctor/facts/json.h"

namespace doctor {

namespace {

struct StatusName {
    int status;
    const char* name;
};

constexpr StatusName nvmlNames[] = {
    {0, "NVML_SUCCESS"},
    {1, "NVML_ERROR_UNINITIALIZED"},
    {2, "NVML_ERROR_INVALID_ARGUMENT"},
    {3, "NVML_ERROR_NOT_SUPPORTED"},
    {4, "NVML_ERROR_NO_PERMISSION"},
    {6, "NVML_ERROR_NOT_FOUND"},
    {8, "NVML_ERROR_INSUFFICIENT_POWER"},
    {9, "NVML_ERROR_DRIVER_NOT_LOADED"},
    {10, "NVML_ERROR_TIMEOUT"},
    {11, "NVML_ERROR_IRQ_ISSUE"},
    {12, "NVML_ERROR_LIBRARY_NOT_FOUND"},
    {13, "NVML_ERROR_FUNCTION_NOT_FOUND"},
    {14, "NVML_ERROR_CORRUPTED_INFOROM"},
    {15, "NVML_ERROR_GPU_IS_LOST"},
    {16, "NVML_ERROR_RESET_REQUIRED"},
    {17, "NVML_ERROR_OPERATING_SYSTEM"},
    {18, "NVML_ERROR_LIB_RM_VERSION_MISMATCH"},
    {19, "NVML_ERROR_IN_USE"},
    {20, "NVML_ERROR_MEMORY"},
    {21, "NVML_ERROR_NO_DATA"},
    {23, "NVML_ERROR_INSUFFICIENT_RESOURCES"},
    {999, "NVML_ERROR_UNKNOWN"},
};

constexpr StatusName cudaNames[] = {
    {0, "cudaSuccess"},
    {1, "cudaErrorInvalidValue"},
    {2, "cudaErrorMemoryAllocation"},
    {3, "cudaErrorInitializationError"},
    {35, "cudaErrorInsufficientDriver"},
    {46, "cudaErrorDevicesUnavailable"},
    {100, "cudaErrorNoDevice"},
    {101, "cudaErrorInvalidDevice"},
    {127, "cudaErrorStubLibrary"},
    {304, "cudaErrorOperatingSystem"},
    {802, "cudaErrorSystemNotReady"},
    {803, "cudaErrorSystemDriverMismatch"},
    {804, "cudaErrorCompatNotSupportedOnDevice"},
    {999, "cudaErrorUnknown"},
};

template <std::size_t Count>
QString nameIn(const StatusName (&names)[Count], int status) {
    const auto found = std::find_if(std::begin(names), std::end(names),
                                    [status](const StatusName& entry) { return entry.status == status; });
    return found != std::end(names) ? QStringLiteral("%1 (%2)").arg(QLatin1String(found->name)).arg(status)
                                    : QStringLiteral("status %1").arg(status);
}

} // namespace

NvmlFacts::NvmlFacts(const StepOutcome& outcome)
    : devices(fromJson<NvmlIdentity>(outcome.reported("device"))) {
    const auto libraries = outcome.reported("library");
    for (const QJsonObject& message : libraries)
        library = fromJson<NvmlLibrary>(message);
}

const NvmlIdentity* NvmlFacts::at(const QString& address) const {
    const auto found = std::find_if(devices.begin(), devices.end(),
                                    [&](const NvmlIdentity& device) { return device.address == address; });
    return found != devices.end() ? &*found : nullptr;
}

QString nvmlStatusName(int status) {
    return nameIn(nvmlNames, status);
}

QString cudaStatusName(int status) {
    return nameIn(cudaNames, status);
}

} // namespace doctor
