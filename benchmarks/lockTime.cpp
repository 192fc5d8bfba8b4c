// Preloaded into the program: measures how long each flock was held, from the return of the call that took it
// to the return of the call that released it. At exit it writes the times in microseconds, one per line, to
// the file named by QZ_LOCK_TIMES. A tracer would stop the program between the two calls; this only reads the
// clock twice.
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

std::array<double, 10000> times;
std::size_t count = 0;
bool isHeld = false;
Clock::time_point taken;

} // namespace

extern "C" __attribute__((visibility("default"))) int flock(int fd, int operation) noexcept {
    const auto result = static_cast<int>(syscall(SYS_flock, fd, operation));
    const Clock::time_point now = Clock::now();
    if (result != 0)
        return result;
    if ((operation & LOCK_EX) != 0) {
        isHeld = true;
        taken = now;
    } else if ((operation & LOCK_UN) != 0 && isHeld) {
        isHeld = false;
        if (count < times.size())
            times[count++] = std::chrono::duration<double, std::micro>(now - taken).count();
    }
    return result;
}

namespace {

__attribute__((destructor)) void writeTimes() {
    const char* path = std::getenv("QZ_LOCK_TIMES");
    std::FILE* file = path == nullptr || count == 0 ? nullptr : std::fopen(path, "w");
    if (file == nullptr)
        return;
    for (std::size_t i = 0; i < count; ++i)
        std::fprintf(file, "%.3f\n", times[i]);
    std::fclose(file);
}

} // namespace
