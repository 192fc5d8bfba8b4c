#pragma once

#include "doctor/Places.h"
#include "doctor/steps/Channel.h"

namespace doctor {

/// Switches this process to that user, with all of the user's groups. Returns why it can't, or an empty text.
QString becomeUser(const QString& name);

/// Judges device nodes and shared memory as the user `name` (empty: the user running the doctor): sends
/// "rights".
void judgeRights(Channel& channel, const Places& places, const QString& name);

} // namespace doctor
