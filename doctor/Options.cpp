#include "doctor/Options.h"

#include <algorithm>

#include <QCommandLineParser>

#include "doctor/Examination.h"
#include "doctor/checks/registry.h"

namespace doctor {

namespace {

constexpr double mostSeconds = 3600.0;
constexpr int mostReadings = 1000;

struct OptionText {
    const char* name;
    const char* value; ///< what follows it; empty: nothing
    const char* description;
};

constexpr OptionText optionTexts[] = {
    {"only", "IDS", "only these checks: ids or their beginnings, separated by commas"},
    {"skip", "IDS", "all checks but these"},
    {"checks", "", "list the checks"},
    {"json", "", "the report as JSON"},
    {"prometheus", "", "the report as metrics for Prometheus"},
    {"output", "FILE", "write the report there, replacing the file as a whole"},
    {"user", "NAME", "judge rights and segment for that user (as root)"},
    {"timeout", "SECONDS", "time limit of each step (30)"},
    {"wake", "", "examine GPUs that sleep, which wakes them"},
    {"record", "FILE", "also write the machine as a description for the simulator (-: no report)"},
    {"readings", "N", "update cycles that are recorded (1)"},
    {"with-identifiers", "", "leave UUIDs in the recording"},
    {"help", "", "this text"},
    {"version", "", "the version"},
};

QStringList namesOf(const OptionText& text) {
    const QString name = QLatin1String(text.name);
    return name == QLatin1String("help") ? QStringList{name, QStringLiteral("h")} : QStringList{name};
}

/// Reads a comma-separated list of selectors; an unknown one is an error.
QString readSelectors(const QString& text, QStringList& selectors) {
    selectors = text.split(',', Qt::SkipEmptyParts);
    if (selectors.isEmpty())
        return QStringLiteral("a list of checks is empty");
    for (const QString& selector : qAsConst(selectors))
        if (std::none_of(checks().begin(), checks().end(),
                         [&](const Check& check) { return selects(selector, check); }))
            return QStringLiteral("there is no check '%1'").arg(selector);
    return {};
}

QString readNumbers(const QCommandLineParser& parser, Options& options) {
    bool isNumber = true;
    if (parser.isSet("timeout"))
        options.timeoutSeconds = parser.value("timeout").toDouble(&isNumber);
    const bool isInRange = options.timeoutSeconds > 0.0 && options.timeoutSeconds <= mostSeconds;
    if (!isNumber || !isInRange)
        return QStringLiteral("--timeout takes seconds, up to %1").arg(mostSeconds);
    if (parser.isSet("readings"))
        options.readings = parser.value("readings").toInt(&isNumber);
    if (!isNumber || options.readings < 1 || options.readings > mostReadings)
        return QStringLiteral("--readings takes a number from 1 to %1").arg(mostReadings);
    return {};
}

QString readForm(const QCommandLineParser& parser, Options& options) {
    const struct {
        const char* name;
        Form form;
    } forms[] = {{"json", Form::Json},
                 {"prometheus", Form::Prometheus},
                 {"checks", Form::Checks},
                 {"version", Form::Version},
                 {"help", Form::Help}};
    for (const auto& form : forms)
        if (parser.isSet(form.name))
            options.form = form.form;
    return parser.isSet("json") && parser.isSet("prometheus")
               ? QStringLiteral("--json and --prometheus exclude each other")
               : QString();
}

QString readOptions(const QCommandLineParser& parser, Options& options) {
    if (!parser.positionalArguments().isEmpty())
        return QStringLiteral("'%1' is no option").arg(parser.positionalArguments().at(0));
    options.user = parser.value("user");
    options.wake = parser.isSet("wake");
    options.output = parser.value("output");
    options.record = parser.value("record");
    options.withIdentifiers = parser.isSet("with-identifiers");
    for (const char* named : {"user", "output", "record"})
        if (parser.isSet(named) && parser.value(named).isEmpty())
            return QStringLiteral("--%1 is empty").arg(QLatin1String(named));
    QString error = readForm(parser, options);
    if (error.isEmpty())
        error = readNumbers(parser, options);
    if (error.isEmpty() && parser.isSet("only"))
        error = readSelectors(parser.value("only"), options.only);
    if (error.isEmpty() && parser.isSet("skip"))
        error = readSelectors(parser.value("skip"), options.skip);
    if (error.isEmpty() && chosenChecks(options.only, options.skip).empty())
        error = QStringLiteral("no check is left");
    return error;
}

} // namespace

ParsedOptions parseOptions(const QStringList& arguments) {
    QCommandLineParser parser;
    for (const OptionText& text : optionTexts)
        parser.addOption(QCommandLineOption(namesOf(text), QString(), QLatin1String(text.value)));
    ParsedOptions parsed;
    if (!parser.parse(arguments)) {
        parsed.error = parser.errorText();
        while (parsed.error.endsWith('.'))
            parsed.error.chop(1);
        return parsed;
    }
    parsed.error = readOptions(parser, parsed.options);
    return parsed;
}

QString helpText() {
    QString text = "usage: qzGpuDoctor [OPTIONS]\n\n"
                   "Examines this machine's GPUs and drivers and explains what qzGpuInfo answers.\n\n";
    for (const OptionText& option : optionTexts) {
        QString name = "  --" + namesOf(option).join(", -");
        if (*option.value != '\0')
            name += QStringLiteral(" %1").arg(QLatin1String(option.value));
        text += name.leftJustified(22) + "  " + QLatin1String(option.description) + '\n';
    }
    return text +
           "\nExit code: 0 nothing is wrong, 1 warnings, 2 failures, 3 wrong arguments, 4 the output could "
           "not be written.\n";
}

QString checksText() {
    QString text;
    for (const Check& check : checks())
        text +=
            QStringLiteral("%1  %2\n").arg(QLatin1String(check.id), -22).arg(QLatin1String(check.question));
    return text;
}

} // namespace doctor
