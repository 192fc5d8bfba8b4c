// Standard output as a test sees it.
#pragma once

#include <cstdio>

#include <QByteArray>

#include <unistd.h>

/// From its construction, what the process writes to standard output goes to a file instead. Qt Test reports
/// on standard output too, so take the text before comparing it.
class CaptureStdout {
  public:
    CaptureStdout() : file(std::tmpfile()) {
        std::fflush(stdout);
        saved = ::dup(STDOUT_FILENO);
        if (file == nullptr || saved < 0 || ::dup2(::fileno(file), STDOUT_FILENO) < 0)
            qFatal("standard output can't be captured");
    }
    CaptureStdout(const CaptureStdout&) = delete;
    CaptureStdout& operator=(const CaptureStdout&) = delete;

    /// A text that nobody took is shown after all: a failed comparison's report would be in it.
    ~CaptureStdout() {
        if (file != nullptr)
            std::fputs(text().constData(), stdout);
    }

    /// Ends the capture and gives everything that was written, line ends included.
    QByteArray text() {
        std::fflush(stdout);
        ::dup2(saved, STDOUT_FILENO);
        ::close(saved);
        QByteArray written;
        std::rewind(file);
        char piece[4096];
        while (const std::size_t length = std::fread(piece, 1, sizeof piece, file))
            written.append(piece, static_cast<int>(length));
        std::fclose(file);
        file = nullptr;
        return written;
    }

  private:
    std::FILE* file;
    int saved = -1;
};

/// What `action` writes to standard output.
template <class Action>
QByteArray printedBy(Action action) {
    CaptureStdout capture;
    action();
    return capture.text();
}
