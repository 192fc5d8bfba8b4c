// The description's OpenCL devices and their handles.
#pragma once

#include <vector>

#include "simulator/lib/ClApi.h"
#include "simulator/lib/Machine.h"

namespace qzsim {

/// The device of a handle, or null if the machine has no such device.
const ClDevice* findClDevice(cl_device_id id);

cl_device_id clDeviceId(const ClDevice& device);

/// The platforms whose drivers are registered and can be opened, determined at the first call.
const std::vector<cl_platform_id>& offeredPlatforms();

} // namespace qzsim
