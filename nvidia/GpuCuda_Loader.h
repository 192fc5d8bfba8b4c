// CUDA's two operations for the whole process, answered by the runtime where there is a usable one, else by
// the driver's own library. Which of them answered is not told.
#pragma once

#include "nvidia/CudaLibrary.h"
#include "support/DynamicLoader.h"

namespace GpuCuda_Loader {

/// 1 when a CUDA library is usable (also when one was before), 0 when there is none.
int load(const DynamicLoader& loader = DynamicLoader::system());

bool isLoaded();

/// Forgets the library and what it told. It stays open.
void unload();

/// CUDA's status, 0 for success. Fails without a library, and then leaves `count` as it is.
int cudaGetDeviceCount(int* count);

/// CUDA's status, 0 for success; otherwise `properties` stay as they are. Fails without a library and for a
/// device that is not there. A device is asked once, whatever it answers: a call can take tens of
/// milliseconds.
int cudaGetDeviceProperties(CudaDeviceProperties* properties, int device);

} // namespace GpuCuda_Loader
