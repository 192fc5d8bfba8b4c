// The program's entry point: options in, exit code out.
#include <memory>
#include <optional>

#include <QCoreApplication>

#include "app/CommandLine.h"
#include "app/EndSignals.h"
#include "app/GpuInfo_Main.h"
#include "app/WatchDog.h"
#include "app/banner.h"
#include "app/exitCode.h"
#include "app/log/logLine.h"
#include "app/log/output.h"
#include "opencl/benchmarkSettings.h"
#include "support/qzSdk.h"
#include "support/standardStreams.h"

namespace {

constexpr int watchIntervalMs = 5000;

// Lives from before the entry point to the very end of the process.
const __QZSDK sdk(true, qz_AppType(0), _qzString<50>("qzGpuInfo"), false);

std::unique_ptr<WatchDog> startWatchDog(const QString& processName) {
    auto watchDog = std::make_unique<WatchDog>(processName, watchIntervalMs);
    QObject::connect(watchDog.get(), &WatchDog::processKilled, qApp, &QCoreApplication::quit);
    watchDog->start();
    QCoreApplication::processEvents();
    return watchDog;
}

std::unique_ptr<EndSignals> endOnSignals() {
    auto endSignals = std::make_unique<EndSignals>();
    QObject::connect(endSignals.get(), &EndSignals::endRequested, qApp, &QCoreApplication::quit);
    return endSignals;
}

void greet(const CommandLine& commandLine) {
    if (commandLine.noArguments) {
        printLongBanner();
        return;
    }
    printShortBanner();
    if (commandLine.verbose) {
        logLevel = 5;
        printVerboseNotice();
    }
}

} // namespace

int main(int argc, char** argv) {
    prepareStandardStreams();
    const QCoreApplication application(argc, argv);
    const CommandLine commandLine = parseCommandLine(argc, argv);

    if (commandLine.shortBenchmark) {
        benchmarkSeconds = 6;
        benchmarkWarmupMs = 1;
    }
    // Outlives everything that prints.
    std::optional<NonBlockingOutput> output;
    if (!commandLine.isSingleRun())
        output.emplace();
    std::unique_ptr<WatchDog> watchDog;
    if (commandLine.watchesProcess)
        watchDog = startWatchDog(commandLine.watchedProcess);
    greet(commandLine);

    // Outlives the driver: a signal must not cut short the shutdown of the vendors' libraries.
    const std::unique_ptr<EndSignals> endSignals = commandLine.isSingleRun() ? nullptr : endOnSignals();
    GpuInfo_Main driver;
    driver.doBenchmark = commandLine.runsBenchmark();
    driver.singleRun = commandLine.isSingleRun();

    flushOutput();
    int code = 1;
    if (driver.init()) {
        QCoreApplication::processEvents();
        int runResult = 0;
        if (driver.singleRun)
            driver.finish();
        else
            runResult = QCoreApplication::exec();
        code = exitCode(commandLine, driver.gpuList(), runResult);
    }
    watchDog.reset();
    flushOutput();
    return code;
}
