#include "app/CommandLine.h"

namespace {

struct Option {
    const char* text;
    bool CommandLine::* flag;
};

constexpr Option options[] = {
    {"-bench", &CommandLine::benchmark},
    {"-benchShort", &CommandLine::shortBenchmark},
    {"-v", &CommandLine::verbose},
    {"-debug", &CommandLine::verbose},
    {"-single", &CommandLine::single},
    {"-queryNvCuda", &CommandLine::queryNvCuda},
    {"-queryNvOptix", &CommandLine::queryNvOptix},
    {"-queryAmdRt", &CommandLine::queryAmdRt},
    {"-queryGPU", &CommandLine::queryGPU},
    {"-returnGPS", &CommandLine::returnGPS},
};

} // namespace

CommandLine parseCommandLine(int count, const char* const* arguments) {
    CommandLine commandLine;
    commandLine.noArguments = count < 2;
    for (int i = 1; i < count; ++i) {
        const _qzString8_allSize<100> argument(arguments[i]);
        if (!commandLine.watchesProcess && !argument.startsWith('-')) {
            commandLine.watchesProcess = true;
            commandLine.watchedProcess = argument;
            continue;
        }
        for (const Option& option : options)
            if (argument.isEqual(option.text)) {
                commandLine.*option.flag = true;
                break;
            }
    }
    commandLine.benchmark = commandLine.benchmark || commandLine.shortBenchmark;
    return commandLine;
}
