/* Prints the GPUs that a companion publishes: gpus [DIRECTORY] */
#include <qzgpuinfo.h>
#include <stdio.h>

int main(int argc, char** argv) {
    qzgpuinfo_reader* reader = NULL;
    qzgpuinfo_state state = {.size = sizeof state};
    qzgpuinfo_gpu gpu = {.size = sizeof gpu};
    uint32_t i;

    qzgpuinfo_result result = qzgpuinfo_open(argc > 1 ? argv[1] : NULL, &reader);
    if (result == QZGPUINFO_OK)
        result = qzgpuinfo_read(reader, 1000, &state);

    if (result != QZGPUINFO_OK)
        printf("%s\n", qzgpuinfo_result_text(result));
    else if (state.freshness != QZGPUINFO_FRESH)
        printf("stale, published %.0f s ago\n", state.age_seconds);

    for (i = 0; qzgpuinfo_get_gpu(reader, i, &gpu) == QZGPUINFO_OK; ++i) {
        printf("%s %s: ", qzgpuinfo_kind_text(gpu.kind), gpu.name);
        if (gpu.has_usage)
            printf("%d %%\n", (int)gpu.usage_percent);
        else
            printf("%s\n", gpu.answering ? "load unknown" : "does not answer");
    }

    qzgpuinfo_close(reader);
    return result == QZGPUINFO_OK && state.freshness == QZGPUINFO_FRESH ? 0 : 1;
}
