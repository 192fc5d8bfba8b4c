// GCC 14 calls __cxa_call_terminate where an exception would leave a function that is noexcept. C++ libraries
// have it since then only, and what is built here has to run beside older ones.
#include <exception>

#include <cxxabi.h>

// Under another name here, since the compiler declares that one itself.
// NOLINTNEXTLINE(misc-use-internal-linkage): what the compiler writes calls it
[[noreturn, gnu::visibility("hidden")]] void callTerminate(void* exception) noexcept
    __asm__("__cxa_call_terminate");

void callTerminate(void* exception) noexcept {
    // The exception is the current one then, and std::terminate names it.
    abi::__cxa_begin_catch(exception);
    std::terminate();
}
