// nvidia.*, but for CUDA.
#include <algorithm>

#include "doctor/checks/advice.h"
#include "doctor/checks/checks.h"
#include "doctor/facts/Gpus.h"
#include "doctor/facts/endingText.h"

namespace doctor {

namespace {

constexpr int statusNotSupported = 3;
constexpr int statusVersionMismatch = 18;

bool hasNvidia(const Facts& facts) {
    return std::any_of(facts.pci.begin(), facts.pci.end(),
                       [](const PciDevice& device) { return device.vendor == pciVendorNvidia; });
}

/// What to do about an NVML status.
QString statusAdvice(int status, const Facts& facts) {
    switch (status) {
    case 4:
        return QStringLiteral("see system.devices for who may open the device nodes");
    case 9:
        return QStringLiteral(
            "load the kernel module: sudo modprobe nvidia; where it does not load, see dmesg");
    case 15:
        return QStringLiteral(
            "the GPU has fallen off the bus: see dmesg for \"NVRM: Xid 79\", check its power and "
            "seat, and reboot");
    case 16:
        return QStringLiteral("reset it: sudo nvidia-smi --gpu-reset, or reboot");
    case statusVersionMismatch:
        return QStringLiteral(
            "the driver was updated under the running system: reboot, or unload and load the "
            "module: sudo modprobe -r nvidia_uvm nvidia && sudo modprobe nvidia");
    default:
        return QStringLiteral("see dmesg for what the kernel driver says, and %1 again if nothing helps")
            .arg(installAdvice(Package::NvidiaDriver, facts.system.distributionId));
    }
}

/// Reports that the machine has nothing of NVIDIA, as ok or skipped.
bool judgedAbsent(const Facts& facts, Findings& findings) {
    if (hasNvidia(facts) || facts.programRun.hasOpened("nvidia-ml"))
        return false;
    findings.ok(QStringLiteral("there is no NVIDIA GPU and no driver of NVIDIA's"));
    return true;
}

/// Reports what was not examined because the program's run did not get that far.
bool judgedUnreached(const Facts& facts, const char* what, const char* reached, Findings& findings) {
    if (facts.programRun.firstCall(QLatin1String(reached)) != nullptr)
        return false;
    findings.skipped(QStringLiteral("%1: NVML does not get that far").arg(QLatin1String(what)));
    return true;
}

QString deviceName(const NvmlDeviceFacts& device) {
    const QString name = QString::fromUtf8(device.name.toLatin1());
    return QStringLiteral("GPU %1%2%3")
        .arg(QString::number(device.index), name.isEmpty() ? QString() : " '" + name + "'",
             device.address.isEmpty() ? QString() : " at " + device.address);
}

} // namespace

void judgeNvidiaModule(const Facts& facts, Findings& findings) {
    if (judgedAbsent(facts, findings))
        return;
    const bool isLoaded = facts.system.modules.contains("nvidia");
    const QString version = facts.system.nvidiaModuleVersion;
    const CallFacts* started = facts.programRun.firstCall("nvmlInit_v2");
    const bool works = started != nullptr && started->returned && started->status == 0;
    if (isLoaded)
        findings.ok(
            version.isEmpty()
                ? QStringLiteral("the kernel module nvidia is loaded; /proc/driver/nvidia/version does not "
                                 "have its version")
                : QStringLiteral("the kernel module nvidia is loaded, version %1").arg(version));
    else if (works || facts.system.wsl)
        findings.note(QStringLiteral("the kernel module nvidia is not visible, though NVML works"));
    else
        findings.failure(QStringLiteral("the kernel module nvidia is not loaded"),
                         QStringLiteral("load it: sudo modprobe nvidia; where there is none, %1")
                             .arg(installAdvice(Package::NvidiaDriver, facts.system.distributionId)));
}

void judgeNvmlLibrary(const Facts& facts, Findings& findings) {
    const ProgramFacts& run = facts.programRun;
    QStringList missing;
    const auto entries = facts.programEnd.reported("missing");
    for (const QJsonObject& message : entries)
        if (message.value("library").toString().contains("nvidia-ml"))
            missing.append(message.value("symbol").toString());
    if (run.hasOpened("nvidia-ml")) {
        if (!missing.isEmpty())
            findings.failure(
                QStringLiteral("NVML lacks functions that the program needs: %1").arg(missing.join(", ")),
                QStringLiteral("the library is no NVML or a very old one; %1")
                    .arg(installAdvice(Package::NvidiaDriver, facts.system.distributionId)));
        else
            findings.ok(QStringLiteral("NVML is %1")
                            .arg(facts.nvml.library.file.isEmpty() ? QStringLiteral("open")
                                                                   : facts.nvml.library.file));
        return;
    }
    const CallFacts* opened = run.firstCall("open libnvidia-ml.so.1");
    if (opened != nullptr && !opened->returned)
        findings.failure(QStringLiteral("NVML %1").arg(endingText(facts.programEnd, facts.timeLimit)),
                         installAdvice(Package::NvidiaDriver, facts.system.distributionId));
    else if (hasNvidia(facts))
        findings.failure(
            QStringLiteral("NVML can't be opened: %1")
                .arg(opened != nullptr ? opened->text("reason") : QStringLiteral("it was not tried")),
            // A container sees the host's modules, but only the libraries in its image or mounted into it.
            facts.system.container.isEmpty() || !facts.system.modules.contains("nvidia")
                ? installAdvice(Package::NvidiaDriver, facts.system.distributionId)
                : QStringLiteral("start the container with NVIDIA's runtime, which gives it the "
                                 "driver's libraries: --gpus all"));
    else
        findings.ok(QStringLiteral("NVML is not installed, and there is no NVIDIA GPU"));
}

void judgeNvmlStart(const Facts& facts, Findings& findings) {
    constexpr double slowSeconds = 1.0;
    if (judgedAbsent(facts, findings) || judgedUnreached(facts, "NVML's start", "nvmlInit_v2", findings))
        return;
    const CallFacts* started = facts.programRun.firstCall("nvmlInit_v2");
    if (!started->returned) {
        findings.failure(QStringLiteral("NVML %1").arg(endingText(facts.programEnd, facts.timeLimit)),
                         QStringLiteral("see dmesg for what the kernel driver says; a reboot often helps"));
        return;
    }
    if (started->status != 0) {
        findings.failure(QStringLiteral("NVML does not start: %1").arg(nvmlStatusName(started->status)),
                         statusAdvice(started->status, facts));
        return;
    }
    const CallFacts* counted = facts.programRun.firstCall("nvmlDeviceGetCount_v2");
    if (counted == nullptr || !counted->returned) {
        findings.failure(QStringLiteral("NVML %1").arg(endingText(facts.programEnd, facts.timeLimit)),
                         statusAdvice(-1, facts));
        return;
    }
    if (counted->status != 0) {
        findings.failure(
            QStringLiteral("NVML does not count its GPUs: %1").arg(nvmlStatusName(counted->status)),
            statusAdvice(counted->status, facts));
        return;
    }
    const double seconds = started->number("seconds");
    const QString fact = QStringLiteral("NVML starts in %1 ms and counts %2 GPU(s)")
                             .arg(seconds * 1000.0, 0, 'f', 0)
                             .arg(counted->number("count"));
    if (seconds > slowSeconds)
        findings.note(fact, QStringLiteral("persistence mode keeps the driver ready: sudo nvidia-smi -pm 1"));
    else
        findings.ok(fact);
}

void judgeNvidiaVersions(const Facts& facts, Findings& findings) {
    if (judgedAbsent(facts, findings))
        return;
    const QString module = facts.system.nvidiaModuleVersion;
    const QString library = facts.nvml.library.driverVersion;
    const CallFacts* started = facts.programRun.firstCall("nvmlInit_v2");
    if (started != nullptr && started->status == statusVersionMismatch)
        findings.failure(QStringLiteral("NVML and the kernel module%1 are of different versions")
                             .arg(module.isEmpty() ? QString() : " (" + module + ")"),
                         statusAdvice(statusVersionMismatch, facts));
    else if (module.isEmpty() || library.isEmpty())
        findings.skipped(
            QStringLiteral("the %1 does not report its version")
                .arg(module.isEmpty() ? QStringLiteral("kernel module") : QStringLiteral("library")));
    else if (module != library)
        findings.failure(QStringLiteral("NVML is of driver %1, the kernel module of %2").arg(library, module),
                         statusAdvice(statusVersionMismatch, facts));
    else
        findings.ok(QStringLiteral("library and kernel module are both of driver %1").arg(module));
}

void judgeNvmlDevices(const Facts& facts, Findings& findings) {
    if (judgedAbsent(facts, findings) ||
        judgedUnreached(facts, "the GPUs", "nvmlDeviceGetHandleByIndex_v2", findings))
        return;
    const QVector<NvmlDeviceFacts> devices = facts.programRun.nvmlDevices();
    for (const NvmlDeviceFacts& device : devices) {
        findings.on(device.address.isEmpty() ? QStringLiteral("GPU %1").arg(device.index) : device.address);
        if (device.handleStatus != 0) {
            findings.failure(QStringLiteral("NVML counts GPU %1 but gives no access to it: %2")
                                 .arg(QString::number(device.index), nvmlStatusName(device.handleStatus)),
                             statusAdvice(device.handleStatus, facts));
            continue;
        }
        const NvmlIdentity* identity = facts.nvml.at(device.address);
        QStringList details;
        if (identity != nullptr && !identity->uuid.isEmpty())
            details.append(identity->uuid);
        if (identity != nullptr && !identity->vbiosVersion.isEmpty())
            details.append("VBIOS " + identity->vbiosVersion);
        if (identity != nullptr && identity->migMode >= 0)
            details.append(identity->migMode != 0 ? QStringLiteral("MIG on") : QStringLiteral("MIG off"));
        const QString fact =
            QStringLiteral("NVML lists %1%2")
                .arg(deviceName(device), details.isEmpty() ? QString() : ": " + details.join(", "));
        if (identity != nullptr && identity->migMode == 1)
            findings.note(
                fact + QStringLiteral("; its load is not reported, and the program uses its first instance"));
        else
            findings.ok(fact);
    }
}

void judgeNvmlQueries(const Facts& facts, Findings& findings) {
    if (judgedAbsent(facts, findings) ||
        judgedUnreached(facts, "the GPUs' figures", "nvmlDeviceGetUtilizationRates", findings))
        return;
    const QVector<NvmlDeviceFacts> devices = facts.programRun.nvmlDevices();
    for (const NvmlDeviceFacts& device : devices) {
        if (device.handleStatus != 0)
            continue;
        findings.on(device.address.isEmpty() ? QStringLiteral("GPU %1").arg(device.index) : device.address);
        bool allAnswered = true;
        for (const QueryFacts& query : device.queries) {
            if (query.status == 0)
                continue;
            allAnswered = false;
            const QString fact = QStringLiteral("%1 does not answer %2: %3")
                                     .arg(deviceName(device), query.function, nvmlStatusName(query.status));
            if (query.status == statusNotSupported)
                findings.note(fact);
            else
                findings.failure(fact, statusAdvice(query.status, facts));
        }
        if (allAnswered)
            findings.ok(QStringLiteral("%1 answers every query").arg(deviceName(device)));
    }
    if (findings.isEmpty())
        findings.ok(QStringLiteral("there is no GPU to ask"));
}

void judgeNvmlEnd(const Facts& facts, Findings& findings) {
    if (judgedAbsent(facts, findings))
        return;
    const CallFacts* ended = facts.programRun.firstCall("nvmlShutdown");
    const CallFacts* started = facts.programRun.firstCall("nvmlInit_v2");
    if (ended == nullptr || started == nullptr || started->status != 0)
        findings.skipped(QStringLiteral("NVML's end: NVML does not get that far"));
    else if (!ended->returned)
        findings.failure(QStringLiteral("NVML %1").arg(endingText(facts.programEnd, facts.timeLimit)),
                         statusAdvice(-1, facts));
    else if (ended->status != 0)
        findings.warning(QStringLiteral("NVML does not shut down: %1").arg(nvmlStatusName(ended->status)),
                         statusAdvice(ended->status, facts));
    else
        findings.ok(QStringLiteral("NVML shuts down in order"));
}

} // namespace doctor
