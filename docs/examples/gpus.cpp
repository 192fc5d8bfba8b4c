// Prints the GPUs that a companion publishes: gpus [DIRECTORY]
#include <cstdio>

#include <qzgpuinfo/Reader.h>

int main(int argc, char** argv) {
    qzgpuinfo::Snapshot snapshot;
    const qzgpuinfo::Reader reader(argc > 1 ? argv[1] : "/dev/shm");
    const qzgpuinfo::SegmentResult result = reader.read(snapshot);

    if (result != qzgpuinfo::SegmentResult::Ok)
        std::printf("%s\n", segmentResultText(result));
    else if (!isFresh(snapshot))
        std::printf("stale, published %.0f s ago\n", snapshot.ageSeconds);

    for (const qzgpuinfo::Gpu& gpu : snapshot.gpus) {
        std::printf("%s %s: ", kindText(gpu.kind), gpu.name.c_str());
        if (gpu.usagePercent)
            std::printf("%d %%\n", *gpu.usagePercent);
        else
            std::printf("%s\n", gpu.answering ? "load unknown" : "does not answer");
    }
    return result == qzgpuinfo::SegmentResult::Ok && isFresh(snapshot) ? 0 : 1;
}
