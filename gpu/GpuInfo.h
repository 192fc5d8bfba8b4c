// What the driver knows about a vendor: a list of GPUs, detected once and refreshed often.
#pragma once

#include <QList>
#include <QString>

#include "gpu/GpuDevice.h"

/// A record's name as it is shown: its bytes as UTF-8.
QString gpuName(const GpuDevice& record);

/// A provider of one vendor's GPUs. Owns its records and gives out only copies.
class GpuInfo {
  public:
    GpuInfo() = default;
    virtual ~GpuInfo();
    GpuInfo(const GpuInfo&) = delete;
    GpuInfo& operator=(const GpuInfo&) = delete;

    /// Lists the vendor's GPUs, one record each, paired with its OpenCL device where there is one.
    /// Appends to the list, so it is called once. Returns 1 on success as the provider defines
    /// it, else 0; the driver ignores it and uses `gpuCount`.
    virtual int detectGpus() = 0;

    /// Refreshes every record's live figures and, on request, its benchmark score. A figure that cannot be
    /// read has its marker cleared and keeps the old number; the memory total keeps its marker too, since a
    /// card does not change its size. Returns 1.
    virtual int updateUsage(const bool& doBenchmark) = 0;

    /// Ends the use of the vendor's interface. Returns 0 if the vendor's own shutdown fails.
    virtual int shutdown() = 0;

    int gpuCount() const { return gpus.size(); }

    /// Copies the first record whose `deviceIndex` equals `key` into `out`. Without one, `out` has its
    /// initial values (`statsValid` 0).
    void getGpu(GpuDevice& out, int key) const;

  protected:
    /// Appends a new record, owned by the provider.
    GpuDevice& appendGpu();
    void clearGpus();

    QList<GpuDevice*> gpus;
};

/// Calls `visit(number, record)` for each GPU of a provider's latest update cycle, by its device number: the
/// ones that the GPU list takes over. A GPU without a number, or with an earlier GPU's number, is not among
/// them.
template <class Visit>
void forEachRefreshedGpu(const GpuInfo& provider, Visit visit) {
    for (int number = 0; number < provider.gpuCount(); ++number) {
        GpuDevice gpu;
        provider.getGpu(gpu, number);
        if (gpu.statsValid)
            visit(number, gpu);
    }
}
