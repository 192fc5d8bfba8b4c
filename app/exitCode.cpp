#include "app/exitCode.h"

#include <cmath>
#include <limits>

namespace {

int answerOf(const CommandLine& commandLine, const GpuInfoBlock& list) {
    int code = 0;
    for (int i = 0; i < list.totalCount(); ++i) {
        const GpuDevice gpu = list.gpuAt(i);
        if (commandLine.queryNvCuda && gpu.gpuType == GpuType_Cuda)
            code = 1;
        if (commandLine.queryNvOptix && gpu.optixCapable != 0)
            code = gpu.optixCapable;
        if (commandLine.queryAmdRt && gpu.amdRayTracing != 0)
            code = gpu.amdRayTracing;
        if (commandLine.queryGPU)
            code = 1;
    }
    return code;
}

int scoreOf(const GpuInfoBlock& list) {
    if (list.totalCount() == 0)
        return 0;
    const GpuDevice first = list.gpuAt(0);
    return first.hasSpeed ? roundedScore(first.speedGps) : 0;
}

} // namespace

int exitCode(const CommandLine& commandLine, const GpuInfoBlock& list, int runResult) {
    if (commandLine.isQuery())
        return answerOf(commandLine, list);
    return commandLine.returnGPS ? scoreOf(list) : runResult;
}

int roundedScore(float speedGps) {
    const auto value = static_cast<double>(speedGps);
    const double shifted = 0.0 > value ? value - 0.5 : value + 0.5;
    return std::fabs(shifted) < std::numeric_limits<int>::max() ? static_cast<int>(shifted) : 0;
}
