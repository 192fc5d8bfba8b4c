#pragma once

#include "app/CommandLine.h"
#include "gpu/GpuInfoBlock.h"

/// The process's exit code: the answer to the questions asked, else the score of the first GPU where that is
/// asked for, else `runResult`.
int exitCode(const CommandLine& commandLine, const GpuInfoBlock& list, int runResult);

/// Half away from zero; 0 for what no integer holds.
int roundedScore(float speedGps);
