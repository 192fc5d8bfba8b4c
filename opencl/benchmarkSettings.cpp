#include "opencl/benchmarkSettings.h"

std::int32_t benchmarkSeconds = 25;
std::int32_t benchmarkWarmupMs = 4;
float GLOBAL_Iteratons_mod = 1.0F;
BenchmarkGeometry benchmarkGeometry;
