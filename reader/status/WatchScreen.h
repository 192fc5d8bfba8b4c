// The terminal that the watched view is drawn on.
#pragma once

#include <memory>
#include <vector>

#include "reader/status/WatchView.h"
#include "reader/status/tableLines.h"

namespace qzstatus {

/// While one exists, standard output shows a screen of its own without a cursor, and standard input, if it is
/// a terminal too, gives keys one by one. The terminal's earlier content and modes come back with its end.
/// One object at a time.
class WatchScreen {
  public:
    /// Null for a terminal that can't be drawn on in place.
    static std::unique_ptr<WatchScreen> open();
    ~WatchScreen();
    WatchScreen(const WatchScreen&) = delete;
    WatchScreen& operator=(const WatchScreen&) = delete;

    /// Replaces what is shown. The lines fit the terminal.
    void draw(const std::vector<TextLine>& lines);

    /// Fits the screen to the terminal's present size; everything is drawn anew then.
    void resize();

    int columns() const;
    int rows() const;

    /// What to wait on for keys; -1 once there is nothing to be read any more.
    int keyInput() const { return input; }

    /// The keys that were pressed since the last call.
    std::vector<Key> takeKeys();

    /// Whether the terminal is gone, as after its window was closed.
    bool isGone() const;

    /// Gives the terminal back for a while; the next `draw` takes it again.
    void leave() const;

  private:
    WatchScreen();

    struct Curses;
    std::unique_ptr<Curses> curses;
    int input = -1;
};

} // namespace qzstatus
