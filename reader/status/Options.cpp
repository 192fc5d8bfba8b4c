#include "reader/status/Options.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include <CLI/CLI.hpp>

#include "reader/status/userId.h"

namespace qzstatus {

namespace {

constexpr double longestTime = 1e9;

/// Accepts digits with at most one decimal point, from `least` seconds on: neither signs nor exponents, "nan"
/// or "inf".
CLI::Validator seconds(double least) {
    return {[least](const std::string& text) -> std::string {
                const bool isNumber = text.size() <= 20 &&
                                      text.find_first_not_of("0123456789.") == std::string::npos &&
                                      text.find_first_of("0123456789") != std::string::npos &&
                                      text.find('.') == text.rfind('.');
                const double value = isNumber ? std::strtod(text.c_str(), nullptr) : -1.0;
                return value >= least && value <= longestTime ? ""
                                                              : "not a number of seconds: '" + text + "'";
            },
            ""};
}

/// What the parser would accept and this command does not: an empty argument, "--" (no arguments follow the
/// options), and "=" with nothing behind it, for which it would take the next argument.
bool isRefused(std::string_view argument) {
    return argument.empty() || argument == "--" ||
           (argument.substr(0, 2) == "--" && argument.find('=') == argument.size() - 1);
}

/// An option that may be repeated: the last one counts.
template <class Value>
CLI::Option* addValue(CLI::App& app, const char* name, const char* what, Value& target) {
    return app.add_option(name, target)->type_name(what)->take_last();
}

void addOptions(CLI::App& app, Options& options) {
    const auto addForm = [&](const char* name, Form form) {
        return app.add_flag_callback(name, [&options, form] { options.form = form; })
            ->disable_flag_override();
    };
    CLI::Option* const watch = addValue(app, "--watch", "SECONDS", options.watchSeconds);
    watch->check(seconds(0.1))->expected(0, 1)->default_str(std::to_string(options.watchSeconds));
    watch->each([&options](const std::string&) { options.form = Form::Watch; });

    const std::array forms{watch,
                           addForm("--json", Form::Json),
                           addForm("--prometheus", Form::Prometheus),
                           addForm("--features", Form::Features),
                           addForm("-h,--help", Form::Help),
                           addForm("--version", Form::Version)};
    for (auto first = forms.begin(); first != forms.end(); ++first)
        std::for_each(first + 1, forms.end(), [first](CLI::Option* other) { (*first)->excludes(other); });

    addValue(app, "--wait", "SECONDS", options.waitSeconds)->check(seconds(0.0));
    addValue(app, "--max-age", "SECONDS", options.maxAgeSeconds)->check(seconds(0.0));
    const auto takeUser = [&options](const std::string& name) {
        options.owner = userId(name);
        if (!options.owner)
            throw CLI::ValidationError("--user", "unknown user '" + name + "'");
    };
    app.add_option_function<std::string>("--user", takeUser)->type_name("NAME")->take_last();
    addValue(app, "--directory", "DIR", options.directory);
    addValue(app, "--output", "FILE", options.output)->excludes(watch);
}

} // namespace

ParsedOptions parseOptions(const std::vector<std::string_view>& arguments) {
    ParsedOptions parsed;
    if (const auto bad = std::find_if(arguments.begin(), arguments.end(), isRefused);
        bad != arguments.end()) {
        parsed.error = "an argument without meaning: '" + std::string(*bad) + "'";
        return parsed;
    }
    CLI::App app;
    app.set_help_flag(); // ours excludes other forms
    addOptions(app, parsed.options);
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend())); // the last argument first
    } catch (const CLI::Error& error) {
        parsed.error = error.what();
    }
    return parsed;
}

const char* helpText() {
    return R"(Usage: qzGpuStatus [OPTION]...
Shows the GPUs that a running qzGpuInfo publishes on this machine.

Without a form option: a table, cut to the terminal's width.
      --json             one JSON object; absent figures are null
      --prometheus       metrics in the Prometheus text exposition format
      --features         the GPUs' features for a job scheduler, on one line
      --watch [SECONDS]  a live table, with graphs where the terminal has room,
                         read every SECONDS (default 2, at least 0.1) until q;
                         plain lines when standard output is no terminal
  -h, --help             this text
      --version          the program's version

      --output FILE      replace FILE as a whole with the output (mode 0644)
      --wait SECONDS     wait so long for fresh data before giving up
      --max-age SECONDS  data older than this are stale (default 20, while GPUs
                         are being measured 1800; 0: no limit). Data that no
                         running program has published are stale at any age.
      --user NAME        read the segment of this user, and refuse anyone else's
      --directory DIR    where the segment is (default /dev/shm)

Exit codes:
  0  fresh data were shown; --watch was interrupted
  1  no data: there is no segment, or its first update is not done yet
  2  wrong arguments
  3  the data are stale
  4  the segment is of another version or too small
  5  the segment's lock was not free in time
  6  the segment belongs to another user, is open to others, or cannot be read
  7  the output could not be written
)";
}

} // namespace qzstatus
