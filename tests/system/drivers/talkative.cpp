// A driver that prints more than any pipe takes, in every way there is, and then lacks every entry point.
#include <cstdio>
#include <iostream>
#include <string>

#include <unistd.h>

namespace {

struct Talkative {
    Talkative() {
        const std::string much(1 << 17, 'd');
        std::puts(much.c_str());
        std::fputs(much.c_str(), stderr);
        std::cout << much << std::flush;
        std::cerr << much;
        for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) [[maybe_unused]]
            const ssize_t written = write(stream, much.data(), much.size());
        std::printf("the driver's unfinished line ");
    }
} const talkative;

} // namespace
