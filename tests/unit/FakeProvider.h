// A vendor that a test controls.
#pragma once

#include <functional>
#include <initializer_list>

#include <QStringList>

#include "gpu/GpuInfo.h"

/// A provider with the given records, which logs the calls made to it.
class FakeProvider : public GpuInfo {
  public:
    /// `calls` outlives the provider; `nameOfVendor` marks its calls among the other vendors'.
    FakeProvider(QStringList& calls, const QString& nameOfVendor) : journal(calls), vendor(nameOfVendor) {}

    ~FakeProvider() override { note("delete"); }

    FakeProvider(const FakeProvider&) = delete;
    FakeProvider& operator=(const FakeProvider&) = delete;

    int detectGpus() override {
        note("detect");
        return 1;
    }

    int updateUsage(const bool& doBenchmark) override {
        note(doBenchmark ? "benchmark" : "update");
        for (GpuDevice* gpu : qAsConst(gpus))
            gpu->statsValid = 1;
        if (onUpdate)
            onUpdate();
        return 1;
    }

    int shutdown() override {
        note("shutdown");
        return 1;
    }

    /// Appends a record with the next free number.
    GpuDevice& add(const char* name = "") {
        const int index = gpuCount();
        GpuDevice& gpu = appendGpu();
        gpu.deviceIndex = index;
        setGpuName(gpu, name);
        return gpu;
    }

    GpuDevice& gpu(int place) { return *gpus[place]; }

    void removeLast() { delete gpus.takeLast(); }
    void removeAll() { clearGpus(); }

    std::function<void()> onUpdate;          ///< at the end of each update
    std::function<void(const char*)> onCall; ///< at each call, with its name

  private:
    void note(const char* call) {
        journal << QLatin1String(call) + QLatin1Char(' ') + vendor;
        if (onCall)
            onCall(call);
    }

    QStringList& journal;
    QString vendor;
};
