// opencl.*
#include <algorithm>

#include <QFileInfo>

#include "doctor/checks/advice.h"
#include "doctor/checks/checks.h"
#include "doctor/facts/Gpus.h"
#include "doctor/facts/endingText.h"
#include "opencl/OpenCLDevices.h"
#include "opencl/errorName.h"

namespace doctor {

namespace {

bool isAsleep(const Facts& facts, Findings& findings) {
    if (facts.sleepingCard.isEmpty())
        return false;
    findings.skipped(QStringLiteral("OpenCL's drivers would wake the GPU at %1").arg(facts.sleepingCard),
                     QStringLiteral("to examine it all the same: --wake"));
    return true;
}

bool hasGpus(const Facts& facts) {
    return std::any_of(facts.pci.begin(), facts.pci.end(),
                       [](const PciDevice& device) {
                           return device.vendor == pciVendorNvidia || device.vendor == pciVendorAmd;
                       }) ||
           countGpus(gpusOf(facts)).installed > 0;
}

/// Why opening a library failed, from a step's calls.
QString openFailure(const StepOutcome& outcome) {
    const auto calls = callsOf(outcome.messages);
    for (const CallFacts& call : calls)
        if (call.name.startsWith("open ") && call.returned && call.status != 0)
            return call.text("reason");
    return {};
}

/// Whether one of the trials ended badly; `found` is set to it.
const IcdTrial* badTrial(const Facts& facts) {
    const auto found = std::find_if(facts.icds.begin(), facts.icds.end(), [](const IcdTrial& trial) {
        return !trial.outcome.isDone() && trial.outcome.end != StepOutcome::End::NotRun;
    });
    return found != facts.icds.end() ? &*found : nullptr;
}

QString answersText(const OpenCLDeviceFacts& device) {
    QStringList parts;
    for (const BusAnswer& answer : device.answers)
        parts.append(answer.status == 0
                         ? QStringLiteral("%1 0x%2").arg(answer.attribute, QString::number(answer.bus, 16))
                         : QStringLiteral("%1 not").arg(answer.attribute));
    return parts.join(", ");
}

/// Judges a driver whose library was opened by what it offers.
void judgeOffer(const IcdTrial& trial, Findings& findings) {
    const QString& file = trial.icd.path;
    QStringList platforms;
    for (const OpenCLPlatformFacts& platform : trial.openCL.platforms)
        platforms.append(QStringLiteral("'%1' with %2 GPU(s)").arg(platform.name).arg(platform.reported));
    const QString printed = trial.outcome.output().trimmed().isEmpty()
                                ? QString()
                                : QStringLiteral("; it prints %1").arg(quoted(trial.outcome.output()));
    if (platforms.isEmpty())
        findings.note(QStringLiteral("%1 (%2) offers no platform%3").arg(file, trial.icd.library, printed));
    else if (!printed.isEmpty())
        findings.note(QStringLiteral("%1 (%2) offers %3%4")
                          .arg(file, trial.icd.library, platforms.join(", "), printed));
    else
        findings.ok(QStringLiteral("%1 (%2) offers %3").arg(file, trial.icd.library, platforms.join(", ")));
}

void judgeIcd(const IcdTrial& trial, double timeLimit, Findings& findings) {
    const QString& file = trial.icd.path;
    findings.on(file);
    if (trial.icd.library.isEmpty()) {
        findings.warning(QStringLiteral("%1 names no library").arg(file), leaveOutAdvice(file));
        return;
    }
    if (!trial.outcome.isDone()) {
        findings.failure(
            QStringLiteral("the OpenCL driver of %1 %2").arg(file, endingText(trial.outcome, timeLimit)),
            leaveOutAdvice(file));
        return;
    }
    const QVector<CallFacts> calls = callsOf(trial.outcome.messages);
    if (!calls.isEmpty() && calls.first().status != 0) {
        findings.warning(QStringLiteral("%1 names %2, which can't be opened: %3")
                             .arg(file, trial.icd.library, calls.first().text("reason")),
                         QStringLiteral("install or repair the package that the file belongs to; %1")
                             .arg(leaveOutAdvice(file)));
        return;
    }
    judgeOffer(trial, findings);
}

void judgePlatform(const OpenCLPlatformFacts& platform, Findings& findings) {
    findings.on(QStringLiteral("platform %1").arg(platform.number));
    const QString name =
        QStringLiteral("platform %1 '%2'").arg(QString::number(platform.number), platform.name);
    if (platform.reported > 0)
        findings.ok(QStringLiteral("%1 has %2 GPU(s)").arg(name).arg(platform.reported));
    else if (platform.otherDevices > 0)
        findings.ok(QStringLiteral("%1 has no GPU, %2 other device(s)").arg(name).arg(platform.otherDevices));
    else
        findings.note(
            QStringLiteral("%1 has no device (%2)").arg(name, QLatin1String(errorName(platform.status))),
            platform.name.contains("rusticl", Qt::CaseInsensitive)
                ? QStringLiteral("Mesa's rusticl offers GPUs only with RUSTICL_ENABLE=radeonsi")
                : QString());
}

} // namespace

void judgeOpenCLLoader(const Facts& facts, Findings& findings) {
    if (isAsleep(facts, findings))
        return;
    const QString advice = installAdvice(Package::OpenCLLoader, facts.system.distributionId);
    if (!facts.openCL.library.file.isEmpty()) {
        findings.ok(QStringLiteral("the loader is %1").arg(facts.openCL.library.file));
        return;
    }
    if (!facts.openCLEnd.isDone()) {
        const QString ending = endingText(facts.openCLEnd, facts.timeLimit);
        if (badTrial(facts) != nullptr)
            findings.note(QStringLiteral("with all of its drivers the loader %1; opencl.icd names the driver")
                              .arg(ending));
        else
            findings.failure(QStringLiteral("with all of its drivers the loader %1").arg(ending), advice);
        return;
    }
    QStringList missing;
    const auto entries = facts.openCLEnd.reported("missing");
    for (const QJsonObject& message : entries)
        missing.append(message.value("symbol").toString());
    const bool opened =
        std::any_of(facts.openCLEnd.messages.begin(), facts.openCLEnd.messages.end(),
                    [](const Message& message) { return message.content.contains("soname"); });
    const QString fact = opened
                             ? QStringLiteral("the OpenCL loader lacks functions that the program needs: %1")
                                   .arg(missing.join(", "))
                             : QStringLiteral("there is no OpenCL loader (libOpenCL.so.1): %1")
                                   .arg(openFailure(facts.openCLEnd));
    if (hasGpus(facts))
        findings.failure(fact + QStringLiteral("; no GPU gets a score, and NVIDIA's are of kind 'Other'"),
                         advice);
    else
        findings.note(fact);
}

void judgeIcdFiles(const Facts& facts, Findings& findings) {
    if (isAsleep(facts, findings))
        return;
    for (const IcdTrial& trial : facts.icds)
        judgeIcd(trial, facts.timeLimit, findings);
    if (findings.isEmpty())
        findings.ok(QStringLiteral("no OpenCL driver is registered"));
}

void judgePlatforms(const Facts& facts, Findings& findings) {
    if (isAsleep(facts, findings))
        return;
    if (facts.openCL.library.file.isEmpty()) {
        findings.skipped(QStringLiteral("the platforms could not be listed"));
        return;
    }
    for (const OpenCLPlatformFacts& platform : facts.openCL.platforms)
        judgePlatform(platform, findings);
    if (!findings.isEmpty())
        return;
    const GpuCount nvidia = countGpus(gpusOf(facts), Gpu::Vendor::Nvidia);
    const QString fact = QStringLiteral("the loader knows no OpenCL driver");
    if (!hasGpus(facts))
        findings.note(fact);
    else
        findings.failure(fact + QStringLiteral("; no GPU gets a score, and NVIDIA's are of kind 'Other'"),
                         installAdvice(nvidia.installed > 0 ? Package::NvidiaOpenCL : Package::AmdOpenCL,
                                       facts.system.distributionId));
}

void judgeOpenCLDevices(const Facts& facts, Findings& findings) {
    if (isAsleep(facts, findings))
        return;
    for (const OpenCLDeviceFacts& device : facts.openCL.devices) {
        findings.on(QStringLiteral("platform %1 device %2").arg(device.platform).arg(device.number));
        findings.ok(QStringLiteral("device %1 of platform %2, '%3', reports its bus by: %4")
                        .arg(QString::number(device.number), QString::number(device.platform), device.name,
                             answersText(device)));
    }
    if (findings.isEmpty())
        findings.ok(QStringLiteral("OpenCL has no GPU"));
}

void judgeOpenCLRoom(const Facts& facts, Findings& findings) {
    if (isAsleep(facts, findings))
        return;
    const auto platformsSeen = static_cast<quint32>(facts.openCL.platforms.size());
    if (facts.openCL.library.reportedPlatforms > platformsSeen)
        findings.warning(QStringLiteral("the loader counts %1 platforms; the program looks at %2")
                             .arg(facts.openCL.library.reportedPlatforms)
                             .arg(platformsSeen),
                         QStringLiteral("remove .icd files that are not needed"));
    for (const OpenCLPlatformFacts& platform : facts.openCL.platforms) {
        const quint32 seen = facts.openCL.seenOf(platform);
        findings.on(QStringLiteral("platform %1").arg(platform.number));
        if (platform.reported > seen)
            findings.warning(QStringLiteral("platform '%1' counts %2 GPUs; the program looks at %3")
                                 .arg(platform.name)
                                 .arg(platform.reported)
                                 .arg(seen),
                             QStringLiteral("GPUs beyond those are listed without a score"));
    }
    if (findings.isEmpty())
        findings.ok(QStringLiteral("the program looks at every platform and device"));
}

} // namespace doctor
