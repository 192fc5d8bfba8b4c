#include "app/Vendors.h"

#include "amd/GpuInfoAmdLinux.h"
#include "nvidia/GpuInfoNvml_CUDA.h"
#include "nvidia/GpuNvml_Loader.h"
#include "opencl/GpuOpenCL_Loader.h"

Vendors linuxVendors() {
    return {{std::make_unique<GpuInfoNvml_CUDA>(), std::make_unique<GpuInfoAmdLinux>(), nullptr}, [] {
                GpuNvml_Loader::unload();
                GpuOpenCL_Loader::unload();
            }};
}
