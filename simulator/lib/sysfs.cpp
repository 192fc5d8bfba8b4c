// Preloaded into the program: counts how often files below /sys are opened, makes some of them fail or
// change, lists folders there in the same order on every host, counts closed libraries, and keeps a clock
// that scripted rounds can advance.
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include "simulator/lib/Session.h"

namespace {

using namespace qzsim;

/// The function that this library replaces.
template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// The errno that reading a descriptor fails with; 0 for one that is read as usual.
std::array<std::atomic<int>, 4096> readErrors;

std::atomic<std::int64_t> clockOffsetMs;

std::atomic<int>* readErrorOf(int descriptor) {
    const bool isKept = descriptor >= 0 && static_cast<std::size_t>(descriptor) < readErrors.size();
    return isKept ? &readErrors[static_cast<std::size_t>(descriptor)] : nullptr;
}

constexpr std::string_view drmRoot = "/sys/class/drm/";

bool isWatched(const char* path) {
    return path != nullptr && std::strncmp(path, drmRoot.data(), drmRoot.size() - 1) == 0;
}

const SysfsFile* findFile(std::string_view path) {
    for (const Card& card : Session::instance().machine().cards) {
        const std::string prefix = std::string(drmRoot) + card.name + "/device/";
        if (path.substr(0, prefix.size()) != prefix)
            continue;
        for (const SysfsFile& file : card.files)
            if (path.substr(prefix.size()) == file.path)
                return &file;
    }
    return nullptr;
}

/// The file name that a library was loaded from; empty if it is not a library.
std::string libraryName(void* library) {
    link_map* map = nullptr;
    if (library == nullptr || dlinfo(library, RTLD_DI_LINKMAP, &map) != 0 || map->l_name == nullptr)
        return {};
    const char* slash = std::strrchr(map->l_name, '/');
    return slash == nullptr ? map->l_name : slash + 1;
}

int openText(const std::string& text) {
    const int descriptor = memfd_create("sysfs value", MFD_CLOEXEC);
    if (descriptor >= 0) {
        if (write(descriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
            std::fputs("simulator: a value cannot be written\n", stderr);
        lseek(descriptor, 0, SEEK_SET);
    }
    return descriptor;
}

/// Opens a watched path; `openReal` opens the real file.
template <typename OpenReal>
int openWatched(const char* path, OpenReal openReal) {
    std::uint64_t reading = 0;
    const Fault* fault = Session::instance().opened(path, reading);
    const SysfsFile* file = findFile(path);
    const bool isUnreadable = file != nullptr && file->kind == SysfsFile::Kind::Unreadable;
    if (isUnreadable || (fault != nullptr && fault->action == Action::Refuse)) {
        errno = isUnreadable ? EACCES : static_cast<int>(fault->number);
        return -1;
    }
    if (fault != nullptr && fault->action == Action::Answer)
        return openText(fault->text);
    const bool changes = file != nullptr && file->kind == SysfsFile::Kind::Changing;
    const int descriptor =
        changes ? openText(std::to_string(Session::instance().valueAt(file->figure, reading)) + "\n")
                : openReal();
    if (auto* error = readErrorOf(descriptor)) {
        *error = fault != nullptr                                          ? static_cast<int>(fault->number)
                 : file != nullptr && file->kind == SysfsFile::Kind::Fails ? file->errorNumber
                                                                           : 0;
    }
    return descriptor;
}

/// Whether a read of that descriptor is to fail; errno is then set.
bool failsToRead(int descriptor) {
    const auto* error = readErrorOf(descriptor);
    if (error == nullptr || *error == 0)
        return false;
    errno = *error;
    return true;
}

/// A name's position in a listing: cards in the description's order, then everything else.
std::size_t placeOf(const char* name) {
    const auto& cards = Session::instance().machine().cards;
    std::size_t place = 0;
    while (place < cards.size() && cards[place].name != name)
        ++place;
    return place;
}

/// The entries of the watched folders that are being read, the next one last. Other entries than cards come
/// in reverse order of name: the same on every host's file system, and different from a sorted listing.
std::map<DIR*, std::vector<dirent64>> listings;
std::mutex listingsGuard;

std::vector<dirent64> entriesOf(DIR* directory) {
    static const auto real = next<dirent64*(DIR*)>("readdir64");
    std::vector<dirent64> entries;
    while (const dirent64* entry = real(directory))
        std::memcpy(&entries.emplace_back(), entry, entry->d_reclen);
    std::sort(entries.begin(), entries.end(), [](const dirent64& one, const dirent64& other) {
        const std::size_t place = placeOf(one.d_name);
        const std::size_t otherPlace = placeOf(other.d_name);
        return place != otherPlace ? place > otherPlace : std::strcmp(one.d_name, other.d_name) < 0;
    });
    return entries;
}

mode_t modeOf(int flags, std::va_list arguments) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
}

} // namespace

QZSIM_API void qzsim_advanceClock(std::int64_t milliseconds) {
    clockOffsetMs += milliseconds;
}

QZSIM_API int open(const char* path, int flags, ...) {
    static const auto real = next<int(const char*, int, ...)>("open");
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    const auto openReal = [&] { return real(path, flags, mode); };
    return isWatched(path) ? openWatched(path, openReal) : openReal();
}

QZSIM_API int open64(const char* path, int flags, ...) {
    static const auto real = next<int(const char*, int, ...)>("open64");
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    const auto openReal = [&] { return real(path, flags, mode); };
    return isWatched(path) ? openWatched(path, openReal) : openReal();
}

QZSIM_API int openat(int directory, const char* path, int flags, ...) {
    static const auto real = next<int(int, const char*, int, ...)>("openat");
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    const auto openReal = [&] { return real(directory, path, flags, mode); };
    return isWatched(path) ? openWatched(path, openReal) : openReal();
}

// What a program built with _FORTIFY_SOURCE calls.
QZSIM_API int __open_2(const char* path, int flags) {
    return open(path, flags);
}
QZSIM_API int __open64_2(const char* path, int flags) {
    return open64(path, flags);
}

QZSIM_API ssize_t read(int descriptor, void* buffer, size_t size) {
    static const auto real = next<ssize_t(int, void*, size_t)>("read");
    return failsToRead(descriptor) ? -1 : real(descriptor, buffer, size);
}

QZSIM_API ssize_t __read_chk(int descriptor, void* buffer, size_t size, size_t room) {
    static const auto real = next<ssize_t(int, void*, size_t, size_t)>("__read_chk");
    return failsToRead(descriptor) ? -1 : real(descriptor, buffer, size, room);
}

QZSIM_API ssize_t pread64(int descriptor, void* buffer, size_t size, off64_t offset) {
    static const auto real = next<ssize_t(int, void*, size_t, off64_t)>("pread64");
    return failsToRead(descriptor) ? -1 : real(descriptor, buffer, size, offset);
}

QZSIM_API int close(int descriptor) {
    static const auto real = next<int(int)>("close");
    if (auto* error = readErrorOf(descriptor))
        *error = 0;
    return real(descriptor);
}

QZSIM_API DIR* opendir(const char* path) {
    static const auto real = next<DIR*(const char*)>("opendir");
    DIR* directory = real(path);
    if (!isWatched(path))
        return directory;
    Session::instance().counters().happened("list:" + std::string(path));
    if (directory != nullptr) {
        const std::lock_guard lock(listingsGuard);
        listings[directory] = entriesOf(directory);
        listings[directory].emplace_back();
    }
    return directory;
}

QZSIM_API dirent64* readdir64(DIR* directory) {
    static const auto real = next<dirent64*(DIR*)>("readdir64");
    const std::lock_guard lock(listingsGuard);
    const auto found = listings.find(directory);
    if (found == listings.end())
        return real(directory);
    std::vector<dirent64>& entries = found->second;
    // The last is the one returned before, which may be overwritten now.
    if (!entries.empty())
        entries.pop_back();
    return entries.empty() ? nullptr : &entries.back();
}

QZSIM_API dirent* readdir(DIR* directory) {
    return reinterpret_cast<dirent*>(readdir64(directory));
}

QZSIM_API int closedir(DIR* directory) {
    static const auto real = next<int(DIR*)>("closedir");
    const std::lock_guard lock(listingsGuard);
    listings.erase(directory);
    return real(directory);
}

QZSIM_API int dlclose(void* library) {
    static const auto real = next<int(void*)>("dlclose");
    if (const std::string name = libraryName(library); !name.empty())
        Session::instance().counters().happened("close:" + name);
    return real(library);
}

QZSIM_API int clock_gettime(clockid_t clock, timespec* time) {
    static const auto real = next<int(clockid_t, timespec*)>("clock_gettime");
    const int result = real(clock, time);
    const std::int64_t offset = clockOffsetMs;
    if (result == 0 && offset != 0 && (clock == CLOCK_MONOTONIC || clock == CLOCK_REALTIME)) {
        time->tv_sec += offset / 1000;
        time->tv_nsec += (offset % 1000) * 1000000;
        if (time->tv_nsec >= 1000000000) {
            time->tv_nsec -= 1000000000;
            ++time->tv_sec;
        }
    }
    return result;
}
