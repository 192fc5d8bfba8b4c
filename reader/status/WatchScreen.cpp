#include "reader/status/WatchScreen.h"

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>

#include <poll.h>
#include <unistd.h>

#include "reader/status/Terminal.h"

// Last, since its names are short.
#define NCURSES_NOMACROS 1
#define NCURSES_WIDECHAR 1
#include <curses.h>

namespace qzstatus {

namespace {

struct Ink {
    attr_t withColor;
    short color;
    attr_t alone; ///< where there are no colors
};

Ink inkOf(Tone tone) {
    switch (tone) {
    case Tone::Plain:
        return {A_NORMAL, -1, A_NORMAL};
    case Tone::Heading:
        return {A_BOLD, -1, A_BOLD};
    case Tone::Hot:
        return {A_BOLD, COLOR_RED, A_BOLD};
    case Tone::Full:
        return {A_BOLD, COLOR_MAGENTA, A_BOLD};
    case Tone::Stale:
        return {A_REVERSE, COLOR_YELLOW, A_REVERSE};
    case Tone::Lost:
        return {A_REVERSE, COLOR_RED, A_REVERSE};
    }
    return {A_NORMAL, -1, A_NORMAL};
}

constexpr Tone tones[] = {Tone::Plain, Tone::Heading, Tone::Hot, Tone::Full, Tone::Stale, Tone::Lost};

short pairOf(Tone tone) {
    return static_cast<short>(static_cast<int>(tone) + 1);
}

bool wantsColor() {
    const char* const refused = std::getenv("NO_COLOR");
    return refused == nullptr || *refused == '\0';
}

Key keyOf(int code) {
    switch (code) {
    case KEY_UP:
        return Key::Up;
    case KEY_DOWN:
        return Key::Down;
    case KEY_PPAGE:
        return Key::PageUp;
    case KEY_NPAGE:
        return Key::PageDown;
    case 's':
        return Key::Order;
    case 'g':
        return Key::Body;
    case '?':
        return Key::Help;
    case 'q':
        return Key::Quit;
    default:
        return Key::Other;
    }
}

/// Whether something happened on a descriptor: input, its end, or an error.
bool hasEvent(int descriptor, short events) {
    pollfd asked{descriptor, events, 0};
    return ::poll(&asked, 1, 0) > 0;
}

} // namespace

struct WatchScreen::Curses {
    SCREEN* screen = nullptr;
    bool colored = false;
};

std::unique_ptr<WatchScreen> WatchScreen::open() {
    std::unique_ptr<WatchScreen> made;
    if (canRedraw(STDOUT_FILENO))
        made.reset(new WatchScreen);
    if (made && made->curses->screen == nullptr)
        made.reset();
    return made;
}

WatchScreen::WatchScreen() : curses(std::make_unique<Curses>()) {
    curses->screen = ::newterm(nullptr, stdout, stdin);
    if (curses->screen == nullptr)
        return;
    if (::tigetstr("cup") == nullptr) { // its cursor can't be moved
        ::endwin();
        ::delscreen(curses->screen);
        curses->screen = nullptr;
        return;
    }
    ::cbreak();
    ::noecho();
    ::nonl();
    ::curs_set(0);
    ::set_escdelay(25);
    ::keypad(stdscr, TRUE);
    ::nodelay(stdscr, TRUE);
    ::leaveok(stdscr, TRUE); // the cursor is not seen
    curses->colored = wantsColor() && ::has_colors() && ::start_color() == OK;
    if (curses->colored) {
        const bool transparent = ::use_default_colors() == OK;
        for (const Tone tone : tones)
            if (inkOf(tone).color >= 0)
                ::init_pair(pairOf(tone), inkOf(tone).color, transparent ? -1 : COLOR_BLACK);
    }
    if (::isatty(STDIN_FILENO) == 1)
        input = STDIN_FILENO;
    resize();
}

WatchScreen::~WatchScreen() {
    if (curses->screen == nullptr)
        return;
    leave();
    ::delscreen(curses->screen);
}

void WatchScreen::draw(const std::vector<TextLine>& lines) {
    ::werase(stdscr);
    for (int row = 0; row < static_cast<int>(lines.size()) && row < rows(); ++row) {
        ::wmove(stdscr, row, 0);
        for (const TextRun& run : lines[static_cast<std::size_t>(row)]) {
            const Ink ink = inkOf(run.tone);
            const bool colored = curses->colored && ink.color >= 0;
            ::wattr_set(stdscr, colored ? ink.withColor : ink.alone, colored ? pairOf(run.tone) : short{0},
                        nullptr);
            ::waddnstr(stdscr, run.text.data(), static_cast<int>(run.text.size()));
        }
    }
    ::wattr_set(stdscr, A_NORMAL, 0, nullptr);
    ::wrefresh(stdscr);
}

void WatchScreen::resize() {
    const TerminalSize size = terminalSize(STDOUT_FILENO);
    constexpr int longest = std::numeric_limits<short>::max(); // the library crashes beyond it
    if (size.rows > 0 && size.columns > 0 && size.rows <= longest && size.columns <= longest)
        ::resizeterm(size.rows, size.columns);
    ::clearok(stdscr, TRUE); // a terminal may have moved what was on it
}

int WatchScreen::columns() const {
    return ::getmaxx(stdscr);
}

int WatchScreen::rows() const {
    return ::getmaxy(stdscr);
}

std::vector<Key> WatchScreen::takeKeys() {
    std::vector<Key> keys;
    while (input >= 0 && hasEvent(input, POLLIN)) {
        int code = ::wgetch(stdscr);
        if (code == ERR)
            input = -1; // there is something, and it is no key: the end
        // The library may have taken in more bytes than made one key.
        for (; code != ERR; code = ::wgetch(stdscr))
            if (code != KEY_RESIZE)
                keys.push_back(keyOf(code));
    }
    return keys;
}

bool WatchScreen::isGone() const {
    return hasEvent(STDOUT_FILENO, 0);
}

void WatchScreen::leave() const {
    if (::isendwin())
        return;
    // Where the terminal has only one screen, the shell's prompt comes into the lowest line.
    ::wmove(stdscr, rows() - 1, 0);
    ::wclrtoeol(stdscr);
    ::wrefresh(stdscr);
    ::endwin();
}

} // namespace qzstatus
