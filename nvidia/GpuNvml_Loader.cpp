#include "nvidia/GpuNvml_Loader.h"

#include "app/log/output.h"
#include "support/VendorLibrary.h"

namespace {
VendorLibrary<GpuNvml_Table> nvml;
} // namespace

int GpuNvml_Loader::load(const DynamicLoader& loader) {
    const auto report = [](LoadFailure failure) {
        printLine(failure == LoadFailure::NotFound
                      ? "libnvidia-ml.so not found - no Nvidia GPU or driver not installed"
                      : "GpuNvml_Loader: required functions not found");
    };
    return nvml.load({"libnvidia-ml.so.1", "libnvidia-ml.so"}, loader, report) ? 1 : 0;
}

bool GpuNvml_Loader::isLoaded() {
    return nvml.isLoaded();
}

void GpuNvml_Loader::unload() {
    nvml.unload();
}

const GpuNvml_Table& GpuNvml_Loader::table() {
    return nvml.table();
}
