// What the driver knows of a vendor: a list of GPUs that can be found once, refreshed often, and let go.
#pragma once

#include <QList>
#include <QString>

#include "gpu/GpuDevice.h"

/// A record's name as it is shown: its bytes as UTF-8.
QString gpuName(const GpuDevice& record);

/// A provider of one vendor's GPUs. Owns its records; they leave it only as copies.
class GpuInfo {
  public:
    GpuInfo() = default;
    virtual ~GpuInfo();
    GpuInfo(const GpuInfo&) = delete;
    GpuInfo& operator=(const GpuInfo&) = delete;

    /// Lists the vendor's GPUs, one record each, paired with its OpenCL device where there is one.
    /// Appends to the list, so it is called once. 1 when it came to something, else 0, as each provider
    /// tells for itself; neither is a failure of the program, which goes by `gpuCount`.
    virtual int detectGpus() = 0;

    /// Reads every record's live figures anew and, when asked, its benchmark score. A figure that can't be
    /// read has its marker cleared and keeps the old number; the memory's total keeps its marker too, since a
    /// card does not change its size. Always 1.
    virtual int updateUsage(const bool& doBenchmark) = 0;

    /// Ends the use of the vendor's interface. 0 when the vendor's own shutdown fails.
    virtual int shutdown() = 0;

    int gpuCount() const { return gpus.size(); }

    /// Copies the first record whose `deviceIndex` equals `key` into `out`. Without one, `out` has its
    /// initial values (`statsValid` 0).
    void getGpu(GpuDevice& out, int key) const;

  protected:
    /// Appends a new record, which stays the provider's.
    GpuDevice& appendGpu();
    void clearGpus();

    QList<GpuDevice*> gpus;
};

/// Calls `visit(number, record)` for each GPU that a provider's latest update cycle has, by its device
/// number: the ones that the GPU list takes over. A GPU without a number, or with that of one before it, is
/// not among them.
template <class Visit>
void forEachRefreshedGpu(const GpuInfo& provider, Visit visit) {
    for (int number = 0; number < provider.gpuCount(); ++number) {
        GpuDevice gpu;
        provider.getGpu(gpu, number);
        if (gpu.statsValid)
            visit(number, gpu);
    }
}
