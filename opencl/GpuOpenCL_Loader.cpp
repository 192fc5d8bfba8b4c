#include "opencl/GpuOpenCL_Loader.h"

#include "app/log/logLine.h"

namespace {
VendorLibrary<GpuOpenCL_Table> openCL;
} // namespace

int GpuOpenCL_Loader::load(const DynamicLoader& loader) {
    const auto report = [](LoadFailure failure) {
        logLine(2, failure == LoadFailure::NotFound
                       ? QStringLiteral("OpenCL library not found\n")
                       : QStringLiteral("OpenCL: required functions not found\n"));
    };
    return openCL.load({"libOpenCL.so.1", "libOpenCL.so"}, loader, report) ? 1 : 0;
}

bool GpuOpenCL_Loader::isLoaded() {
    return openCL.isLoaded();
}

void GpuOpenCL_Loader::unload() {
    openCL.unload();
}

const GpuOpenCL_Table& GpuOpenCL_Loader::table() {
    return openCL.table();
}
