// answers.*
#include <algorithm>

#include "doctor/checks/checks.h"
#include "doctor/facts/Gpus.h"
#include "doctor/facts/endingText.h"
#include "gpu/GpuDevice.h"

namespace doctor {

namespace {

const AnswerTrial* trialOf(const Facts& facts, const char* option) {
    const auto found =
        std::find_if(facts.answers.begin(), facts.answers.end(),
                     [&](const AnswerTrial& trial) { return trial.option == QLatin1String(option); });
    return found != facts.answers.end() ? &*found : nullptr;
}

/// The first listed GPU that the query is about, in words; empty without one.
template <class Matches>
QString listedGpu(const Facts& facts, Matches matches) {
    for (const RecordFacts& record : facts.programRun.records)
        if (record.isListed && matches(record))
            return QStringLiteral("GPU '%1'").arg(QString::fromUtf8(record.name.toLatin1()));
    return {};
}

/// Why there is no run to judge: a sleeping card, or a program that can't be started.
bool isNotAsked(const Facts& facts, Findings& findings, const AnswerTrial* trial) {
    if (!facts.sleepingCard.isEmpty()) {
        findings.skipped(QStringLiteral("the program would wake the GPU at %1").arg(facts.sleepingCard),
                         QStringLiteral("to ask it all the same: --wake"));
        return true;
    }
    if (trial != nullptr && trial->cannot().isEmpty())
        return false;
    findings.skipped(QStringLiteral("%1 can't be started: %2")
                         .arg(facts.program, trial != nullptr ? trial->cannot() : QString()),
                     QStringLiteral("install the program beside qzGpuDoctor"));
    return true;
}

/// Why a run gave no answer; empty if it gave one.
QString whyNoAnswer(const StepOutcome& outcome, const QString& asked, double timeLimit) {
    if (outcome.end == StepOutcome::End::Crashed)
        return QStringLiteral("%1 crashes (%2): a shell shows exit code %3")
            .arg(asked, signalName(outcome.code))
            .arg(128 + outcome.code);
    if (outcome.end == StepOutcome::End::TimedOut)
        return QStringLiteral("%1 does not end within %2 s").arg(asked).arg(timeLimit);
    if (outcome.code != 0 && outcome.code != 1)
        return QStringLiteral("%1 ends with exit code %2, which is not an answer")
            .arg(asked, QString::number(outcome.code));
    return {};
}

/// Judges one run. `decided`: the fact that makes the answer 1, `otherwise`: the one that makes it 0.
void judgeAnswer(const Facts& facts, Findings& findings, const char* option, const QString& decided,
                 const QString& otherwise) {
    const AnswerTrial* trial = trialOf(facts, option);
    if (isNotAsked(facts, findings, trial))
        return;
    const StepOutcome& outcome = trial->outcome;
    const QString asked = QStringLiteral("qzGpuInfo %1").arg(QLatin1String(option));
    const QString wrong = whyNoAnswer(outcome, asked, facts.timeLimit);
    if (!wrong.isEmpty()) {
        findings.failure(wrong, QStringLiteral("see pairing.run for the call"));
        return;
    }
    const QString reason = facts.programEnd.isDone() ? (outcome.code != 0 ? decided : otherwise) : QString();
    const QString fact = QStringLiteral("%1 answers %2%3")
                             .arg(asked, QString::number(outcome.code),
                                  reason.isEmpty() ? QString() : QStringLiteral(": %1").arg(reason));
    const bool isExpected = !facts.programEnd.isDone() || (outcome.code != 0) == !decided.isEmpty();
    if (isExpected)
        findings.ok(fact);
    else
        findings.warning(fact + QStringLiteral("; its calls, made by the doctor, gave another answer"),
                         QStringLiteral("ask again: a driver that answers now this, now that is at fault"));
}

QString noneOf(const Facts& facts, Gpu::Vendor vendor, const char* name) {
    const GpuCount count = countGpus(gpusOf(facts), vendor);
    return count.listed > 0
               ? QString()
               : QStringLiteral("no %1 GPU is listed%2")
                     .arg(QLatin1String(name),
                          count.installed > 0
                              ? QStringLiteral(", though %1 installed")
                                    .arg(count.installed == 1 ? QStringLiteral("one is")
                                                              : QStringLiteral("%1 are").arg(count.installed))
                              : QString());
}

} // namespace

void judgeQueryGpu(const Facts& facts, Findings& findings) {
    const QString first = listedGpu(facts, [](const RecordFacts&) { return true; });
    judgeAnswer(facts, findings, "-queryGPU",
                first.isEmpty() ? first : QStringLiteral("%1 is listed").arg(first),
                QStringLiteral("no GPU is listed"));
}

void judgeQueryNvCuda(const Facts& facts, Findings& findings) {
    const QString first =
        listedGpu(facts, [](const RecordFacts& record) { return record.kind == GpuType_Cuda; });
    const QString none = noneOf(facts, Gpu::Vendor::Nvidia, "NVIDIA");
    judgeAnswer(facts, findings, "-queryNvCuda",
                first.isEmpty() ? first : QStringLiteral("%1 is of kind 'Cuda'").arg(first),
                none.isEmpty()
                    ? QStringLiteral("the NVIDIA GPUs are of kind 'Other', since OpenCL has no platform")
                    : none);
}

void judgeQueryNvOptix(const Facts& facts, Findings& findings) {
    const QString first = listedGpu(facts, [](const RecordFacts& record) { return record.optixCapable; });
    const QString none = noneOf(facts, Gpu::Vendor::Nvidia, "NVIDIA");
    judgeAnswer(facts, findings, "-queryNvOptix",
                first.isEmpty() ? first : QStringLiteral("%1 has compute capability 7.5 or newer").arg(first),
                none.isEmpty() ? QStringLiteral("no listed NVIDIA GPU has compute capability 7.5 or newer")
                               : none);
}

void judgeQueryAmdRt(const Facts& facts, Findings& findings) {
    const QString first = listedGpu(facts, [](const RecordFacts& record) { return record.amdRayTracing; });
    const QString none = noneOf(facts, Gpu::Vendor::Amd, "AMD");
    judgeAnswer(facts, findings, "-queryAmdRt",
                first.isEmpty() ? first
                                : QStringLiteral("%1's OpenCL device offers cl_khr_ray_tracing").arg(first),
                none.isEmpty() ? QStringLiteral("no listed AMD GPU's OpenCL device offers cl_khr_ray_tracing")
                               : none);
}

void judgeScore(const Facts& facts, Findings& findings) {
    const QString cost = QStringLiteral("the benchmark itself was not run");
    if (!facts.programEnd.isDone()) {
        findings.skipped(QStringLiteral("%1, since the program's own search does not finish").arg(cost));
        return;
    }
    const RecordFacts* first = nullptr;
    for (const RecordFacts& record : facts.programRun.records)
        if (record.isListed && first == nullptr)
            first = &record;
    if (first == nullptr)
        findings.ok(QStringLiteral("without a listed GPU there is no score, and the answer is 0"));
    else if (!facts.sleepingCard.isEmpty())
        findings.skipped(QStringLiteral("%1: it would wake the GPU at %2").arg(cost, facts.sleepingCard));
    else if (first->openCLDevice.isEmpty())
        findings.warning(QStringLiteral("the first GPU, '%1', has no OpenCL device, so the answer is 0")
                             .arg(QString::fromUtf8(first->name.toLatin1())),
                         QStringLiteral("pairing.gpus says why and what to do"));
    else
        findings.ok(QStringLiteral("the first GPU, '%1', has an OpenCL device to be measured on; %2")
                        .arg(QString::fromUtf8(first->name.toLatin1()), cost));
}

} // namespace doctor
