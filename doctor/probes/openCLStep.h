#pragma once

#include "doctor/facts/OpenCLFacts.h"
#include "doctor/steps/Channel.h"

namespace doctor {

/// Lists what the loader offers with all drivers: sends "library", and each "platform" and "device".
void listOpenCL(Channel& channel);

/// The same with one driver alone, whose .icd file is the only one in `folder`. First opens the
/// driver's library without the loader.
void tryIcdAlone(Channel& channel, const IcdFile& icd, const QString& folder);

} // namespace doctor
