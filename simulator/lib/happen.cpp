#include "simulator/lib/happen.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include <dlfcn.h>
#include <spawn.h>
#include <unistd.h>

namespace qzsim {

namespace {

// NVIDIA's library starts the tool that loads its kernel module in this way. Without the environment, which
// would preload the simulator into it.
void spawn(std::int64_t milliseconds) {
    std::string name = "sleep";
    std::string seconds =
        std::to_string(milliseconds / 1000) + "." + std::to_string(milliseconds % 1000 + 1000).substr(1);
    char* arguments[] = {name.data(), seconds.data(), nullptr};
    char* environment[] = {nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, "/bin/sleep", nullptr, nullptr, arguments, environment) != 0)
        std::fputs("simulator: /bin/sleep cannot be started\n", stderr);
}

[[noreturn]] void endBySignal(int number) {
    std::signal(number, SIG_DFL);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, number);
    sigprocmask(SIG_UNBLOCK, &signals, nullptr);
    std::raise(number);
    _exit(128 + number);
}

} // namespace

void crash() {
    endBySignal(SIGSEGV);
}

void sleepMilliseconds(std::int64_t milliseconds) {
    timespec left{milliseconds / 1000, (milliseconds % 1000) * 1000000};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

bool advanceClock(std::int64_t milliseconds) {
    void* symbol = dlsym(RTLD_DEFAULT, "qzsim_advanceClock");
    if (symbol != nullptr)
        reinterpret_cast<void (*)(std::int64_t)>(symbol)(milliseconds);
    return symbol != nullptr;
}

void stayLoaded(const void* address) {
    Dl_info info;
    if (dladdr(address, &info) != 0)
        dlopen(info.dli_fname, RTLD_LAZY | RTLD_NODELETE);
}

void happen(const Fault& fault) {
    switch (fault.action) {
    case Action::Delay:
        sleepMilliseconds(fault.number);
        break;
    case Action::Hang:
        for (;;)
            pause();
    case Action::Crash:
        crash();
    case Action::Signal:
        endBySignal(static_cast<int>(fault.number));
    case Action::Exit:
        std::exit(static_cast<int>(fault.number));
    case Action::Print:
        std::fputs(fault.text.c_str(), stdout);
        break;
    case Action::Fork:
        if (fork() == 0) {
            sleepMilliseconds(fault.number);
            _exit(0);
        }
        break;
    case Action::Spawn:
        spawn(fault.number);
        break;
    default:
        break;
    }
}

} // namespace qzsim
