// What is known of a terminal without drawing on it.
#pragma once

namespace qzstatus {

struct TerminalSize {
    int columns = 0; ///< 0: not known, or no terminal
    int rows = 0;
};

TerminalSize terminalSize(int descriptor);

/// True for a terminal that can be drawn on in place (a "dumb" one cannot).
bool canRedraw(int descriptor);

} // namespace qzstatus
