// The terminal that `--watch` draws on.
#pragma once

#include <string_view>

namespace qzstatus {

struct TerminalSize {
    int columns = 0; ///< 0: not known, or no terminal
    int rows = 0;
};

TerminalSize terminalSize(int descriptor);

/// True for a terminal that can be drawn on in place (a "dumb" one cannot).
bool canRedraw(int descriptor);

/// While one exists, standard output shows a screen of its own without a cursor; the terminal's earlier
/// content comes back with its end.
class TerminalScreen {
  public:
    explicit TerminalScreen(int terminal);
    ~TerminalScreen();
    TerminalScreen(const TerminalScreen&) = delete;
    TerminalScreen& operator=(const TerminalScreen&) = delete;

    /// Replaces what is shown by `text`, whose lines fit the terminal; lines beyond its height are left out.
    /// 0 or the `errno` of the write, see `writeAll`.
    int draw(std::string_view text, int rows, bool (*givesUp)()) const;

    /// Gives the terminal back for a while, and takes it again.
    void leave() const;
    void enter() const;

  private:
    int descriptor;
};

} // namespace qzstatus
