// readerTime DIRECTORY READS: reads the segment in the directory that often through the reader's library,
// with a pause of some milliseconds between readings, so that the caches are cold. Prints each reading's time
// in microseconds, one per line. Exits with 1 at the first failure.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include "reader/GpuSegmentReader.h"

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds pause(5);
    const GpuSegmentReader reader(argv[1]);
    const auto snapshot = std::make_unique<GpuSnapshot>();
    for (long left = std::strtol(argv[2], nullptr, 10); left > 0; --left) {
        std::this_thread::sleep_for(pause);
        const Clock::time_point began = Clock::now();
        const SegmentResult result = reader.read(*snapshot);
        const Clock::time_point ended = Clock::now();
        if (result != SegmentResult::Ok) {
            std::fprintf(stderr, "readerTime: %s: %s\n", reader.path().c_str(), segmentResultText(result));
            return 1;
        }
        std::printf("%.3f\n", std::chrono::duration<double, std::micro>(ended - began).count());
    }
    return 0;
}
