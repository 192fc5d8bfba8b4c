// A vendor's library of a version that lacks one of the required entry points, nvmlErrorString, and
// reports when it is closed.
#include <cstdio>

namespace {
struct Closing {
    ~Closing() { std::puts("[closed]"); }
} closing;
} // namespace

extern "C" {
int nvmlInit_v2() {
    return 0;
}
int nvmlShutdown() {
    return 0;
}
int nvmlDeviceGetCount_v2(unsigned int* count) {
    *count = 1;
    return 0;
}
int nvmlDeviceGetHandleByIndex_v2(unsigned int, void**) {
    return 0;
}
int nvmlDeviceGetPciInfo_v3(void*, void*) {
    return 0;
}
int nvmlDeviceGetName(void*, char*, unsigned int) {
    return 0;
}
int nvmlDeviceGetUtilizationRates(void*, void*) {
    return 0;
}
int nvmlDeviceGetTemperature(void*, int, unsigned int*) {
    return 0;
}
int nvmlDeviceGetMemoryInfo(void*, void*) {
    return 0;
}
}
