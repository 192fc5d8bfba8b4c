#include "support/standardStreams.h"

#include <csignal>
#include <cstdio>
#include <initializer_list>

#include <fcntl.h>
#include <unistd.h>

void prepareStandardStreams(const char* nullDevice) {
    // The lowest free number is the missing one: those below it are open by now. Without /dev a directory
    // serves as well, since it takes no bytes either.
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(standard, F_GETFD) < 0 && open(nullDevice, O_RDWR) < 0) {
            [[maybe_unused]] const int opened = open("/", O_RDONLY | O_DIRECTORY);
        }
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}
