// What the program itself finds, seen call by call.
#pragma once

#include "doctor/Places.h"
#include "doctor/steps/Channel.h"

namespace doctor {

struct ProgramRun {
    Places places;
    int readings = 1; ///< update cycles
    /// AMD's live figures and OpenCL, which wake a card that sleeps, are left out.
    bool wakesNothing = false;
};

/// Runs the providers' own code in the order of the program's driver, every call recorded. Tells "record" for
/// each GPU that a provider has and "card" for each card of the kernel's. For a child whose exit handlers
/// run.
void runProgram(Channel& channel, const ProgramRun& run);

} // namespace doctor
