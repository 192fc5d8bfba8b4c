// The few declarations of the NVIDIA Management Library that the program uses, as NVIDIA publishes its
// interface.
#pragma once

#include <cstdint>

using nvmlReturn_t = int; ///< 0 is success
constexpr nvmlReturn_t NVML_SUCCESS = 0;

using nvmlDevice_t = struct nvmlDevice_st*;

using nvmlTemperatureSensors_t = int;
constexpr nvmlTemperatureSensors_t NVML_TEMPERATURE_GPU = 0;

/// A device's PCI location, in the layout of version 3.
struct nvmlPciInfo_t {
    char busIdLegacy[16];
    unsigned int domain;
    unsigned int bus;
    unsigned int device;
    unsigned int pciDeviceId;
    unsigned int pciSubSystemId;
    char busId[32];
};
static_assert(sizeof(nvmlPciInfo_t) == 68);

/// Utilisation over the last sample period, percent.
struct nvmlUtilization_t {
    unsigned int gpu;
    unsigned int memory;
};

/// Framebuffer memory, bytes.
struct nvmlMemory_t {
    unsigned long long total;
    unsigned long long free;
    unsigned long long used;
};
