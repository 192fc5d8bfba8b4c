#include "gpu/GpuInfo.h"

#include <algorithm>
#include <memory>

QString gpuName(const GpuDevice& record) {
    return QString::fromUtf8(record.name);
}

GpuInfo::~GpuInfo() {
    clearGpus();
}

void GpuInfo::getGpu(GpuDevice& out, int key) const {
    initialiseGpuDevice(out);
    const auto found = std::find_if(gpus.cbegin(), gpus.cend(),
                                    [key](const GpuDevice* gpu) { return gpu->deviceIndex == key; });
    if (found != gpus.cend())
        out = **found;
}

GpuDevice& GpuInfo::appendGpu() {
    auto record = std::make_unique<GpuDevice>();
    gpus.append(record.get());
    return *record.release();
}

void GpuInfo::clearGpus() {
    qDeleteAll(gpus);
    gpus.clear();
}
