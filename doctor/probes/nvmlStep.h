#pragma once

#include "doctor/steps/Channel.h"

namespace doctor {

/// Asks NVML for what names a driver and its GPUs: tells a "library" and, for each device, a "device".
void askNvml(Channel& channel);

} // namespace doctor
