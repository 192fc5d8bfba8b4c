#pragma once

#include "doctor/steps/Channel.h"

namespace doctor {

/// Asks NVML for the identities of the driver and the GPUs: sends "library", and "device" for each device.
void askNvml(Channel& channel);

} // namespace doctor
