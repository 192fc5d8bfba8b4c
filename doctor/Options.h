// The command line of `qzGpuDoctor`.
#pragma once

#include <QString>
#include <QStringList>

namespace doctor {

enum class Form { Text, Json, Prometheus, Checks, Help, Version };

struct Options {
    Form form = Form::Text;
    QStringList only; ///< selectors of checks; empty: all
    QStringList skip;
    double timeoutSeconds = 30.0;
    QString user; ///< empty: the user running the doctor
    bool wake = false;
    QString output;   ///< file of the report; empty: standard output
    QString record;   ///< file of the recording, "-": standard output; empty: none
    int readings = 1; ///< update cycles that are recorded
    bool withIdentifiers = false;
};

/// The options, or why the arguments are invalid: `error` is empty on success.
struct ParsedOptions {
    Options options;
    QString error;
};

/// `arguments` begins with the program's name.
ParsedOptions parseOptions(const QStringList& arguments);

/// The text of `--help`.
QString helpText();

/// The text of `--checks`: each check's id and what it answers.
QString checksText();

} // namespace doctor
