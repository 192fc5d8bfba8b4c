// The NVML entry points the program uses, looked up at run time: a machine without NVIDIA's driver runs the
// program unchanged. One table for the whole process, used by the main thread alone.
#pragma once

#include "nvidia/nvml.h"
#include "support/VendorLibrary.h"

/// One pointer an entry point; all null while the library is not loaded, none while it is.
struct GpuNvml_Table {
    nvmlReturn_t (*nvmlInit_v2)() = nullptr;
    nvmlReturn_t (*nvmlShutdown)() = nullptr;
    nvmlReturn_t (*nvmlDeviceGetCount_v2)(unsigned int* count) = nullptr;
    nvmlReturn_t (*nvmlDeviceGetHandleByIndex_v2)(unsigned int index, nvmlDevice_t* device) = nullptr;
    nvmlReturn_t (*nvmlDeviceGetPciInfo_v3)(nvmlDevice_t device, nvmlPciInfo_t* pci) = nullptr;
    nvmlReturn_t (*nvmlDeviceGetName)(nvmlDevice_t device, char* name, unsigned int length) = nullptr;
    nvmlReturn_t (*nvmlDeviceGetUtilizationRates)(nvmlDevice_t device,
                                                  nvmlUtilization_t* utilization) = nullptr;
    nvmlReturn_t (*nvmlDeviceGetTemperature)(nvmlDevice_t device, nvmlTemperatureSensors_t sensor,
                                             unsigned int* temperature) = nullptr;
    nvmlReturn_t (*nvmlDeviceGetMemoryInfo)(nvmlDevice_t device, nvmlMemory_t* memory) = nullptr;
    const char* (*nvmlErrorString)(nvmlReturn_t result) = nullptr;

    /// The one list of the entry points, in the order in which they are looked up.
    template <class Visit>
    void walk(Visit visit) {
        visit("nvmlInit_v2", nvmlInit_v2, EntryPoint::Required);
        visit("nvmlShutdown", nvmlShutdown, EntryPoint::Required);
        visit("nvmlDeviceGetCount_v2", nvmlDeviceGetCount_v2, EntryPoint::Required);
        visit("nvmlDeviceGetHandleByIndex_v2", nvmlDeviceGetHandleByIndex_v2, EntryPoint::Required);
        visit("nvmlDeviceGetPciInfo_v3", nvmlDeviceGetPciInfo_v3, EntryPoint::Required);
        visit("nvmlDeviceGetName", nvmlDeviceGetName, EntryPoint::Required);
        visit("nvmlDeviceGetUtilizationRates", nvmlDeviceGetUtilizationRates, EntryPoint::Required);
        visit("nvmlDeviceGetTemperature", nvmlDeviceGetTemperature, EntryPoint::Required);
        visit("nvmlDeviceGetMemoryInfo", nvmlDeviceGetMemoryInfo, EntryPoint::Required);
        visit("nvmlErrorString", nvmlErrorString, EntryPoint::Required);
    }
};

namespace GpuNvml_Loader {

/// Opens "libnvidia-ml.so.1", else "libnvidia-ml.so", and fills the table. 1 when the library is loaded (also
/// when it was before), 0 after a line on standard output when it can't be opened or lacks an entry point.
int load(const DynamicLoader& loader = DynamicLoader::system());

bool isLoaded();

/// Closes the library, if it is open, and clears the table.
void unload();

/// The table; read it anew after each load.
const GpuNvml_Table& table();

} // namespace GpuNvml_Loader
