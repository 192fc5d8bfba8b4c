// The one owner of an open file descriptor.
#pragma once

#include <cerrno>
#include <utility>

#include <unistd.h>

/// Closes its descriptor on destruction. Closing preserves `errno`, so a failure's reason survives
/// clean-up.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int opened) : fd(opened) {}
    ~FileDescriptor() { reset(); }

    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    FileDescriptor(FileDescriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            reset();
            fd = std::exchange(other.fd, -1);
        }
        return *this;
    }

    bool isOpen() const { return fd >= 0; }
    int get() const { return fd; } ///< -1 if nothing is open

    void reset() {
        if (fd < 0)
            return;
        const int reason = errno;
        // Not repeated on EINTR: Linux has released the number by then, and it may already be reused.
        ::close(std::exchange(fd, -1));
        errno = reason;
    }

  private:
    int fd = -1;
};
