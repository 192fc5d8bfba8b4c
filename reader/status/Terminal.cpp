#include "reader/status/Terminal.h"

#include <cstdlib>
#include <string_view>

#include <sys/ioctl.h>
#include <unistd.h>

namespace qzstatus {

TerminalSize terminalSize(int descriptor) {
    winsize size{};
    if (::ioctl(descriptor, TIOCGWINSZ, &size) != 0)
        return {};
    return {size.ws_col, size.ws_row};
}

bool canRedraw(int descriptor) {
    const char* const kind = std::getenv("TERM");
    return ::isatty(descriptor) == 1 && kind != nullptr && *kind != '\0' && std::string_view(kind) != "dumb";
}

} // namespace qzstatus
