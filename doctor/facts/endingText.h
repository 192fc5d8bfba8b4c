// Describes how a step ended.
#pragma once

#include <QString>

#include "doctor/steps/StepRunner.h"

namespace doctor {

/// What an ended step did, without its subject: "crashes (SIGSEGV) when its platforms are listed
/// (clGetPlatformIDs)", "does not return within 30 s ...". Ends with what the driver printed, if anything.
QString endingText(const StepOutcome& outcome, double timeLimit);

/// When a call is made: "when its platforms are listed (clGetPlatformIDs)"; empty for no call.
QString whenText(const QString& call);

/// "SIGSEGV".
QString signalName(int signal);

/// A driver's output, shortened and on one line.
QString quoted(const QByteArray& printed);

} // namespace doctor
