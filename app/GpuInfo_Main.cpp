#include "app/GpuInfo_Main.h"

#include <algorithm>

#include <QCoreApplication>

#include "amd/GpuInfoAmdLinux.h"
#include "app/log/logLine.h"
#include "gpu/GpuFigures.h"
#include "gpu/printGpuStatus.h"
#include "nvidia/GpuInfoNvml_CUDA.h"
#include "nvidia/GpuNvml_Loader.h"
#include "opencl/GpuOpenCL_Loader.h"

namespace {

constexpr int summaryIndex = 99;
constexpr unsigned char readWriteLifetime = 7;

GpuInfo_Main::Providers linuxProviders() {
    return {std::make_unique<GpuInfoNvml_CUDA>(), std::make_unique<GpuInfoAmdLinux>(), nullptr};
}

void logCount(const char* line, int count) {
    logLine(4, QString::fromLatin1(line).arg(count));
}

int countOf(const std::unique_ptr<GpuInfo>& provider) {
    return provider != nullptr ? provider->gpuCount() : 0;
}

void addToSummary(GpuDevice& summary, const GpuDevice& gpu) {
    walkFigures([&](const auto& figure) {
        if (!(gpu.*figure.marker))
            return;
        summary.*figure.value = figure.combine(summary.*figure.value, gpu.*figure.value);
        summary.*figure.marker = 1;
    });
}

} // namespace

GpuInfo_Main::GpuInfo_Main() : GpuInfo_Main(linuxProviders()) {}

GpuInfo_Main::GpuInfo_Main(Providers providersInOrder, const char* segmentDirectory)
    : providers(std::move(providersInOrder)), segment(segmentKey, readWriteLifetime, segmentDirectory) {
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, this, &GpuInfo_Main::update);
}

GpuInfo_Main::~GpuInfo_Main() {
    finish();
    for (std::unique_ptr<GpuInfo>& provider : providers)
        provider.reset();
}

bool GpuInfo_Main::init() {
    logLine(3, QStringLiteral("#################### INIT ####################"));
    if (!singleRun && !createSharedMemory())
        return false;
    for (const std::unique_ptr<GpuInfo>& provider : providers)
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
    for (const std::unique_ptr<GpuInfo>& provider : providers)
        if (provider != nullptr)
            provider->updateUsage(doBenchmark);

    const auto& [nvidia, amd, apple] = providers;
    logLine(4, QStringLiteral("\n-------------------- GPU Information --------------------"));
    logCount(nvidia != nullptr ? "CUDA GPU Count : %1" : "CUDA GPU Count: %1", countOf(nvidia));
    list.cudaCount = collect(nvidia.get(), list.cudaGpus, 0);
    logCount("AMD GPU Count: %1", countOf(amd));
    list.amdCount = collect(amd.get(), list.amdGpus, static_cast<int>(list.cudaCount));
    logCount("METAL GPU Count: %1", countOf(apple));
    list.metalCount = collect(apple.get(), list.metalGpus, static_cast<int>(list.cudaCount + list.amdCount));

    summarise();
    printGpuStatus(list.summary, summaryIndex);
    logCount("Total GPU Count: %1", list.totalCount());
    logLine(4, QStringLiteral("-------------------- END --------------------\n"));
    logLine(4, QStringLiteral("\n"));

    list.dataReady = 1;
    if (!singleRun)
        publish();
}

void GpuInfo_Main::finish() {
    timer.stop();
    for (const std::unique_ptr<GpuInfo>& provider : providers)
        if (provider != nullptr)
            provider->shutdown();
    GpuNvml_Loader::unload();
    GpuOpenCL_Loader::unload();
    segment.detach();
}

void GpuInfo_Main::resetList() {
    list.cudaCount = 0;
    list.amdCount = 0;
    list.metalCount = 0;
    for (GpuDevice* records : {list.cudaGpus, list.amdGpus, list.metalGpus})
        std::for_each_n(records, GpuInfoBlock::capacity, [](GpuDevice& gpu) { gpu.statsValid = 0; });
}

/// Stores and prints a provider's refreshed GPUs and gives the count of records in use. A device number that
/// was not refreshed leaves a stale entry below the next one stored. What exceeds the capacity is printed all
/// the same.
std::uint32_t GpuInfo_Main::collect(const GpuInfo* provider, GpuDevice* records, int firstIndex) {
    std::uint32_t count = 0;
    if (provider == nullptr)
        return count;
    forEachRefreshedGpu(*provider, [&](int number, const GpuDevice& gpu) {
        if (number < GpuInfoBlock::capacity) {
            records[number] = gpu;
            count = static_cast<std::uint32_t>(number) + 1;
        }
        printGpuStatus(gpu, firstIndex + number);
    });
    return count;
}

void GpuInfo_Main::summarise() {
    GpuDevice& summary = list.summary;
    setGpuName(summary, "Summary");
    summary.gpuType = GpuType_Summary;
    summary.deviceIndex = summaryIndex;
    walkFigures([&](const auto& figure) { summary.*figure.value = figure.summaryStart; });
    // The markers are not cleared: what was present once in the life of the process stays so.
    for (int i = 0; i < list.totalCount(); ++i)
        addToSummary(summary, list.gpuAt(i));
    summary.statsValid = list.cudaCount + list.amdCount + list.metalCount > 0 ? 1 : 0;
}
