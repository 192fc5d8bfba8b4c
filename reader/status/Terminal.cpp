#include "reader/status/Terminal.h"

#include <cstdlib>
#include <string>

#include <sys/ioctl.h>
#include <unistd.h>

#include "reader/status/output.h"

namespace qzstatus {

namespace {

// Control sequences of ECMA-48 and the alternate screen that every terminal of today has.
constexpr std::string_view enterSequence = "\033[?1049h\033[?25l";
constexpr std::string_view leaveSequence = "\033[?25h\033[?1049l";
constexpr std::string_view home = "\033[H";
constexpr std::string_view clearToLineEnd = "\033[K";
constexpr std::string_view clearBelow = "\033[J";

} // namespace

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

TerminalScreen::TerminalScreen(int terminal) : descriptor(terminal) {
    enter();
}

TerminalScreen::~TerminalScreen() {
    leave();
}

void TerminalScreen::enter() const {
    writeAll(descriptor, enterSequence);
}

void TerminalScreen::leave() const {
    writeAll(descriptor, leaveSequence);
}

int TerminalScreen::draw(std::string_view text, int rows, bool (*givesUp)()) const {
    std::string frame(home);
    for (int row = 0; !text.empty() && (rows <= 0 || row < rows); ++row) {
        const auto end = text.find('\n');
        frame += row == 0 ? "" : "\r\n";
        frame += text.substr(0, end);
        frame += clearToLineEnd;
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    frame += clearBelow;
    return writeAll(descriptor, frame, givesUp);
}

} // namespace qzstatus
