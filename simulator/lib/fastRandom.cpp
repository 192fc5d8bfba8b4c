// Preloaded where the description says "fast_random = yes": a cheap rand(), for tests that run many
// benchmarks and ignore the input data. A separate library, so that other runs are not affected.
#include <cstdint>

namespace {
std::uint32_t state = 1;
}

extern "C" __attribute__((visibility("default"))) void srand(unsigned seed) {
    state = seed | 1u;
}

extern "C" __attribute__((visibility("default"))) int rand() {
    state = state * 1664525u + 1013904223u;
    return static_cast<int>(state >> 1);
}
