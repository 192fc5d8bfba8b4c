#pragma once

#include "doctor/Places.h"
#include "doctor/steps/Channel.h"

namespace doctor {

/// Makes this process that user's, with all of the user's groups. Empty, or why it can't be done.
QString becomeUser(const QString& name);

/// Judges device nodes and shared memory as the user `name` (empty: as the one who runs the doctor): tells
/// "rights".
void judgeRights(Channel& channel, const Places& places, const QString& name);

} // namespace doctor
