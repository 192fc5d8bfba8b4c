// The program's driver, publishing one cycle after the other without a pause, to be killed at any instant:
// steadyWriter DIRECTORY FIRST_NUMBER [KILLED_AT]. SIGTERM ends it in order. With KILLED_AT it kills itself
// half-way through that write to the segment (1: the first), or ends with 3 when its 100 cycles have fewer.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <sys/syscall.h>
#include <unistd.h>

#include <QCoreApplication>

#include "app/GpuInfo_Main.h"
#include "app/log/logLine.h"
#include "tests/harness/NumberedProvider.h"

namespace {

volatile std::sig_atomic_t endAsked = 0;
int killedAt = 0;
int writes = 0;

/// A write interrupted by a fatal signal: the kernel may stop it at the end of a page.
ssize_t writeHalf(int fd, const void* bytes, std::size_t count, off_t offset) {
    constexpr std::size_t page = 4096;
    const std::size_t toPageEnd = page - static_cast<std::size_t>(offset) % page;
    syscall(SYS_pwrite64, fd, bytes, std::min(count / 2 + 1, toPageEnd), offset);
    std::raise(SIGKILL);
    return -1;
}

void onTerm(int /*signal*/) {
    endAsked = 1;
}

} // namespace

// Before the C library's, for the driver's writes.
extern "C" ssize_t pwrite(int fd, const void* bytes, std::size_t count, off_t offset) {
    if (++writes == killedAt)
        return writeHalf(fd, bytes, count, offset);
    return syscall(SYS_pwrite64, fd, bytes, count, offset);
}

int main(int argc, char** argv) {
    if (argc < 3)
        return 2;
    std::signal(SIGTERM, onTerm);
    const QCoreApplication application(argc, argv);
    std::int32_t number = static_cast<std::int32_t>(std::strtol(argv[2], nullptr, 10));
    killedAt = argc > 3 ? static_cast<int>(std::strtol(argv[3], nullptr, 10)) : 0;
    constexpr int cyclesBeforeItsKill = 100;

    GpuInfo_Main driver({{std::make_unique<NumberedProvider>(GpuType_Cuda, number),
                          std::make_unique<NumberedProvider>(GpuType_Amd, number), nullptr},
                         [] {}},
                        argv[1]);
    if (!driver.init())
        return 1;
    for (int cycle = 0; endAsked == 0; ++cycle) {
        if (killedAt > 0 && cycle == cyclesBeforeItsKill)
            return 3;
        driver.update();
        ++number;
    }
    return 0;
}
