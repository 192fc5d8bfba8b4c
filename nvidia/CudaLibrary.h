// The two questions the program has for CUDA, whichever of NVIDIA's libraries answers them.
#pragma once

#include <memory>

#include "support/DynamicLoader.h"

/// What tells a CUDA device's place and age.
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

    /// CUDA's status, 0 for success. `count` is the library's to set, and may be set by a failing call.
    virtual int deviceCount(int& count) const = 0;
    /// The same for one device; after a failure `properties` may hold half an answer.
    virtual int deviceProperties(CudaDeviceProperties& properties, int device) const = 0;
};

/// The first CUDA runtime that opens, is of a known version, and can count its devices; null when none is.
std::unique_ptr<CudaLibrary> openCudaRuntime(const DynamicLoader& loader);

/// The driver's own library, which a machine has without the runtime; null when it is absent or can't be
/// initialised.
std::unique_ptr<CudaLibrary> openCudaDriver(const DynamicLoader& loader);

/// Reads what a CUDA runtime, known by its soname, has written into its own record of a device. False for a
/// runtime of an unknown version.
bool readCudaProperties(const char* runtimeSoname, const void* record, CudaDeviceProperties& properties);
