// The program's two CUDA queries, whichever of NVIDIA's libraries answers them.
#pragma once

#include <memory>

#include "support/DynamicLoader.h"

/// A CUDA device's location and generation.
struct CudaDeviceProperties {
    int major = 0; ///< compute capability
    int minor = 0;
    int pciBusID = 0;
};

/// An opened library. It stays open to the end of the process: CUDA's libraries do not unload safely.
class CudaLibrary {
  public:
    CudaLibrary() = default;
    virtual ~CudaLibrary() = default;
    CudaLibrary(const CudaLibrary&) = delete;
    CudaLibrary& operator=(const CudaLibrary&) = delete;

    /// Returns CUDA's status, 0 for success. A failing call may set `count` as well.
    virtual int deviceCount(int& count) const = 0;
    /// The same for one device; after a failure `properties` may be partly set.
    virtual int deviceProperties(CudaDeviceProperties& properties, int device) const = 0;
};

/// The first CUDA runtime that opens, is of a known version, and can count its devices; null if none is.
std::unique_ptr<CudaLibrary> openCudaRuntime(const DynamicLoader& loader);

/// The driver's library, which machines without the runtime have too; null if it is absent or cannot be
/// initialised.
std::unique_ptr<CudaLibrary> openCudaDriver(const DynamicLoader& loader);

/// Reads the device record that a CUDA runtime, identified by its soname, has filled. False for a runtime of
/// an unknown version.
bool readCudaProperties(const char* runtimeSoname, const void* record, CudaDeviceProperties& properties);
