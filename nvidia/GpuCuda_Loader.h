// CUDA's two operations for the whole process, answered by the runtime where there is a usable one, else by
// the driver's own library. Callers do not see which of them answered.
#pragma once

#include "nvidia/CudaLibrary.h"
#include "support/DynamicLoader.h"

namespace GpuCuda_Loader {

/// Returns 1 if a CUDA library is usable (also if it was loaded before), 0 if there is none.
int load(const DynamicLoader& loader = DynamicLoader::system());

bool isLoaded();

/// Forgets the library and its answers, so that a test can start over. The library stays open: CUDA's
/// libraries do not unload safely.
void unload();

/// Returns CUDA's status, 0 for success. Fails without a library, leaving `count` unchanged; a library's
/// failing call may set it.
int cudaGetDeviceCount(int* count);

/// Returns CUDA's status, 0 for success; on failure `properties` are unchanged. Fails without a library and
/// for a device that does not exist. A device's answer is cached, since a call can take tens of
/// milliseconds; a failure is not.
int cudaGetDeviceProperties(CudaDeviceProperties* properties, int device);

} // namespace GpuCuda_Loader
