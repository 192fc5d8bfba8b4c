#include "reader/status/output.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/FileDescriptor.h"

namespace qzstatus {

namespace {

/// A file of its own in the target's directory, removed again unless it got the target's name.
class TemporaryFile {
  public:
    /// The name begins with a dot and does not end like the target's, so that who collects files by their
    /// ending passes it over.
    TemporaryFile(const std::string& directory, const std::string& baseName)
        : path(directory + "." + baseName + ".XXXXXX"), file(::mkostemp(path.data(), O_CLOEXEC)) {}

    ~TemporaryFile() {
        if (isOpen() && !renamed)
            ::unlink(path.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    bool isOpen() const { return file.isOpen(); }

    /// 0 or the `errno` of what failed.
    int fill(std::string_view text) {
        if (const int error = writeAll(file.get(), text))
            return error;
        return ::fchmod(file.get(), 0644) == 0 && ::fsync(file.get()) == 0 ? 0 : errno;
    }

    int renameTo(const std::string& target) {
        if (::rename(path.c_str(), target.c_str()) != 0)
            return errno;
        renamed = true;
        return 0;
    }

  private:
    std::string path;
    FileDescriptor file;
    bool renamed = false;
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

int writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return errno;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

std::string replaceFile(const std::string& path, std::string_view text) {
    struct stat info{};
    if (::lstat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode))
        return "cannot write '" + path + "': it is there and is no regular file";

    const auto slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    const std::string baseName = slash == std::string::npos ? path : path.substr(slash + 1);
    if (baseName.empty())
        return failed(path, EISDIR);

    TemporaryFile file(directory, baseName);
    if (!file.isOpen())
        return failed(path, errno);
    if (const int error = file.fill(text))
        return failed(path, error);
    if (const int error = file.renameTo(path))
        return failed(path, error);
    syncDirectory(directory);
    return {};
}

} // namespace qzstatus
