#include "support/procEntry.h"

#include <algorithm>
#include <charconv>

namespace {

/// Removes the next word from `text`: up to a blank or the line's end.
std::string_view nextWord(std::string_view& text) {
    constexpr std::string_view blanks = " \n";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(blanks));
    text.remove_prefix(word.size());
    return word;
}

/// `text` as a number if it is one as a whole, else 0.
template <class Number>
Number wholeNumber(std::string_view text) {
    Number number = 0;
    const char* const begin = text.data();
    const char* const end = begin + text.size();
    const auto parsed = std::from_chars(begin, end, number);
    return parsed.ec == std::errc() && parsed.ptr == end ? number : 0;
}

} // namespace

// 4711 (a name) S 1 4711 4711 0 -1 4194560 1253 0 0 0 3 1 0 0 20 0 1 0 88213 ...
bool parseProcStat(std::string_view bytes, ProcStat& stat) {
    // The name may hold brackets, blanks and line ends; what follows it holds no bracket.
    const std::size_t opening = bytes.find('(');
    const std::size_t closing = bytes.rfind(')');
    if (opening == std::string_view::npos || closing == std::string_view::npos || closing < opening)
        return false;
    std::string_view rest = bytes.substr(closing + 1);
    const std::string_view state = nextWord(rest);
    if (state.size() != 1)
        return false;
    stat.comm = bytes.substr(opening + 1, closing - opening - 1);
    stat.state = state.front();
    // The state is the third word, the threads are the twentieth, the start time is the twenty-second.
    stat.parent = wholeNumber<int>(nextWord(rest));
    constexpr int wordsToThreads = 15;
    for (int i = 0; i < wordsToThreads; ++i)
        nextWord(rest);
    stat.threads = wholeNumber<int>(nextWord(rest));
    nextWord(rest);
    stat.startTime = wholeNumber<quint64>(nextWord(rest));
    return true;
}

// render\0--farm\0-v\0
ProcArguments parseProcCmdline(std::string_view bytes) {
    ProcArguments arguments;
    arguments.program = bytes.substr(0, bytes.find('\0'));
    bytes.remove_prefix(std::min(arguments.program.size() + 1, bytes.size()));
    arguments.first = bytes.substr(0, bytes.find('\0'));
    return arguments;
}

std::string_view parseProcComm(std::string_view bytes) {
    if (!bytes.empty() && bytes.back() == '\n')
        bytes.remove_suffix(1);
    return bytes;
}

// /usr/bin/render (deleted)
std::string_view withoutDeletedMark(std::string_view exe) {
    constexpr std::string_view mark = " (deleted)";
    if (exe.size() > mark.size() && exe.substr(exe.size() - mark.size()) == mark)
        exe.remove_suffix(mark.size());
    return exe;
}

int parseProcPid(std::string_view entry) {
    return entry.empty() || entry.front() < '1' || entry.front() > '9' ? 0 : wholeNumber<int>(entry);
}

std::string_view baseName(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}
