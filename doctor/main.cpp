// The doctor's entry point: examines the machine and prints the report.
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <pwd.h>
#include <unistd.h>

#include <QStringList>

#include "doctor/Examination.h"
#include "doctor/Options.h"
#include "doctor/Report.h"
#include "doctor/probes/answersStep.h"
#include "doctor/recording/describeMachine.h"
#include "reader/status/Terminal.h"
#include "reader/status/output.h"
#include "support/standardStreams.h"

namespace doctor {

namespace {

enum ExitCode { Exit_Ok = 0, Exit_Warnings = 1, Exit_Failures = 2, Exit_Usage = 3, Exit_Output = 4 };

void complain(const QString& text) {
    std::fprintf(stderr, "qzGpuDoctor: %s\n", text.toUtf8().constData());
}

/// Writes to the file, or to standard output. False, after a message, when it can't.
bool putOut(const QString& file, const QByteArray& text, unsigned mode = 0644) {
    const std::string_view bytes(text.constData(), static_cast<std::size_t>(text.size()));
    if (!file.isEmpty()) {
        const std::string error = qzstatus::replaceFile(file.toLocal8Bit().toStdString(), bytes, mode);
        if (!error.empty())
            complain(QString::fromStdString(error));
        return error.empty();
    }
    const int error = qzstatus::writeAll(STDOUT_FILENO, bytes);
    // A reader that stops early (`| head`) is not an error.
    if (error != 0 && error != EPIPE)
        complain(QStringLiteral("cannot write standard output: %1")
                     .arg(QString::fromLocal8Bit(std::strerror(error))));
    return error == 0;
}

/// Writes the recording with mode 0600, or to standard output, where nothing else may be written then.
bool putRecording(const Options& options, const Report& report) {
    constexpr unsigned ownersOnly = 0600;
    const QByteArray description =
        describeMachine(report.facts, report.findings, {Places(), options.withIdentifiers});
    const bool toStandardOutput = options.record == QLatin1String("-");
    return putOut(toStandardOutput ? QString() : options.record, description, ownersOnly);
}

/// One line that is overwritten, on a terminal only.
void showProgress(const QString& step, std::chrono::milliseconds age) {
    const QString line = QStringLiteral("%1: %2 s").arg(step).arg(age.count() / 1000);
    std::fprintf(stderr, "\r\x1b[K%s", line.toUtf8().constData());
}

void clearProgress() {
    std::fputs("\r\x1b[K", stderr);
}

/// Why that user's rights can't be checked; empty if they can.
QString userProblem(const QString& name) {
    if (name.isEmpty())
        return {};
    const passwd* entry = ::getpwnam(name.toLocal8Bit().constData());
    if (entry == nullptr)
        return QStringLiteral("there is no user '%1'").arg(name);
    return ::geteuid() == 0 || entry->pw_uid == ::geteuid()
               ? QString()
               : QStringLiteral("--user takes another user only as root");
}

QByteArray formed(const Report& report, const Options& options) {
    switch (options.form) {
    case Form::Json:
        return jsonForm(report);
    case Form::Prometheus:
        return prometheusForm(report);
    default:
        break;
    }
    constexpr int usualColumns = 100;
    const bool onTerminal = options.output.isEmpty() && ::isatty(STDOUT_FILENO) != 0;
    const int columns = onTerminal ? qzstatus::terminalSize(STDOUT_FILENO).columns : 0;
    const char* noColour = std::getenv("NO_COLOR");
    return textForm(report, columns > 0 ? columns : usualColumns,
                    onTerminal && (noColour == nullptr || *noColour == '\0'));
}

int exitCodeOf(const Report& report) {
    switch (report.worst()) {
    case Verdict::Failure:
        return Exit_Failures;
    case Verdict::Warning:
        return Exit_Warnings;
    default:
        return Exit_Ok;
    }
}

int examineAndReport(const Options& options) {
    const std::vector<Check> chosen = chosenChecks(options.only, options.skip);
    unsigned needs = NeedsProgram;
    for (const Check& check : chosen)
        needs |= check.needs;
    ExaminationSettings settings;
    settings.recordsFirst = !options.record.isEmpty();
    if (settings.recordsFirst)
        needs |= NeedsAnswers;
    settings.user = options.user;
    // A recording needs all of the program's calls, which wake suspended cards.
    settings.wakesCards = options.wake || settings.recordsFirst;
    settings.readings = options.readings;
    settings.program = programBeside();
    settings.limits.step = std::chrono::milliseconds(static_cast<qint64>(options.timeoutSeconds * 1000.0));
    const bool showsProgress = ::isatty(STDERR_FILENO) != 0;
    if (showsProgress)
        settings.progress = showProgress;
    Report report;
    report.facts = examine(settings, needs);
    if (showsProgress)
        clearProgress();
    report.findings = judge(chosen, report.facts);
    report.gpus = gpusOf(report.facts);
    if (!options.record.isEmpty() && !putRecording(options, report))
        return Exit_Output;
    if (options.record == QLatin1String("-"))
        return exitCodeOf(report);
    return putOut(options.output, formed(report, options)) ? exitCodeOf(report)
                                                           : static_cast<int>(Exit_Output);
}

int run(const QStringList& arguments) {
    const ParsedOptions parsed = parseOptions(arguments);
    QString error = parsed.error;
    if (error.isEmpty())
        error = userProblem(parsed.options.user);
    if (!error.isEmpty()) {
        complain(error + "; see qzGpuDoctor --help");
        return Exit_Usage;
    }
    const auto print = [](const QString& text) { return putOut({}, text.toUtf8()) ? Exit_Ok : Exit_Output; };
    switch (parsed.options.form) {
    case Form::Help:
        return print(helpText());
    case Form::Version:
        return print(QStringLiteral("qzGpuDoctor " QZGPUINFO_VERSION "\n"));
    case Form::Checks:
        return print(checksText());
    default:
        return examineAndReport(parsed.options);
    }
}

} // namespace

} // namespace doctor

int main(int argc, char* argv[]) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    prepareStandardStreams();
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    return doctor::run(arguments);
}
