#include "doctor/probes/programStep.h"

#include <cstring>

#include <QFileInfo>

#include "amd/GpuInfoAmdLinux.h"
#include "amd/amdCard.h"
#include "app/log/logLine.h"
#include "doctor/facts/ProgramFacts.h"
#include "doctor/facts/json.h"
#include "doctor/recording/RecordedCall.h"
#include "doctor/recording/Recorder.h"
#include "doctor/steps/Message.h"
#include "gpu/GpuInfoBlock.h"
#include "gpu/sysfs.h"
#include "nvidia/GpuInfoNvml_CUDA.h"
#include "nvidia/GpuNvml_Loader.h"
#include "opencl/GpuOpenCL_Loader.h"

namespace doctor {

namespace {

/// A provider that gives access to all its records, even unlisted ones.
template <class Provider>
class Opened : public Provider {
  public:
    using Provider::Provider;
    const QList<GpuDevice*>& records() const { return this->gpus; }
};

/// The recorder's loader, which finds no OpenCL library.
DynamicLoader loaderWithoutOpenCL() {
    DynamicLoader loader = Recorder::loader();
    loader.open = [](const char* name, int mode) -> void* {
        return std::strstr(name, "OpenCL") != nullptr ? nullptr : Recorder::loader().open(name, mode);
    };
    return loader;
}

template <class Provider>
void tellRecords(Channel& channel, const Opened<Provider>& provider) {
    QVector<int> listed;
    forEachRefreshedGpu(provider, [&](int number, const GpuDevice&) {
        if (number < GpuInfoBlock::capacity)
            listed.append(number);
    });
    int place = 0;
    for (const GpuDevice* gpu : provider.records()) {
        RecordFacts facts;
        facts.isNvidia = std::is_base_of_v<GpuInfoNvml_CUDA, Provider>;
        facts.place = place++;
        facts.name = textOfBytes(gpu->name);
        facts.deviceIndex = gpu->deviceIndex;
        facts.kind = gpu->gpuType;
        facts.optixCapable = gpu->optixCapable != 0;
        facts.amdRayTracing = gpu->amdRayTracing != 0;
        facts.openCLDevice = gpu->clDevice != 0 ? handleText(openCLDeviceOf(*gpu)) : QString();
        // Of several records with the same number, the first is listed.
        facts.isListed = listed.removeOne(gpu->deviceIndex);
        channel.send("record", toJson(facts));
    }
}

void tellCards(Channel& channel, const QString& drm) {
    const QStringList names = listDrmCards(drm);
    for (const QString& name : names) {
        const QString directory = drm + "/" + name + "/device";
        CardFacts facts;
        facts.entry = name;
        facts.address = QFileInfo(QFileInfo(directory).symLinkTarget()).fileName();
        facts.isAmd = isAmdCard(directory);
        if (facts.isAmd) {
            const AmdCard card = readAmdCard(name, directory);
            facts.name = card.name;
            facts.bus = card.bus;
            facts.memoryMb = card.memoryMb;
            facts.isLargeEnough = card.isListed();
        }
        channel.send("card", toJson(facts));
    }
}

} // namespace

void runProgram(Channel& channel, const ProgramRun& run) {
    // Suppresses the program's own output.
    logLevel = -1;
    Recorder recorder(channel);
    const DynamicLoader loader = run.wakesNothing ? loaderWithoutOpenCL() : Recorder::loader();
    Opened<GpuInfoNvml_CUDA> nvidia(run.places.osRelease(), loader);
    Opened<GpuInfoAmdLinux> amd(run.places.drm(), run.places.osRelease(), loader);
    nvidia.detectGpus();
    amd.detectGpus();
    for (int reading = 0; reading < run.readings; ++reading) {
        nvidia.updateUsage(false);
        if (!run.wakesNothing)
            amd.updateUsage(false);
    }
    recorder.pause();
    tellCards(channel, run.places.drm());
    tellRecords(channel, nvidia);
    tellRecords(channel, amd);
    recorder.resume();
    nvidia.shutdown();
    amd.shutdown();
    GpuNvml_Loader::unload();
    GpuOpenCL_Loader::unload();
}

} // namespace doctor
