#pragma once

#include "app/CommandLine.h"
#include "gpu/GpuInfoBlock.h"

/// The process's exit code: the answer to the queries given, else the first GPU's score if requested, else
/// `runResult`.
int exitCode(const CommandLine& commandLine, const GpuInfoBlock& list, int runResult);

/// Rounds half away from zero; 0 if no integer can hold the result.
int roundedScore(float speedGps);
