// What the tests of AMD's provider start from.
#pragma once

#include "amd/GpuInfoAmdLinux.h"
#include "app/log/logLine.h"
#include "opencl/GpuOpenCL_Loader.h"
#include "tests/unit/CaptureStdout.h"
#include "tests/unit/DrmTree.h"
#include "tests/unit/FakeCalls.h"
#include "tests/unit/FakeOpenCL.h"

/// The provider with its records in view.
class AmdProvider : public GpuInfoAmdLinux {
  public:
    using GpuInfoAmdLinux::GpuInfoAmdLinux;

    const GpuDevice& record(int index) const { return *gpus.at(index); }
    GpuDevice& edit(int index) { return *gpus.at(index); }

    /// The record of a name; must be there.
    const GpuDevice& named(const char* name) const {
        for (const GpuDevice* gpu : gpus)
            if (qstrcmp(gpu->name, name) == 0)
                return *gpu;
        qFatal("there is no GPU named %s", name);
    }
};

/// A machine without cards, OpenCL and os-release.
struct AmdMachine {
    AmdMachine() {
        GpuOpenCL_Loader::unload();
        FakeLoader::reset();
        FakeCalls::reset();
        logLevel = 5;
    }

    void setDistribution(const QByteArray& osRelease) const { DrmTree::write(osReleasePath(), osRelease); }
    QString osReleasePath() const { return drm.filePath("os-release"); }

    /// Runs `detectGpus`; gives what it prints.
    QByteArray detect() {
        return printedBy([this] { result = provider.detectGpus(); });
    }

    DrmTree drm;
    AmdProvider provider{drm.path(), osReleasePath(), FakeLoader::functions()};
    int result = -1; ///< of `detect`
};
