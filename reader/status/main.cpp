// Shows the GPUs that a running `qzGpuInfo` publishes: for people, for scripts and for a monitoring system.
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <unistd.h>

#include "reader/status/Options.h"
#include "reader/status/StatusReport.h"
#include "reader/status/Terminal.h"
#include "reader/status/displayText.h"
#include "reader/status/exitCodes.h"
#include "reader/status/featuresForm.h"
#include "reader/status/forms.h"
#include "reader/status/output.h"
#include "reader/status/watch.h"

using namespace qzstatus;

namespace {

void complain(const std::string& text) {
    std::fprintf(stderr, "qzGpuStatus: %s\n", text.c_str());
}

int failedOutput(int error) {
    // A reader that has had enough (`| head`) is no news.
    if (error != EPIPE)
        complain(std::string("cannot write standard output: ") + std::strerror(error));
    return ExitCode_Output;
}

/// Writes to the file or to standard output; the exit code becomes that of a failed output when it fails.
int putOut(const Options& options, const std::string& text, int exitCode) {
    if (!options.output.empty()) {
        const std::string error = replaceFile(options.output, text);
        if (error.empty())
            return exitCode;
        complain(error);
        return ExitCode_Output;
    }
    const int error = writeAll(STDOUT_FILENO, text);
    return error == 0 ? exitCode : failedOutput(error);
}

std::string textOf(const Options& options, const StatusReport& report) {
    switch (options.form) {
    case Form::Json:
        return jsonForm(report);
    case Form::Prometheus:
        return prometheusForm(report);
    case Form::Features:
        return featuresForm(report);
    default:
        return tableForm(report, options.output.empty() ? terminalSize(STDOUT_FILENO).columns : 0, false);
    }
}

/// Whether a form has nothing to show for this state but the message, which then goes to standard error.
bool onlyComplains(Form form, ReportState state) {
    const bool stale = state == ReportState::Stale;
    // A scheduler would take what a stale list says for what the node can do now.
    return state != ReportState::Ok && (form == Form::Features || (form == Form::Table && !stale));
}

int run(const Options& options) {
    if (options.form == Form::Help)
        return putOut(options, helpText(), ExitCode_Ok);
    if (options.form == Form::Version)
        return putOut(options, "qzGpuStatus " QZGPUINFO_VERSION "\n", ExitCode_Ok);

    const GpuSegmentReader reader(options.directory, segmentKey, options.owner);
    const auto wait = std::chrono::milliseconds(static_cast<std::int64_t>(options.waitSeconds * 1000.0));
    if (options.form == Form::Watch) {
        if (options.waitSeconds > 0.0)
            readReport(reader, options.maxAgeSeconds, wait);
        const int error = watch(reader, options);
        return error == 0 ? static_cast<int>(ExitCode_Ok) : failedOutput(error);
    }

    const StatusReport report = readReport(reader, options.maxAgeSeconds, wait);
    const int exitCode = exitCodeOf(report.state);
    if (onlyComplains(options.form, report.state)) {
        complain(report.segmentPath + ": " + report.message);
        return exitCode;
    }
    return putOut(options, textOf(options, report), exitCode);
}

} // namespace

int main(int argc, char* argv[]) {
    // Names are shown as UTF-8 wherever this runs; numbers keep their decimal point.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    // A reader that goes away, or a file at its size limit, is a failed write.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);

    const std::vector<std::string_view> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    try {
        const ParsedOptions parsed = parseOptions(arguments);
        if (parsed.error.empty())
            return run(parsed.options);
        complain(displayText(parsed.error).text + "; see qzGpuStatus --help");
        return ExitCode_Usage;
    } catch (const std::exception& error) { // out of memory
        complain(error.what());
        return ExitCode_NotReadable;
    }
}
