// pairing.*
#include <algorithm>

#include <QJsonArray>

#include "doctor/checks/advice.h"
#include "doctor/checks/checks.h"
#include "doctor/facts/Gpus.h"
#include "doctor/facts/endingText.h"
#include "gpu/GpuDevice.h"
#include "opencl/OpenCLDevices.h"

namespace doctor {

namespace {

QString gpuText(const Gpu& gpu) {
    const QString name = gpu.name.isEmpty() ? QStringLiteral("GPU") : QStringLiteral("'%1'").arg(gpu.name);
    return gpu.address.isEmpty() ? name : QStringLiteral("%1 at %2").arg(name, gpu.address);
}

/// The device with that handle in the program's run: the n-th that its calls returned.
const OpenCLDeviceFacts* deviceOf(const Facts& facts, const QString& handle) {
    QStringList platforms;
    for (const CallFacts& call : facts.programRun.calls) {
        const QJsonArray handles = call.answer.value("handles").toArray();
        if (call.name == QLatin1String("clGetPlatformIDs") && platforms.isEmpty())
            for (const QJsonValue& platform : handles)
                platforms.append(platform.toString());
        if (call.name != QLatin1String("clGetDeviceIDs"))
            continue;
        for (int number = 0; number < handles.size(); ++number)
            for (const OpenCLDeviceFacts& device : facts.openCL.devices)
                if (handles[number].toString() == handle && device.number == number &&
                    device.platform == platforms.indexOf(call.argument("platform")))
                    return &device;
    }
    return nullptr;
}

QString ruleText(const Gpu& gpu, const OpenCLDeviceFacts& device) {
    if (gpu.vendor == Gpu::Vendor::Nvidia)
        return QStringLiteral("by its %1 bus 0x%2").arg(device.nvidiaAttribute, pciBusText(device.nvidiaBus));
    return device.amdBusKnown
               ? QStringLiteral("by its bus 0x%1 (%2)").arg(pciBusText(device.amdBus), device.amdSource)
               : QStringLiteral("by its name alone, since it does not report a bus");
}

QString openCLText(const Facts& facts, const Gpu& gpu) {
    const OpenCLDeviceFacts* device = deviceOf(facts, gpu.record->openCLDevice);
    if (device == nullptr)
        return QStringLiteral("an OpenCL device");
    return QStringLiteral("OpenCL device %1 of platform %2 '%3' %4")
        .arg(QString::number(device->number), QString::number(device->platform), device->name,
             ruleText(gpu, *device));
}

QString cudaText(const Gpu& gpu) {
    if (gpu.vendor == Gpu::Vendor::Amd)
        return {};
    return gpu.record->deviceIndex < 0
               ? QStringLiteral("no CUDA device and ")
               : QStringLiteral("CUDA device %1 by its bus and ").arg(gpu.record->deviceIndex);
}

/// Whether a GPU has no OpenCL device because the machine has no OpenCL, which another check reports.
bool isOpenCLAbsent(const Facts& facts) {
    return facts.programRun.firstCall("clGetDeviceIDs") == nullptr;
}

/// Whether a platform has more GPUs than the program examines.
bool hasUnseenDevices(const Facts& facts) {
    return std::any_of(facts.openCL.platforms.begin(), facts.openCL.platforms.end(),
                       [&](const OpenCLPlatformFacts& platform) {
                           return platform.reported > facts.openCL.seenOf(platform);
                       });
}

void judgeUnpaired(const Facts& facts, const Gpu& gpu, Findings& findings) {
    const bool isNvidia = gpu.vendor == Gpu::Vendor::Nvidia;
    const bool isOther = isNvidia && gpu.record->kind == GpuType_Other;
    const QString effect = isOther ? QStringLiteral("it is of kind 'Other', not 'Cuda', and gets no score")
                                   : QStringLiteral("it gets no score%1")
                                         .arg(isNvidia ? QString() : QStringLiteral(" and no ray tracing"));
    const QString why = isOpenCLAbsent(facts) ? QStringLiteral("OpenCL offers nothing")
                                              : QStringLiteral("no OpenCL device is on its bus");
    const QString advice =
        isOpenCLAbsent(facts) ? QStringLiteral("see opencl.loader and opencl.platforms for what to do")
        : hasUnseenDevices(facts)
            ? QStringLiteral("see opencl.room: its device may be one that is not looked at")
            : installAdvice(isNvidia ? Package::NvidiaOpenCL : Package::AmdOpenCL,
                            facts.system.distributionId);
    const QString fact =
        QStringLiteral("%1 gets %2no OpenCL device: %3, so %4").arg(gpuText(gpu), cudaText(gpu), why, effect);
    if (isOther)
        findings.failure(fact, advice);
    else
        findings.warning(fact, advice);
}

} // namespace

void judgeProgramRun(const Facts& facts, Findings& findings) {
    const StepOutcome& run = facts.programEnd;
    if (run.isDone() && run.inside.isEmpty()) {
        findings.ok(QStringLiteral("the program's own search finishes, in %1 s").arg(run.seconds, 0, 'f', 2));
        return;
    }
    const QString ending = endingText(run, facts.timeLimit);
    for (const IcdTrial& trial : facts.icds)
        if (!trial.outcome.isDone() && trial.outcome.end == run.end && run.inside.startsWith("cl")) {
            findings.failure(QStringLiteral("the program %1: the OpenCL driver of %2 does that")
                                 .arg(ending, trial.icd.path),
                             leaveOutAdvice(trial.icd.path));
            return;
        }
    findings.failure(
        QStringLiteral("the program %1").arg(ending),
        QStringLiteral("the call names the driver; to show the developers this machine: --record FILE"));
}

void judgePairing(const Facts& facts, Findings& findings) {
    const auto gpus = gpusOf(facts);
    for (const Gpu& gpu : gpus) {
        if (gpu.record == nullptr)
            continue;
        findings.on(gpu.address);
        if (!facts.sleepingCard.isEmpty())
            findings.skipped(QStringLiteral("%1 gets %2an OpenCL device that was not looked for")
                                 .arg(gpuText(gpu), cudaText(gpu)));
        else if (gpu.record->openCLDevice.isEmpty())
            judgeUnpaired(facts, gpu, findings);
        else
            findings.ok(
                QStringLiteral("%1 gets %2%3").arg(gpuText(gpu), cudaText(gpu), openCLText(facts, gpu)));
    }
    findings.on({});
    if (findings.isEmpty() && !facts.programEnd.isDone())
        findings.skipped(QStringLiteral("the program does not get that far"));
    else if (findings.isEmpty())
        findings.ok(QStringLiteral("there is no GPU to pair"));
}

void judgeBuses(const Facts& facts, Findings& findings) {
    const QVector<Gpu> gpus = gpusOf(facts);
    const auto busOf = [](const Gpu& gpu) { return gpu.address.section(':', 1, 1); };
    QStringList judged;
    for (const Gpu& gpu : gpus) {
        const QString bus = busOf(gpu);
        QStringList addresses;
        for (const Gpu& other : gpus)
            if (other.vendor == gpu.vendor && other.record != nullptr && busOf(other) == bus &&
                !bus.isEmpty())
                addresses.append(other.address);
        const QString mark = QString::number(static_cast<int>(gpu.vendor)) + bus;
        if (addresses.size() < 2 || judged.contains(mark))
            continue;
        judged.append(mark);
        findings.on("bus 0x" + bus);
        findings.failure(
            QStringLiteral("%1 GPUs are on buses of equal number (%2): only one of them is listed, and "
                           "all get the first device on that bus")
                .arg(QString::number(addresses.size()), addresses.join(", ")),
            QStringLiteral("give the virtual machine's GPUs different bus numbers, or run one program "
                           "per GPU with CUDA_VISIBLE_DEVICES or a container"));
    }
    if (findings.isEmpty())
        findings.ok(QStringLiteral("no two GPUs of a vendor are on buses of equal number"));
}

void judgeListing(const Facts& facts, Findings& findings) {
    const QVector<Gpu> gpus = gpusOf(facts);
    for (const Gpu& gpu : gpus) {
        if (!gpu.counts || gpu.isListed)
            continue;
        findings.on(gpu.address.isEmpty() ? gpu.name : gpu.address);
        findings.failure(QStringLiteral("%1 is not listed: %2").arg(gpuText(gpu), gpu.whyNotListed),
                         gpu.seeCheck.isEmpty() ? QStringLiteral("the list's format has no place for it")
                                                : QStringLiteral("see %1 for what to do").arg(gpu.seeCheck));
    }
    const GpuCount count = countGpus(gpus);
    findings.on({});
    if (findings.isEmpty())
        findings.ok(count.installed == 0
                        ? QStringLiteral("there is no GPU to list")
                        : QStringLiteral("all %1 installed GPU(s) are listed").arg(count.installed));
}

} // namespace doctor
