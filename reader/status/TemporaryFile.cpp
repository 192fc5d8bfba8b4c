#include "reader/status/TemporaryFile.h"

#include <cerrno>
#include <cstdlib>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "reader/status/output.h"

namespace qzstatus {

namespace {

/// Without the target's name, which may already be as long as names can be. The dot in front and the ending
/// keep it from programs that collect files by their names.
constexpr std::string_view namePattern = ".qzGpuStatus.tmp-XXXXXX";

bool isTemporaryName(std::string_view name) {
    const std::string_view beginning = namePattern.substr(0, namePattern.find('X'));
    return name.size() == namePattern.size() && name.substr(0, beginning.size()) == beginning;
}

bool isOwnFile(int descriptor) {
    struct stat info{};
    return ::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid();
}

struct ListClose {
    void operator()(DIR* list) const { ::closedir(list); }
};

void removeLeftovers(const std::string& directory) {
    const std::unique_ptr<DIR, ListClose> list(::opendir(directory.empty() ? "." : directory.c_str()));
    if (list == nullptr)
        return;
    const int folder = ::dirfd(list.get());
    while (const dirent* entry = ::readdir(list.get())) {
        if (!isTemporaryName(entry->d_name))
            continue;
        // For writing, too: network file systems give an exclusive lock on nothing else.
        constexpr int flags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
        const FileDescriptor file(::openat(folder, entry->d_name, flags));
        if (file.isOpen() && isOwnFile(file.get()) && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0)
            ::unlinkat(folder, entry->d_name, 0);
    }
}

/// Whether the lock was taken and the file still has its name: another run may have taken it for a leftover
/// between the two calls. A file system without locks takes nobody's.
bool isSafe(int descriptor) {
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        return false;
    struct stat info{};
    return ::fstat(descriptor, &info) != 0 || info.st_nlink > 0;
}

} // namespace

TemporaryFile::TemporaryFile(const std::string& directory) {
    removeLeftovers(directory);
    do {
        path = directory + std::string(namePattern);
        file = FileDescriptor(::mkostemp(path.data(), O_CLOEXEC));
    } while (file.isOpen() && !isSafe(file.get()));
}

TemporaryFile::~TemporaryFile() {
    if (isOpen() && !renamed)
        ::unlink(path.c_str());
}

int TemporaryFile::fill(std::string_view text, unsigned mode) const {
    if (const int error = writeAll(file.get(), text))
        return error;
    return ::fchmod(file.get(), mode) == 0 && ::fsync(file.get()) == 0 ? 0 : errno;
}

int TemporaryFile::renameTo(const std::string& target) {
    if (::rename(path.c_str(), target.c_str()) != 0)
        return errno;
    renamed = true;
    return 0;
}

} // namespace qzstatus
