// What the tests of the vendors' providers start from.
#pragma once

#include <vector>

#include "app/log/logLine.h"
#include "gpu/GpuInfo.h"
#include "opencl/GpuOpenCL_Loader.h"
#include "tests/unit/CaptureStdout.h"
#include "tests/unit/DrmTree.h"
#include "tests/unit/FakeCalls.h"
#include "tests/unit/FakeOpenCL.h"

/// A provider with its records in view.
template <class Provider>
class OpenProvider : public Provider {
  public:
    using Provider::Provider;

    const GpuDevice& record(int index) const { return *this->gpus.at(index); }
    GpuDevice& edit(int index) { return *this->gpus.at(index); }

    /// The record of a name; must be there.
    GpuDevice& named(const QByteArray& name) {
        for (GpuDevice* gpu : qAsConst(this->gpus))
            if (gpu->name == name)
                return *gpu;
        qFatal("there is no GPU named %s", name.constData());
    }
};

struct NamedGpu {
    QByteArray name;
    unsigned char bus;
};

/// A machine without GPUs, vendors' libraries and os-release.
class VendorMachine {
  public:
    VendorMachine(const VendorMachine&) = delete;
    VendorMachine& operator=(const VendorMachine&) = delete;
    virtual ~VendorMachine() = default;

    /// The vendor's GPUs, all of them, with everything that finds them.
    virtual void setGpus(const std::vector<NamedGpu>& gpus) = 0;

    /// An OpenCL device that reports its bus in the vendor's way.
    virtual FakeClDevice openCLDevice(unsigned char bus) const = 0;

    virtual GpuInfo& anyProvider() = 0;

    /// The record of a name; must be there.
    virtual GpuDevice& record(const QByteArray& name) = 0;

    QString osReleasePath() const { return drm.filePath("os-release"); }
    void setDistribution(const QByteArray& osRelease) const { DrmTree::write(osReleasePath(), osRelease); }

    /// Runs `detectGpus`; returns what it prints.
    QByteArray detect() {
        return printedBy([this] { result = anyProvider().detectGpus(); });
    }

    /// Runs `updateUsage`, which must succeed; returns what it prints.
    QByteArray update(bool benchmark = false) {
        int updated = 0;
        const QByteArray printed = printedBy([&] { updated = anyProvider().updateUsage(benchmark); });
        if (updated != 1)
            qFatal("updateUsage gives %d", updated);
        return printed;
    }

    DrmTree drm;
    int result = -1; ///< of `detect`

  protected:
    /// `unloadOthers` unloads the libraries that the provider uses besides OpenCL.
    explicit VendorMachine(void (*unloadOthers)()) {
        unloadOthers();
        GpuOpenCL_Loader::unload();
        FakeLoader::reset();
        FakeCalls::reset();
        logLevel = 5;
    }
};
