// The command line of `qzGpuStatus`.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace qzstatus {

enum class Form { Table, Json, Prometheus, Features, Watch, Help, Version };

struct Options {
    Form form = Form::Table;
    std::string directory = "/dev/shm";
    std::optional<uid_t> owner;          ///< whose segment; nothing: the user's who runs this
    std::string output;                  ///< empty: standard output
    double waitSeconds = 0.0;            ///< 0: read once
    double watchSeconds = 2.0;           ///< between two readings
    std::optional<double> maxAgeSeconds; ///< see `isFresh`
};

/// Options, or why the arguments make none: `error` is empty when all is well.
struct ParsedOptions {
    Options options;
    std::string error;
};

/// `arguments` is the command line without the program's name.
ParsedOptions parseOptions(const std::vector<std::string_view>& arguments);

/// The text of `--help`, with every option and exit code.
const char* helpText();

} // namespace qzstatus
