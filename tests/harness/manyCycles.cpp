// The program's driver with its own providers, cycle after cycle without the timer: manyCycles CYCLES AFTER.
// Prints what the process holds after the first AFTER cycles and at the end, a line each: cycles, resident
// kB, descriptors, threads.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <QCoreApplication>

#include "app/GpuInfo_Main.h"
#include "app/log/logLine.h"
#include "app/log/output.h"

namespace {

long entriesOf(const char* directory) {
    return static_cast<long>(
        std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator()));
}

/// The process's own memory, without mapped files such as the stand-ins' counters.
long residentKilobytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("RssAnon:", 0) == 0)
            return std::strtol(line.c_str() + line.find(':') + 1, nullptr, 10);
    return -1;
}

void report(long cycles) {
    std::printf("held: %ld %ld %ld %ld\n", cycles, residentKilobytes(), entriesOf("/proc/self/fd"),
                entriesOf("/proc/self/task"));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    const QCoreApplication application(argc, argv);
    const long cycles = std::strtol(argv[1], nullptr, 10);
    const long after = std::strtol(argv[2], nullptr, 10);
    GpuInfo_Main driver;
    if (!driver.init())
        return 1;
    for (long cycle = 1; cycle <= cycles; ++cycle) {
        driver.update();
        if (cycle == after)
            report(cycle);
    }
    std::printf("listed: %d\n", driver.gpuList().totalCount());
    report(cycles);
    flushOutput();
    return 0;
}
