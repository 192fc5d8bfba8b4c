// The provider of NVIDIA GPUs: found through NVML, paired with CUDA and OpenCL devices by their PCI bus.
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

    /// Returns 0 if NVML cannot be loaded, initialised or queried for a count, or if there is neither a GPU
    /// nor OpenCL; else 1.
    int detectGpus() override;

    int updateUsage(const bool& doBenchmark) override;

    /// Shuts NVML down; the library stays loaded and the records readable. Returns 0 if that fails.
    int shutdown() override;

  private:
    bool countDevices(unsigned int& count);
    void addDevice(unsigned int index);
    int withoutOpenCL(const char* countLine);
    void matchOpenCLDevice(GpuDevice& gpu, nvmlDevice_t handle, const OpenCLPlatforms& platforms);
    void logCount(int level, const char* line) const;

    QString osRelease;
    DynamicLoader loader;
    QList<nvmlDevice_t> handles; ///< one per record, in the same order
};
