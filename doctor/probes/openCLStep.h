#pragma once

#include "doctor/facts/OpenCLFacts.h"
#include "doctor/steps/Channel.h"

namespace doctor {

/// Lists what the loader offers with all of its drivers: tells the "library", each "platform" and "device".
void listOpenCL(Channel& channel);

/// The same with one driver alone, whose .icd file is the only one in `folder`. Opens the driver's library by
/// itself first.
void tryIcdAlone(Channel& channel, const IcdFile& icd, const QString& folder);

} // namespace doctor
