#include "reader/status/Options.h"

#include <cstdlib>
#include <optional>

namespace qzstatus {

namespace {

constexpr double longestTime = 1e9;

/// Digits with at most one decimal point, between `least` and `most`.
std::optional<double> secondsOf(std::string_view text, double least, double most) {
    if (text.empty() || text.size() > 20 || text.find_first_not_of("0123456789.") != std::string_view::npos ||
        text.find_first_of("0123456789") == std::string_view::npos || text.find('.') != text.rfind('.'))
        return std::nullopt;
    const double seconds = std::strtod(std::string(text).c_str(), nullptr);
    if (seconds < least || seconds > most)
        return std::nullopt;
    return seconds;
}

class Parser {
  public:
    explicit Parser(const std::vector<std::string_view>& commandLine) : arguments(commandLine) {}

    ParsedOptions parse() {
        while (next < arguments.size() && parsed.error.empty())
            takeOption(arguments[next++]);
        if (parsed.error.empty() && !parsed.options.output.empty() && form() == Form::Watch)
            parsed.error = "--output cannot be used with --watch";
        return parsed;
    }

  private:
    Form& form() { return parsed.options.form; }

    void takeOption(std::string_view argument) {
        const auto equals = argument.find('=');
        const std::string_view name = argument.substr(0, equals);
        inlineValue =
            equals == std::string_view::npos ? std::nullopt : std::optional(argument.substr(equals + 1));

        Options& options = parsed.options;
        if (name == "--json")
            takeForm(name, Form::Json);
        else if (name == "--prometheus")
            takeForm(name, Form::Prometheus);
        else if (name == "--help" || name == "-h")
            takeForm(name, Form::Help);
        else if (name == "--version")
            takeForm(name, Form::Version);
        else if (name == "--watch")
            takeWatch();
        else if (name == "--wait")
            takeSeconds(name, 0.0, options.waitSeconds);
        else if (name == "--max-age")
            takeSeconds(name, 0.0, options.maxAgeSeconds);
        else if (name == "--output")
            takeText(name, options.output);
        else if (name == "--directory")
            takeText(name, options.directory);
        else
            parsed.error = "unknown argument '" + std::string(argument) + "'";
    }

    void takeForm(std::string_view name, Form wanted) {
        if (inlineValue)
            parsed.error = std::string(name) + " takes no value";
        else if (form() != Form::Table && form() != wanted)
            parsed.error = std::string(name) + " cannot be used with another form of output";
        else
            form() = wanted;
    }

    void takeWatch() {
        if (!inlineValue && next < arguments.size() &&
            secondsOf(arguments[next], 0.0, longestTime).has_value())
            inlineValue = arguments[next++];
        const auto seconds = inlineValue;
        inlineValue.reset();
        takeForm("--watch", Form::Watch);
        if (seconds && parsed.error.empty()) {
            inlineValue = seconds;
            takeSeconds("--watch", 0.1, parsed.options.watchSeconds);
        }
    }

    /// The text behind "=", else the next argument; an error when there is none.
    std::string_view value(std::string_view name) {
        if (inlineValue)
            return *inlineValue;
        if (next < arguments.size())
            return arguments[next++];
        parsed.error = std::string(name) + " needs a value";
        return {};
    }

    void takeText(std::string_view name, std::string& target) {
        target = value(name);
        if (target.empty() && parsed.error.empty())
            parsed.error = std::string(name) + " needs a value";
    }

    template <class Target>
    void takeSeconds(std::string_view name, double least, Target& target) {
        const std::string_view text = value(name);
        if (!parsed.error.empty())
            return;
        if (const auto given = secondsOf(text, least, longestTime)) {
            const double seconds = *given;
            target = seconds;
        } else
            parsed.error = std::string(name) + " needs a number of seconds, not '" + std::string(text) + "'";
    }

    const std::vector<std::string_view>& arguments;
    std::size_t next = 0;
    std::optional<std::string_view> inlineValue; ///< the text behind "=" of the option at hand
    ParsedOptions parsed;
};

} // namespace

ParsedOptions parseOptions(const std::vector<std::string_view>& arguments) {
    return Parser(arguments).parse();
}

const char* helpText() {
    return R"(Usage: qzGpuStatus [OPTION]...
Shows the GPUs that a running qzGpuInfo publishes on this machine.

Without a form option: a table, cut to the terminal's width.
      --json             one JSON object; absent figures are null
      --prometheus       metrics in the Prometheus text exposition format
      --watch [SECONDS]  a table redrawn in place every SECONDS (default 2, at
                         least 0.1) until interrupted; plain lines when
                         standard output is no terminal
  -h, --help             this text
      --version          the program's version

      --output FILE      replace FILE as a whole with the output (mode 0644)
      --wait SECONDS     wait so long for fresh data before giving up
      --max-age SECONDS  data older than this are stale (default 20, while GPUs
                         are being measured 1800; 0: no limit). Data that no
                         running program has published are stale at any age.
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
