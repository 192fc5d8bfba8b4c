// The NVML entry points the program uses, looked up at run time: the program also runs on machines
// without NVIDIA's driver. One table per process, used only by the main thread.
#pragma once

#include "nvidia/nvml.h"
#include "support/VendorLibrary.h"

/// One pointer per entry point; all null while the library is not loaded, none null while it is.
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

/// Opens "libnvidia-ml.so.1", else "libnvidia-ml.so", and fills the table. Returns 1 if the library is loaded
/// (also if it already was), 0 after a line on standard output if it cannot be opened or lacks an entry
/// point.
int load(const DynamicLoader& loader = DynamicLoader::system());

bool isLoaded();

/// Closes the library, if open, and clears the table.
void unload();

/// The table; fetch it again after each load.
const GpuNvml_Table& table();

} // namespace GpuNvml_Loader
