// The provider of AMD GPUs: found in the kernel's DRM entries, paired with OpenCL devices by PCI bus or by
// name.
#pragma once

#include <vector>

#include <QList>
#include <QString>

#include "amd/AmdOclCandidate.h"
#include "gpu/GpuInfo.h"
#include "support/DynamicLoader.h"

/// Where the kernel exposes one card.
struct AmdCardPaths {
    QString deviceDirectory;
    QString hwmonDirectory; ///< empty if the card has no hardware monitor
};

class GpuInfoAmdLinux : public GpuInfo {
  public:
    explicit GpuInfoAmdLinux(const QString& drmDirectory = QStringLiteral("/sys/class/drm"),
                             const QString& osReleasePath = QStringLiteral("/etc/os-release"),
                             const DynamicLoader& loader = DynamicLoader::system());

    /// Returns 1 if there is at least one GPU, with or without OpenCL, else 0.
    int detectGpus() override;

    int updateUsage(const bool& runBenchmark) override;

    /// Forgets every GPU.
    int shutdown() override;

  private:
    void addCard(const QString& cardEntry);
    void numberByBus();
    void matchWithOpenCL();
    void matchCandidate(GpuDevice& gpu, quint32 bus, const std::vector<AmdOclCandidate>& candidates) const;
    void logCount(const char* line) const;

    QString drm;
    QString osRelease;
    DynamicLoader loader;
    // One entry per record, in the same order.
    QList<AmdCardPaths> cardPaths;
    QList<quint32> pciBuses;
};
