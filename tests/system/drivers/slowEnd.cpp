// A driver without a GPU that takes its time to shut down.
#include "waitForGo.h"

extern "C" {
int nvmlInit_v2() {
    return 0;
}
int nvmlShutdown() {
    waitForGo("driver ends\n");
    return 0;
}
int nvmlDeviceGetCount_v2(unsigned int* count) {
    *count = 0;
    return 0;
}
int nvmlDeviceGetHandleByIndex_v2(unsigned int, void**) {
    return 2;
}
int nvmlDeviceGetPciInfo_v3(void*, void*) {
    return 2;
}
int nvmlDeviceGetName(void*, char*, unsigned int) {
    return 2;
}
int nvmlDeviceGetUtilizationRates(void*, void*) {
    return 2;
}
int nvmlDeviceGetTemperature(void*, int, unsigned int*) {
    return 2;
}
int nvmlDeviceGetMemoryInfo(void*, void*) {
    return 2;
}
const char* nvmlErrorString(int) {
    return "invalid argument";
}
}
