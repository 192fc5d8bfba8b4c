#pragma once

#include "doctor/Places.h"
#include "doctor/steps/Channel.h"

namespace doctor {

/// Reads the segment as the user `name` (empty: the user running the doctor): sends "segment".
void readSegment(Channel& channel, const Places& places, const QString& name);

} // namespace doctor
