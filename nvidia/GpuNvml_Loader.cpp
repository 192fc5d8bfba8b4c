#include "nvidia/GpuNvml_Loader.h"

#include <cstdio>

#include "support/VendorLibrary.h"

namespace {
VendorLibrary<GpuNvml_Table> nvml;
} // namespace

int GpuNvml_Loader::load(const DynamicLoader& loader) {
    switch (nvml.load({"libnvidia-ml.so.1", "libnvidia-ml.so"}, loader)) {
    case LoadResult::NotFound:
        std::puts("libnvidia-ml.so not found - no Nvidia GPU or driver not installed");
        return 0;
    case LoadResult::Incomplete:
        std::puts("GpuNvml_Loader: required functions not found");
        return 0;
    case LoadResult::Loaded:
        break;
    }
    return 1;
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
