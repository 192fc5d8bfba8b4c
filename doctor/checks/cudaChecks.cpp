// nvidia.cuda and nvidia.cudaDevices.
#include <algorithm>

#include "doctor/checks/advice.h"
#include "doctor/checks/checks.h"
#include "doctor/facts/Gpus.h"
#include "doctor/facts/endingText.h"

namespace doctor {

namespace {

constexpr int insufficientDriver = 35;

bool asksCuda(const Facts& facts, Findings& findings) {
    const CallFacts* counted = facts.programRun.firstCall("nvmlDeviceGetCount_v2");
    if (counted != nullptr && counted->status == 0 && counted->number("count") > 0)
        return true;
    if (countGpus(gpusOf(facts), Gpu::Vendor::Nvidia).installed > 0)
        findings.skipped(QStringLiteral("CUDA is asked only once NVML has counted a GPU"));
    else
        findings.ok(QStringLiteral("there is no NVIDIA GPU to ask CUDA about"));
    return false;
}

QString triedText(const CudaLibraryFacts& library) {
    if (!library.opened)
        return QStringLiteral("%1 is not there").arg(library.file);
    if (!library.countStatus)
        return QStringLiteral("%1 is of an unknown version").arg(library.file);
    return QStringLiteral("%1 answers %2").arg(library.file, cudaStatusName(*library.countStatus));
}

/// What to do where CUDA answers but lists no device.
QString environmentHint(const Facts& facts) {
    for (const EnvironmentVariable& variable : facts.system.environment)
        if (variable.name == QLatin1String("CUDA_VISIBLE_DEVICES"))
            return QStringLiteral("CUDA_VISIBLE_DEVICES=%1 hides GPUs: unset it where the program is started")
                .arg(variable.value);
    return QStringLiteral(
        "see that /dev/nvidia-uvm is there (sudo nvidia-modprobe -u) and that no container or "
        "variable hides the GPU");
}

} // namespace

void judgeCudaLibrary(const Facts& facts, Findings& findings) {
    if (!asksCuda(facts, findings))
        return;
    const QVector<CudaLibraryFacts> libraries = facts.programRun.cudaLibraries();
    QStringList tried;
    bool isDriverOld = false;
    for (const CudaLibraryFacts& library : libraries) {
        if (library.opened)
            tried.append(triedText(library));
        isDriverOld = isDriverOld || library.countStatus == insufficientDriver;
    }
    const QString answering = facts.programRun.cudaLibrary();
    const QString noDriver = installAdvice(Package::NvidiaDriver, facts.system.distributionId);
    const CallFacts* last = facts.programRun.calls.isEmpty() ? nullptr : &facts.programRun.calls.last();
    if (last != nullptr && !last->returned &&
        (last->name.startsWith("cu") || last->name.startsWith("open libcud")))
        findings.failure(QStringLiteral("CUDA %1").arg(endingText(facts.programEnd, facts.timeLimit)),
                         QStringLiteral("see dmesg for what the kernel driver says; a reboot often helps"));
    else if (answering.isEmpty())
        findings.failure(QStringLiteral("no CUDA library answers, so no NVIDIA GPU is listed: %1")
                             .arg(tried.isEmpty() ? QStringLiteral("none is installed") : tried.join("; ")),
                         tried.isEmpty() ? noDriver
                         : isDriverOld
                             ? QStringLiteral("the CUDA runtime is newer than the driver: %1, or an "
                                              "older CUDA runtime")
                                   .arg(noDriver)
                             : environmentHint(facts));
    else if (isDriverOld)
        findings.note(QStringLiteral("CUDA is answered by %1; before it, %2").arg(answering, tried.first()),
                      QStringLiteral("a newer driver would serve the newer runtime as well"));
    else
        findings.ok(QStringLiteral("CUDA is answered by %1").arg(answering));
}

void judgeCudaDevices(const Facts& facts, Findings& findings) {
    if (!asksCuda(facts, findings))
        return;
    const QVector<CudaDeviceFacts> devices = facts.programRun.cudaDevices();
    for (const CudaDeviceFacts& device : devices) {
        findings.on(QStringLiteral("CUDA device %1").arg(device.number));
        if (device.status != 0)
            findings.failure(QStringLiteral("CUDA device %1 does not report its properties: %2")
                                 .arg(QString::number(device.number), cudaStatusName(device.status)),
                             environmentHint(facts));
        else
            findings.ok(QStringLiteral("CUDA device %1 is on PCI bus 0x%2, compute capability %3.%4")
                            .arg(QString::number(device.number), QString::number(device.bus, 16),
                                 QString::number(device.major), QString::number(device.minor)));
    }
    const QVector<NvmlDeviceFacts> listed = facts.programRun.nvmlDevices();
    for (const NvmlDeviceFacts& gpu : listed) {
        const RecordFacts* record = facts.programRun.nvidiaRecord(gpu.place);
        if (record == nullptr || record->deviceIndex >= 0)
            continue;
        findings.on(gpu.address);
        findings.failure(
            QStringLiteral("NVML lists GPU %1 at %2, but CUDA shows no device on its bus, so it is not "
                           "in the list")
                .arg(QString::number(gpu.index), gpu.address),
            environmentHint(facts));
    }
    if (findings.isEmpty())
        findings.skipped(QStringLiteral("CUDA was not asked for a device"));
}

} // namespace doctor
