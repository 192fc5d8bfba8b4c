// Preloaded: makes a call slow, on temporary files of qzGpuStatus only: the one that QZ_TEST_SLOW names,
// `fsync` or `flock`.
#include <cstdio>
#include <cstring>

#include <dlfcn.h>
#include <sys/file.h>
#include <unistd.h>

#include "waitForGo.h"

namespace {

bool isTemporary(int descriptor) {
    char link[64] = {};
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    char target[4096] = {};
    return readlink(link, target, sizeof target - 1) > 0 &&
           std::strstr(target, "/.qzGpuStatus.tmp-") != nullptr;
}

void delay(const char* call, int descriptor) {
    const char* slow = std::getenv("QZ_TEST_SLOW");
    if (slow != nullptr && std::strcmp(slow, call) == 0 && isTemporary(descriptor))
        waitForGo("waiting\n");
}

template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" int fsync(int descriptor) {
    delay("fsync", descriptor);
    return next<int(int)>("fsync")(descriptor);
}

extern "C" int flock(int descriptor, int operation) {
    delay("flock", descriptor);
    return next<int(int, int)>("flock")(descriptor, operation);
}
