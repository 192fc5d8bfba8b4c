// CUDA's two operations for the whole process, answered by the runtime where there is a usable one, else by
// the driver's own library. Which of them answered is not told.
#pragma once

#include "nvidia/CudaLibrary.h"
#include "support/DynamicLoader.h"

namespace GpuCuda_Loader {

/// 1 when a CUDA library is usable (also when one was before), 0 when there is none.
int load(const DynamicLoader& loader = DynamicLoader::system());

bool isLoaded();

/// Forgets the library and what it told, so that a test starts anew. The library stays open: CUDA's do not
/// unload safely, and the program keeps them to its end.
void unload();

/// CUDA's status, 0 for success. Fails without a library, and then leaves `count` as it is; a library's own
/// failing call may set it.
int cudaGetDeviceCount(int* count);

/// CUDA's status, 0 for success; otherwise `properties` stay as they are. Fails without a library and for a
/// device that is not there. A device is not asked again once it has answered, since a call can take tens of
/// milliseconds; one that failed is.
int cudaGetDeviceProperties(CudaDeviceProperties* properties, int device);

} // namespace GpuCuda_Loader
