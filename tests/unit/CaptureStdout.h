// What the code under test writes to standard output, as bytes.
#pragma once

#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <QByteArray>

/// Redirects standard output into memory until `take` or its destructor is called. Qt Test prints
/// its failures there too, so text is taken first and compared afterwards.
class CaptureStdout {
  public:
    CaptureStdout() {
        std::fflush(stdout);
        original = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
        memory = memfd_create("stdout", MFD_CLOEXEC);
        if (original < 0 || memory < 0 || dup2(memory, STDOUT_FILENO) < 0)
            std::abort();
    }

    ~CaptureStdout() { end(); }

    CaptureStdout(const CaptureStdout&) = delete;
    CaptureStdout& operator=(const CaptureStdout&) = delete;

    /// What has left the process so far, without the stream's buffer.
    QByteArray written() const {
        QByteArray text(static_cast<int>(lseek(memory, 0, SEEK_END)), '\0');
        const ssize_t length = pread(memory, text.data(), static_cast<std::size_t>(text.size()), 0);
        return length == text.size() ? text : QByteArray();
    }

    /// Returns all that was written and restores standard output.
    QByteArray take() {
        std::fflush(stdout);
        const QByteArray text = written();
        end();
        return text;
    }

  private:
    void end() {
        if (original < 0)
            return;
        std::fflush(stdout);
        dup2(original, STDOUT_FILENO);
        close(original);
        close(memory);
        original = -1;
    }

    int original = -1;
    int memory = -1;
};

/// What `action` writes to standard output.
template <class Action>
QByteArray printedBy(Action action) {
    CaptureStdout capture;
    action();
    return capture.take();
}
