#include "gpu/GpuDevice.h"

#include <cstring>
#include <iterator>

#include "gpu/GpuFigures.h"

void initialiseGpuDevice(GpuDevice& record) {
    const GpuDevice initial;
    record.statsValid = initial.statsValid;
    record.name[0] = '\0';
    record.reserved65 = initial.reserved65;
    record.optixCapable = initial.optixCapable;
    record.amdRayTracing = initial.amdRayTracing;
    record.gpuType = initial.gpuType;
    record.deviceIndex = initial.deviceIndex;
    record.clDevice = initial.clDevice;
    walkFigures([&](const auto& figure) {
        record.*figure.marker = initial.*figure.marker;
        record.*figure.value = initial.*figure.value;
    });
}

void setGpuName(GpuDevice& record, const char* text) {
    // strncpy fills the rest with zeros: nothing of a longer, earlier name is left for readers to find.
    std::strncpy(record.name, text != nullptr ? text : "", sizeof record.name - 1);
    record.name[sizeof record.name - 1] = '\0';
}

const char* gpuTypeName(const GpuDevice& record) {
    constexpr const char* names[] = {"Other", "Cuda", "AMD", "Metal", "-"}; // in the order of `GpuType`
    return record.gpuType < std::size(names) ? names[record.gpuType] : "";
}
