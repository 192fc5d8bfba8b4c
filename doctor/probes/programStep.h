// Runs the program's detection and records its calls.
#pragma once

#include "doctor/Places.h"
#include "doctor/steps/Channel.h"

namespace doctor {

struct ProgramRun {
    Places places;
    int readings = 1; ///< update cycles
    /// Skips AMD's live figures and OpenCL, which wake suspended cards.
    bool wakesNothing = false;
};

/// Runs the providers' own code in the order of the program's driver, and records every call. Sends "record"
/// for each of the providers' GPUs and "card" for each of the kernel's cards. The child has to end by `exit`.
void runProgram(Channel& channel, const ProgramRun& run);

} // namespace doctor
