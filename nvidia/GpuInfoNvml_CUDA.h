// The provider of NVIDIA's GPUs: found through NVML, paired with CUDA and OpenCL devices by their PCI bus.
#pragma once

#include <QList>
#include <QString>

#include "gpu/GpuInfo.h"
#include "nvidia/nvml.h"
#include "opencl/OpenCLDevices.h"
#include "support/DynamicLoader.h"

class GpuInfoNvml_CUDA : public GpuInfo {
  public:
    explicit GpuInfoNvml_CUDA(const QString& osReleasePath = QStringLiteral("/etc/os-release"),
                              const DynamicLoader& loader = DynamicLoader::system());

    /// 0 when NVML can't be loaded, initialised or counted, or when there is neither a GPU nor OpenCL;
    /// else 1.
    int detectGpus() override;

    int updateUsage(const bool& doBenchmark) override;

    /// Ends NVML, but keeps the library loaded and the records readable. 0 when NVML's own shutdown fails.
    int shutdown() override;

  private:
    bool countDevices(unsigned int& count);
    void addDevice(unsigned int index);
    int withoutOpenCL(const char* countLine);
    void matchOpenCLDevice(GpuDevice& gpu, nvmlDevice_t handle, const OpenCLPlatforms& platforms);
    void logCount(int level, const char* line) const;

    QString osRelease;
    DynamicLoader loader;
    QList<nvmlDevice_t> handles; ///< one a record, in the same order
};
