#include "app/GpuInfo_Main.h"

#include <algorithm>

#include <QCoreApplication>

#include "app/log/logLine.h"
#include "app/log/output.h"
#include "gpu/GpuFigures.h"
#include "gpu/printGpuStatus.h"

namespace {

constexpr int summaryIndex = 99;
constexpr unsigned char readWriteLifetime = 7;

void addToSummary(GpuDevice& summary, const GpuDevice& gpu) {
    walkFigures([&](const auto& figure) {
        if (!(gpu.*figure.marker))
            return;
        summary.*figure.value = figure.combine(summary.*figure.value, gpu.*figure.value);
        summary.*figure.marker = 1;
    });
}

} // namespace

GpuInfo_Main::GpuInfo_Main(Vendors vendorsOfRun, const char* segmentDirectory)
    : vendors(std::move(vendorsOfRun)), segment(segmentKey, readWriteLifetime, segmentDirectory) {
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, this, &GpuInfo_Main::update);
}

GpuInfo_Main::~GpuInfo_Main() {
    finish();
    for (std::unique_ptr<GpuInfo>& provider : vendors.providers)
        provider.reset();
}

bool GpuInfo_Main::init() {
    logLine(3, QStringLiteral("#################### INIT ####################"));
    if (!singleRun && !createSharedMemory())
        return false;
    for (const std::unique_ptr<GpuInfo>& provider : vendors.providers)
        if (provider != nullptr) {
            provider->detectGpus();
            flushOutput();
        }
    if (singleRun) {
        logLine(3, QStringLiteral("Single run..."));
        flushOutput();
        update();
        flushOutput();
        QCoreApplication::processEvents();
        QCoreApplication::quit();
        return true;
    }
    logLine(3, QStringLiteral("Continuous run..."));
    flushOutput();
    timer.start(updateIntervalMs);
    return true;
}

void GpuInfo_Main::update() {
    logLine(4, QStringLiteral("#################### update current usage ####################"));
    resetList();
    if (doBenchmark) // readers allow more time meanwhile; without a segment this does nothing
        segment.mark(SegmentFlag::Measuring);
    for (const std::unique_ptr<GpuInfo>& provider : vendors.providers)
        if (provider != nullptr)
            provider->updateUsage(doBenchmark);

    logLine(4, QStringLiteral("\n-------------------- GPU Information --------------------"));
    int firstIndex = 0;
    for (std::size_t i = 0; i < std::size(gpuVendors); ++i) {
        collect(gpuVendors[i], vendors.providers[i].get(), firstIndex);
        firstIndex += static_cast<int>(list.*gpuVendors[i].count);
    }

    summarise();
    printGpuStatus(list.summary, summaryIndex);
    logLine(4, QStringLiteral("Total GPU Count: %1").arg(list.totalCount()));
    logLine(4, QStringLiteral("-------------------- END --------------------\n"));
    logLine(4, QStringLiteral("\n"));

    list.dataReady = 1;
    if (!singleRun)
        publish();
    if (doBenchmark)
        segment.mark(SegmentFlag::Measuring, false);
}

void GpuInfo_Main::finish() {
    timer.stop();
    for (const std::unique_ptr<GpuInfo>& provider : vendors.providers)
        if (provider != nullptr)
            provider->shutdown();
    vendors.unloadLibraries();
    segment.detach();
}

void GpuInfo_Main::resetList() {
    for (const GpuVendor& vendor : gpuVendors) {
        list.*vendor.count = 0;
        for (GpuDevice& gpu : list.*vendor.gpus)
            gpu.statsValid = 0;
    }
}

/// Stores and prints the refreshed GPUs of a vendor, which may have no provider. A device number that was not
/// refreshed leaves a stale entry below the next one stored. GPUs beyond the capacity are printed all the
/// same.
void GpuInfo_Main::collect(const GpuVendor& vendor, const GpuInfo* provider, int firstIndex) {
    if (provider == nullptr) {
        logLine(4, QString::fromLatin1(vendor.countLineWithoutProvider).arg(0));
        return;
    }
    logLine(4, QString::fromLatin1(vendor.countLine).arg(provider->gpuCount()));
    forEachRefreshedGpu(*provider, [&](int number, const GpuDevice& gpu) {
        if (number < GpuInfoBlock::capacity) {
            (list.*vendor.gpus)[number] = gpu;
            list.*vendor.count = static_cast<std::uint32_t>(number) + 1;
        }
        printGpuStatus(gpu, firstIndex + number);
    });
}

void GpuInfo_Main::summarise() {
    GpuDevice& summary = list.summary;
    setGpuName(summary, "Summary");
    summary.gpuType = GpuType_Summary;
    summary.deviceIndex = summaryIndex;
    walkFigures([&](const auto& figure) { summary.*figure.value = figure.summaryStart; });
    // The markers are not cleared: a figure that was present once stays present for the process's life.
    for (int i = 0; i < list.totalCount(); ++i)
        addToSummary(summary, list.gpuAt(i));
    summary.statsValid = std::any_of(std::begin(gpuVendors), std::end(gpuVendors),
                                     [this](const GpuVendor& vendor) { return list.*vendor.count > 0; });
}
