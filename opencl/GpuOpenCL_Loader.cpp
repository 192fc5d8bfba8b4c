#include "opencl/GpuOpenCL_Loader.h"

#include "app/log/logLine.h"

namespace {
VendorLibrary<GpuOpenCL_Table> openCL;
} // namespace

int GpuOpenCL_Loader::load(const DynamicLoader& loader) {
    switch (openCL.load({"libOpenCL.so.1", "libOpenCL.so"}, loader)) {
    case LoadResult::NotFound:
        logLine(2, QStringLiteral("OpenCL library not found\n"));
        return 0;
    case LoadResult::Incomplete:
        logLine(2, QStringLiteral("OpenCL: required functions not found\n"));
        return 0;
    case LoadResult::Loaded:
        break;
    }
    return 1;
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
