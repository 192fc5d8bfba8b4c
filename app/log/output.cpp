#include "app/log/output.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <stdio_ext.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/FileDescriptor.h"

namespace {

NonBlockingOutput* nonBlocking = nullptr;

/// Gives a pipe or terminal a file description of this process's own, which does not wait. The inherited one
/// is shared with the parent and stays as it is; so does the descriptor where there is no other to be had.
void reopenNonBlocking(int descriptor) {
    struct stat info{};
    const bool isPipe = fstat(descriptor, &info) == 0 && S_ISFIFO(info.st_mode);
    if (!isPipe && isatty(descriptor) != 1)
        return;
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags < 0)
        return;
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    const FileDescriptor reopened(open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (reopened.isOpen())
        dup2(reopened.get(), descriptor);
}

bool isReady(int descriptor) {
    pollfd asked{descriptor, POLLOUT, 0};
    return poll(&asked, 1, 0) > 0;
}

/// How much a descriptor that is ready takes without waiting, even where it could not be reopened. Terminals
/// have room for 256 bytes then, and a line break may take two.
std::size_t readyCapacity(int descriptor) {
    return isatty(descriptor) == 1 ? 128 : PIPE_BUF;
}

ssize_t writePiece(int descriptor, std::string_view piece) {
    const ssize_t sent = send(descriptor, piece.data(), piece.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return sent < 0 && errno == ENOTSOCK ? write(descriptor, piece.data(), piece.size()) : sent;
}

/// Gives the number of bytes written: fewer than there are where the rest would have to wait, all of them
/// where the output fails.
std::size_t writeAtOnce(int descriptor, std::string_view bytes) {
    const std::size_t capacity = readyCapacity(descriptor);
    std::size_t written = 0;
    while (written < bytes.size() && isReady(descriptor)) {
        const ssize_t count = writePiece(descriptor, bytes.substr(written, capacity));
        if (count > 0)
            written += static_cast<std::size_t>(count);
        else if (count == 0 || errno == EAGAIN)
            break;
        else if (errno != EINTR)
            return bytes.size();
    }
    return written;
}

/// A library's text without a line break stays in the stream's buffer, and goes out before the next line. It
/// is dropped where it would have to wait.
void flushLibrariesText() {
    if (__fpending(stdout) == 0)
        return;
    if (isReady(STDOUT_FILENO))
        std::fflush(stdout);
    else
        __fpurge(stdout);
}

} // namespace

void printLine(const char* text) {
    if (nonBlocking != nullptr)
        nonBlocking->printLine(text);
    else
        std::puts(text);
}

void flushOutput() {
    if (nonBlocking != nullptr)
        flushLibrariesText();
    std::fflush(stdout);
    std::fflush(stderr);
}

NonBlockingOutput::NonBlockingOutput() {
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
        reopenNonBlocking(stream);
    nonBlocking = this;
}

NonBlockingOutput::~NonBlockingOutput() {
    flushLibrariesText();
    nonBlocking = nullptr;
    if (dropped > 0)
        writeAtOnce(STDERR_FILENO, "qzGpuInfo: lines dropped because standard output was not read in time: " +
                                       std::to_string(dropped) + "\n");
}

void NonBlockingOutput::printLine(const char* text) {
    flushLibrariesText();
    const std::string_view end = isLineOpen ? "\n" : "";
    const std::string line = std::string(end) + text + "\n";
    const std::size_t written = writeAtOnce(STDOUT_FILENO, line);
    if (written < line.size())
        ++dropped;
    if (written > 0)
        isLineOpen = written > end.size() && written < line.size();
}
