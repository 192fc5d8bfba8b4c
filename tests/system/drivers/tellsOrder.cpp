// Preloaded: writes a line to standard output for what can't be seen there otherwise, then does it.
#include <cstdio>
#include <string>
#include <string_view>

#include <dlfcn.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QTimer>

namespace {

void tell(std::string_view line) {
    [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, line.data(), line.size());
}

template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// Whether the code at an address is part of the program itself. GCC 14's C++ library flushes, too, when any
/// program ends.
bool isOfProgram(const void* code) {
    Dl_info its{};
    Dl_info programs{};
    return dladdr(code, &its) != 0 &&
           dladdr(reinterpret_cast<const void*>(getauxval(AT_PHDR)), &programs) != 0 &&
           its.dli_fbase == programs.dli_fbase;
}

} // namespace

extern "C" int fflush(FILE* stream) {
    const int result = next<int(FILE*)>("fflush")(stream);
    if (isOfProgram(__builtin_return_address(0)))
        tell(stream == stdout   ? "[output flushed]\n"
             : stream == stderr ? "[errors flushed]\n"
                                : "[flushed]\n");
    return result;
}

void QCoreApplication::processEvents(QEventLoop::ProcessEventsFlags flags) {
    tell("[events]\n");
    next<void(QEventLoop::ProcessEventsFlags)>(
        "_ZN16QCoreApplication13processEventsE6QFlagsIN10QEventLoop17ProcessEventsFlagEE")(flags);
}

void QTimer::start(int interval) {
    tell("[timer " + std::to_string(interval) +
         (timerType() == Qt::PreciseTimer ? " precise]\n" : " coarse]\n"));
    using Start = void(QTimer*, int);
    next<Start>("_ZN6QTimer5startEi")(this, interval);
}
