#include "reader/status/output.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "reader/status/TemporaryFile.h"
#include "support/FileDescriptor.h"

namespace qzstatus {

namespace {

/// Holds signals back while it lives: those that come are delivered afterwards. SIGKILL can't be.
class SignalBlock {
  public:
    SignalBlock() {
        sigset_t all;
        ::sigfillset(&all);
        ::sigprocmask(SIG_BLOCK, &all, &before);
    }
    ~SignalBlock() { ::sigprocmask(SIG_SETMASK, &before, nullptr); }
    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;

  private:
    sigset_t before{};
};

/// The new name survives a power cut only once the directory is on the disk too. Not every file system can do
/// that; the file itself is whole either way.
void syncDirectory(const std::string& directory) {
    const FileDescriptor opened(
        ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.isOpen())
        ::fsync(opened.get());
}

std::string failed(const std::string& path, int error) {
    return "cannot write '" + path + "': " + std::strerror(error);
}

} // namespace

int writeAll(int descriptor, std::string_view text, bool (*givesUp)()) {
    while (!text.empty()) {
        if (givesUp != nullptr && givesUp())
            return EINTR;
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return errno;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

bool takesOutput(int descriptor) {
    constexpr int second = 1000;
    pollfd asked{descriptor, POLLOUT, 0};
    return ::poll(&asked, 1, second) > 0;
}

std::string replaceFile(const std::string& path, std::string_view text, unsigned mode) {
    struct stat info{};
    if (::lstat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode))
        return "cannot write '" + path + "': it is there and is no regular file";

    const auto slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    if (slash == path.size() - 1)
        return failed(path, EISDIR);

    const SignalBlock whileATemporaryExists;
    TemporaryFile file(directory);
    if (!file.isOpen())
        return failed(path, errno);
    if (const int error = file.fill(text, mode))
        return failed(path, error);
    if (const int error = file.renameTo(path))
        return failed(path, error);
    syncDirectory(directory);
    return {};
}

} // namespace qzstatus
