#pragma once

#include <QString>

#include "doctor/steps/Channel.h"

namespace doctor {

/// Executes the program with one option. Returns only if it can't be started, after sending "cannot" with
/// a "reason".
void askProgram(Channel& channel, const QString& program, const QString& option);

/// The program installed beside this one.
QString programBeside();

} // namespace doctor
