// Standard output, line by line.
#pragma once

#include <cstdint>

/// Writes `text` and a line break to standard output. Does not flush.
void printLine(const char* text);

/// Flushes standard output and standard error.
void flushOutput();

/// While it lives, printing never waits for a reader. A line that can't be written at once is dropped whole
/// and counted; one that only begins to fit (longer than PIPE_BUF) counts too, and the next line starts on a
/// new line. Output that fails (reader gone, disk full) is lost without being counted, as ever.
///
/// What vendors' libraries print doesn't wait either, where the streams can be reopened: pipes and terminals
/// that this user may open. Not sockets, nor another user's pipe.
///
/// One at a time.
class NonBlockingOutput {
  public:
    NonBlockingOutput();

    /// Writes the number of dropped lines, unless it is 0, to standard error, if that can be written at once.
    ~NonBlockingOutput();

    NonBlockingOutput(const NonBlockingOutput&) = delete;
    NonBlockingOutput& operator=(const NonBlockingOutput&) = delete;

    void printLine(const char* text);

  private:
    std::uint64_t dropped = 0;
    bool isLineOpen = false; ///< the last line that was written lacks its end
};
