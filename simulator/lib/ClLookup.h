// The description's OpenCL devices and the handles that stand for them.
#pragma once

#include <vector>

#include "simulator/lib/ClApi.h"
#include "simulator/lib/Machine.h"

namespace qzsim {

/// The device behind a handle, or null when it is none of this machine's.
const ClDevice* findClDevice(cl_device_id id);

cl_device_id clDeviceId(const ClDevice& device);

/// The platforms whose drivers are registered and can be opened, found out at the first call.
const std::vector<cl_platform_id>& offeredPlatforms();

} // namespace qzsim
