// An OpenCL driver behind the real loader: when it is asked for its platforms it crashes, or, where
// QZ_TEST_DRIVER is "block", never answers.
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <unistd.h>

extern "C" {

int clIcdGetPlatformIDsKHR(unsigned int, void**, unsigned int*) {
    std::puts("driver is asked");
    const char* behaviour = std::getenv("QZ_TEST_DRIVER");
    while (behaviour != nullptr && std::string_view(behaviour) == "block")
        pause();
    // A sanitizer would handle it differently.
    std::signal(SIGSEGV, SIG_DFL);
    std::raise(SIGSEGV);
    return 0;
}

// The loader passes a driver over that lacks it.
int clGetPlatformInfo(void*, unsigned int, std::size_t, void*, std::size_t*) {
    return 0;
}

void* clGetExtensionFunctionAddress(const char* name) {
    return std::string_view(name) == "clIcdGetPlatformIDsKHR"
               ? reinterpret_cast<void*>(clIcdGetPlatformIDsKHR)
               : nullptr;
}
}
