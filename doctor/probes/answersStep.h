#pragma once

#include <QString>

#include "doctor/steps/Channel.h"

namespace doctor {

/// Becomes the program with one option. Returns only where it can't be started: after telling "cannot" with
/// its "reason".
void askProgram(Channel& channel, const QString& program, const QString& option);

/// The program installed beside this one.
QString programBeside();

} // namespace doctor
