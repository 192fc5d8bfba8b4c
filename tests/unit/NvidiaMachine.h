// What the tests of NVIDIA's provider start from.
#pragma once

#include <QFile>
#include <QTemporaryDir>

#include "app/log/logLine.h"
#include "nvidia/GpuCuda_Loader.h"
#include "nvidia/GpuInfoNvml_CUDA.h"
#include "nvidia/GpuNvml_Loader.h"
#include "opencl/GpuOpenCL_Loader.h"
#include "tests/unit/CaptureStdout.h"
#include "tests/unit/FakeCalls.h"
#include "tests/unit/FakeCuda.h"
#include "tests/unit/FakeNvml.h"
#include "tests/unit/FakeOpenCL.h"

/// The provider with its records in view.
class NvidiaProvider : public GpuInfoNvml_CUDA {
  public:
    using GpuInfoNvml_CUDA::GpuInfoNvml_CUDA;

    const GpuDevice& record(int index) const { return *gpus.at(index); }
    GpuDevice& edit(int index) { return *gpus.at(index); }
};

/// A machine without any library, and with an os-release file where the test writes one.
class NvidiaMachine {
  public:
    NvidiaMachine() {
        GpuNvml_Loader::unload();
        GpuCuda_Loader::unload();
        GpuOpenCL_Loader::unload();
        FakeLoader::reset();
        FakeCalls::reset();
        logLevel = 5;
    }

    void setDistribution(const QByteArray& osRelease) const {
        QFile file(osReleasePath());
        if (!file.open(QIODevice::WriteOnly) || file.write(osRelease) != osRelease.size())
            qFatal("os-release can't be written");
    }

    QString osReleasePath() const { return directory.filePath("os-release"); }

    /// Runs `detectGpus`; gives what it prints.
    QByteArray detect() {
        return printedBy([this] { result = provider.detectGpus(); });
    }

  private:
    QTemporaryDir directory;

  public:
    NvidiaProvider provider{osReleasePath(), FakeLoader::functions()};
    int result = -1; ///< of `detect`
};
