#include "doctor/facts/endingText.h"

#include <csignal>
#include <cstring>

#include "doctor/facts/ProgramFacts.h"

namespace doctor {

namespace {

struct CallInWords {
    const char* call;
    const char* when;
};

constexpr CallInWords callsInWords[] = {
    {"nvmlInit_v2", "when it is initialised"},
    {"nvmlShutdown", "when it is shut down"},
    {"nvmlDeviceGetCount_v2", "when its GPUs are counted"},
    {"nvmlDeviceGetHandleByIndex_v2", "when a GPU is opened"},
    {"cuInit", "when it is initialised"},
    {"cudaGetDeviceCount", "when its devices are counted"},
    {"clGetPlatformIDs", "when its platforms are listed"},
    {"clGetPlatformInfo", "when a platform is asked for its name"},
    {"clGetDeviceIDs", "when its devices are listed"},
    {"clGetDeviceInfo", "when a device is asked for its properties"},
};

/// What was printed during the call that did not return, else anything printed.
QByteArray lastWords(const StepOutcome& outcome) {
    const QVector<CallFacts> calls = callsOf(outcome.messages);
    return calls.isEmpty() || calls.last().returned ? QByteArray() : calls.last().printed;
}

} // namespace

QString whenText(const QString& call) {
    if (call.isEmpty())
        return {};
    for (const CallInWords& known : callsInWords)
        if (call == QLatin1String(known.call))
            return QStringLiteral("%1 (%2)").arg(QLatin1String(known.when), call);
    if (call.startsWith("open "))
        return QStringLiteral("when %1 is opened").arg(call.mid(5));
    if (call.startsWith("close "))
        return QStringLiteral("when %1 is closed").arg(call.mid(6));
    if (call.startsWith("read "))
        return QStringLiteral("when %1 is read").arg(call.mid(5));
    if (call == QLatin1String("exit"))
        return QStringLiteral("when the process ends");
    return QStringLiteral("in %1").arg(call);
}

QString signalName(int signal) {
    const char* name = ::sigabbrev_np(signal);
    return name != nullptr ? QStringLiteral("SIG%1").arg(QLatin1String(name))
                           : QStringLiteral("signal %1").arg(signal);
}

QString quoted(const QByteArray& printed) {
    constexpr int most = 160;
    QString text = QString::fromUtf8(printed).simplified();
    if (text.size() > most)
        text = text.left(most) + QStringLiteral("…");
    return '"' + text + '"';
}

QString endingText(const StepOutcome& outcome, double timeLimit) {
    QString text;
    switch (outcome.end) {
    case StepOutcome::End::NotRun:
        return QStringLiteral("could not be tried: no process could be started");
    case StepOutcome::End::Done:
        return QStringLiteral("is well");
    case StepOutcome::End::Exited:
        text = QStringLiteral("ends the process (exit status %1)").arg(outcome.code);
        break;
    case StepOutcome::End::Crashed:
        text = QStringLiteral("crashes (%1)").arg(signalName(outcome.code));
        break;
    case StepOutcome::End::TimedOut:
        text = QStringLiteral("does not return within %1 s").arg(timeLimit);
        break;
    }
    if (!outcome.inside.isEmpty())
        text += ' ' + whenText(outcome.inside);
    if (outcome.survived)
        text += QStringLiteral("; process %1 can't be killed (state %2) and was left")
                    .arg(outcome.pid)
                    .arg(QLatin1Char(outcome.state));
    const QByteArray printed = lastWords(outcome);
    if (!printed.trimmed().isEmpty())
        text += QStringLiteral("; it printed %1").arg(quoted(printed));
    return text;
}

} // namespace doctor
