#include "doctor/recording/describeMachine.h"

#include <algorithm>
#include <csignal>

#include "doctor/facts/Gpus.h"
#include "doctor/facts/endingText.h"
#include "doctor/recording/describeParts.h"
#include "doctor/steps/Message.h"
#include "support/readSmallTextFile.h"

namespace doctor {

namespace {

/// The last call of a run that did not finish; null if it ended outside of any call.
const NumberedCall* lastCall(const NumberedCalls& calls) {
    return calls.all().isEmpty() || calls.all().last().call->returned ? nullptr : &calls.all().last();
}

QByteArray endAction(const StepOutcome& outcome) {
    switch (outcome.end) {
    case StepOutcome::End::Crashed:
        return outcome.code == SIGSEGV ? "crash" : "signal " + QByteArray::number(outcome.code);
    case StepOutcome::End::Exited:
        return "exit " + QByteArray::number(outcome.code);
    default:
        return "hang";
    }
}

/// A library that is still open when the process ends; else one that was.
QString libraryAtExit(const NumberedCalls& calls) {
    QStringList open;
    QString last;
    for (const NumberedCall& one : calls.all()) {
        if (!one.call->returned || one.call->status != 0)
            continue;
        if (one.call->name.startsWith("open "))
            open.append(last = one.target);
        if (one.call->name.startsWith("close "))
            open.removeAll(one.call->argument("library"));
    }
    return open.isEmpty() ? last : open.last();
}

void describeEnd(DescriptionText& text, const NumberedCalls& calls, const StepOutcome& outcome) {
    const NumberedCall* last = lastCall(calls);
    if (last == nullptr || outcome.isDone())
        return;
    const QByteArray at = last->number > 1 ? "at " + QByteArray::number(last->number) : QByteArray();
    if (last->call->name.startsWith("close "))
        text.fault(last->call->argument("library"), "crash-at-unload");
    else if (last->call->name == QLatin1String("exit"))
        text.fault(libraryAtExit(calls), "crash-at-exit");
    else if (!last->target.isEmpty())
        text.fault(faultTarget(*last), endAction(outcome), at);
}

void describeDistribution(DescriptionText& text, const Places& places) {
    const QByteArray osRelease = readSmallTextFile(places.osRelease());
    text.section("os-release");
    if (osRelease.isNull()) {
        text.value("missing", "yes");
        return;
    }
    // The program does not read the other lines, and they may contain what a report should not.
    QByteArray kept;
    const QList<QByteArray> lines = osRelease.split('\n');
    for (const QByteArray& line : lines)
        if (line.startsWith("ID=") || line.startsWith("PRETTY_NAME="))
            kept += line + '\n';
    text.value("text", quotedValue(kept));
}

void describeHead(DescriptionText& text, const Facts& facts, const RecordingSettings& settings) {
    const GpuCount nvidia = countGpus(gpusOf(facts), Gpu::Vendor::Nvidia);
    const GpuCount amd = countGpus(gpusOf(facts), Gpu::Vendor::Amd);
    text.comment("A machine as qzGpuDoctor recorded it.");
    text.comment(settings.withIdentifiers
                     ? "Left out: serial numbers, the machine's name, its users."
                     : "Left out: the GPUs' UUIDs, serial numbers, the machine's name, its users.");
    if (!facts.programEnd.isDone())
        text.comment("The program " + endingText(facts.programEnd, facts.timeLimit).section(';', 0, 0) + ".");
    text.section("machine");
    text.value("summary", QStringLiteral("recorded: %1 NVIDIA and %2 AMD GPU(s), %3 listed")
                              .arg(nvidia.installed)
                              .arg(amd.installed)
                              .arg(nvidia.listed + amd.listed)
                              .toUtf8());
}

/// The expected results of a replay: the answers, how a run ended, and those problems that come from the
/// drivers, not from the machine around them.
void describeExpectations(DescriptionText& text, const Facts& facts, const QVector<Finding>& findings) {
    QStringList queries;
    for (const AnswerTrial& trial : facts.answers)
        if (trial.outcome.end == StepOutcome::End::Exited && trial.outcome.code == 1)
            queries.append(trial.option.mid(1));
    QStringList problems;
    for (const Finding& finding : findings)
        for (const char* group : {"nvidia.", "amd.", "pairing."})
            if (finding.verdict >= Verdict::Warning && finding.check.startsWith(QLatin1String(group)))
                problems.append(finding.check);
    problems.removeDuplicates();
    text.section("expected");
    if (!queries.isEmpty())
        text.value("queries", queries.join(", ").toUtf8());
    if (!problems.isEmpty())
        text.value("problems", problems.join(", ").toUtf8());
    const StepOutcome& run = facts.programEnd;
    if (run.end == StepOutcome::End::TimedOut)
        text.value("exit_code", "none");
    else if (run.end == StepOutcome::End::Crashed || (run.end == StepOutcome::End::Exited && run.code != 0))
        text.value("exit_code", (run.end == StepOutcome::End::Crashed ? 128 : 0) + run.code);
}

/// The library of a call's file name, as the description's keys name it: the first that opened.
QByteArray openedOf(const Facts& facts, const QStringList& names) {
    for (const CallFacts& call : facts.programRun.calls)
        if (call.name.startsWith("open ") && names.contains(call.argument("library")) &&
            (!call.returned || call.status == 0))
            return call.argument("library").toUtf8();
    return "none";
}

/// The major version in a runtime's soname; empty for an unknown one.
QByteArray majorOf(const QString& soname) {
    for (const char* major : {"13", "12", "11"})
        if (soname.startsWith(QStringLiteral("libcudart.so.%1").arg(QLatin1String(major))))
            return major;
    return {};
}

} // namespace

void describeLibraries(DescriptionText& text, const Facts& facts) {
    text.section("libraries");
    text.value("nvml", openedOf(facts, {"libnvidia-ml.so.1", "libnvidia-ml.so"}));
    QByteArray runtimes;
    QByteArray plain;
    for (const CallFacts& call : facts.programRun.calls) {
        const QString library = call.argument("library");
        if (!call.name.startsWith("open libcudart") || (call.returned && call.status != 0))
            continue;
        // A library whose opening did not return has no soname; its name is used.
        const QByteArray major = majorOf(call.returned ? call.text("soname") : library);
        if (library == QLatin1String("libcudart.so"))
            plain = major;
        else if (!major.isEmpty())
            runtimes += (runtimes.isEmpty() ? "" : ", ") + major;
    }
    text.value("cudart", runtimes.isEmpty() ? QByteArray("none") : runtimes);
    if (!plain.isEmpty())
        text.value("cudart_plain", plain);
    text.value("cuda", openedOf(facts, {"libcuda.so.1"}) == "none" ? "no" : "yes");
    text.value("opencl", openedOf(facts, {"libOpenCL.so.1", "libOpenCL.so"}));
    // Each provider looks again for a library that the previous one did not find.
    const QVector<QJsonObject> missing = facts.programEnd.reported("missing");
    for (auto message = missing.cbegin(); message != missing.cend(); ++message)
        if (std::find(missing.cbegin(), message, *message) == message)
            text.fault(message->value("library").toString(),
                       "omit " + message->value("symbol").toString().toUtf8());
}

void describeEvents(DescriptionText& text, const NumberedCalls& calls, const StepOutcome& outcome) {
    constexpr double slowSeconds = 1.0;
    for (const NumberedCall& one : calls.all()) {
        if (one.target.isEmpty() || one.call->name.startsWith("close "))
            continue;
        const QByteArray at = "at " + QByteArray::number(one.number);
        if (!one.call->printed.isEmpty() && !one.call->name.startsWith("read "))
            text.fault(faultTarget(one), "print " + quotedValue(one.call->printed), at);
        if (one.call->returned && one.call->number("seconds") >= slowSeconds)
            text.fault(faultTarget(one),
                       "delay " + QByteArray::number(qRound(one.call->number("seconds") * 1000.0)), at);
    }
    describeEnd(text, calls, outcome);
}

QByteArray describeMachine(const Facts& facts, const QVector<Finding>& findings,
                           const RecordingSettings& settings) {
    const NumberedCalls calls(facts.programRun.calls);
    DescriptionText text;
    describeHead(text, facts, settings);
    describeExpectations(text, facts, findings);
    describeDistribution(text, settings.places);
    describeLibraries(text, facts);
    describeNvml(text, calls);
    describeCuda(text, calls, facts);
    describeCards(text, calls, settings.places);
    describeOpenCL(text, calls);
    describeEvents(text, calls, facts.programEnd);
    return text.whole();
}

} // namespace doctor
