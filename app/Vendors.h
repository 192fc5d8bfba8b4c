// What a run takes from the vendors' folders, so that the driver itself names no vendor.
#pragma once

#include <array>
#include <iterator>
#include <memory>

#include "gpu/GpuInfo.h"
#include "gpu/GpuVendor.h"

struct Vendors {
    /// In the order of `gpuVendors`; any may be missing.
    std::array<std::unique_ptr<GpuInfo>, std::size(gpuVendors)> providers;

    /// Closes the open vendor libraries. Called after the providers' shutdown.
    void (*unloadLibraries)();
};

/// The vendors of a Linux machine.
Vendors linuxVendors();
