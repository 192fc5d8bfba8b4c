#include "support/ourProcessAlreadyExists.h"

#include <cerrno>
#include <cstdio>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "support/FileDescriptor.h"
#include "support/ProcessName.h"
#include "support/procEntry.h"

namespace {

enum class Verdict { No, Yes, Unknown };

/// The entries of one process. Bounded buffers, nothing allocated.
class ProcessEntries {
  public:
    ProcessEntries(const char* procRoot, int pid) {
        const int length = std::snprintf(path, sizeof path - longestEntry, "%s/%d/", procRoot, pid);
        if (length > 0 && static_cast<std::size_t>(length) < sizeof path - longestEntry)
            entry = path + length;
    }

    /// Whether the process has the name. Unknown: it may, but there is no descriptor or memory to look.
    /// Always sets the start time, 0 if unknown.
    Verdict judge(const ProcessName& name, quint64& startTime) {
        startTime = 0;
        char statBytes[1024];
        ProcStat stat;
        if (parseProcStat(read("stat", statBytes, sizeof statBytes), stat)) {
            startTime = stat.startTime;
            if (stat.isDead())
                return Verdict::No;
        } else {
            stat.comm = parseProcComm(read("comm", statBytes, sizeof statBytes));
        }
        if (name.isCommand(stat.comm))
            return Verdict::Yes;
        const Verdict executable = judgeExecutable(name);
        const bool isCutCommand = executable == Verdict::Unknown && name.mayBeCutCommand(stat.comm);
        if (executable == Verdict::Yes || isCutCommand || isArgument(name, stat.comm))
            return Verdict::Yes;
        return isStarved ? Verdict::Unknown : Verdict::No;
    }

  private:
    static constexpr std::size_t pathCapacity = 4096;
    static constexpr std::size_t longestEntry = sizeof "cmdline";

    /// Unknown: the link cannot be read (another user's process, a kernel thread).
    Verdict judgeExecutable(const ProcessName& name) {
        char target[pathCapacity];
        const ssize_t length = entry == nullptr ? -1 : readlink(named("exe"), target, sizeof target);
        if (length <= 0 || static_cast<std::size_t>(length) == sizeof target)
            return Verdict::Unknown;
        const std::string_view exe(target, static_cast<std::size_t>(length));
        const bool matches = name.isProgram(exe) || name.isProgram(withoutDeletedMark(exe));
        return matches ? Verdict::Yes : Verdict::No;
    }

    bool isArgument(const ProcessName& name, std::string_view comm) {
        char bytes[2 * pathCapacity];
        const ProcArguments arguments = parseProcCmdline(read("cmdline", bytes, sizeof bytes));
        return name.isProgram(arguments.program) || name.isScript(comm, arguments.first);
    }

    /// What one call of `read` returns; empty if it fails.
    std::string_view read(const char* which, char* buffer, std::size_t capacity) {
        if (entry == nullptr)
            return {};
        const FileDescriptor file(open(named(which), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
        if (!file.isOpen()) {
            isStarved = isStarved || errno == EMFILE || errno == ENFILE || errno == ENOMEM;
            return {};
        }
        ssize_t length = 0;
        do {
            length = ::read(file.get(), buffer, capacity);
        } while (length < 0 && errno == EINTR);
        return length > 0 ? std::string_view(buffer, static_cast<std::size_t>(length)) : std::string_view();
    }

    const char* named(const char* which) {
        std::snprintf(entry, longestEntry, "%s", which);
        return path;
    }

    char path[pathCapacity] = {};
    char* entry = nullptr; ///< where in the path an entry's name goes; null if there is no room
    bool isStarved = false;
};

/// A process by its id and start time, since ids are reused.
struct Match {
    int pid = 0; ///< 0: none
    quint64 startTime = 0;
};

struct ListClose {
    void operator()(DIR* list) const { closedir(list); }
};

/// Reads the whole list. Sets `match`'s process when the answer is Yes.
Verdict searchAll(const char* procRoot, const ProcessName& name, int leftOut, Match& match) {
    const std::unique_ptr<DIR, ListClose> list(opendir(procRoot));
    if (list == nullptr)
        return Verdict::Unknown;
    // A process list holds at least the caller; one without any process is an empty mount point.
    bool isList = false;
    bool isSure = true;
    errno = 0;
    while (const dirent* found = readdir(list.get())) {
        const int pid = parseProcPid(found->d_name);
        if (pid != 0) {
            isList = true;
            const Verdict verdict =
                pid == leftOut ? Verdict::No : ProcessEntries(procRoot, pid).judge(name, match.startTime);
            if (verdict == Verdict::Yes) {
                match.pid = pid;
                return verdict;
            }
            isSure = isSure && verdict == Verdict::No;
        }
        errno = 0;
    }
    return isList && isSure && errno == 0 ? Verdict::No : Verdict::Unknown;
}

} // namespace

bool ourProcessAlreadyExists(const _qzString8_allSize<25>& name, bool caseSensitive, bool leaveOutCaller,
                             qint64* foundPid, const char* procRoot) {
    // Tried first, so that a check repeated every few seconds need not read the whole list.
    static thread_local Match last;
    if (foundPid != nullptr)
        *foundPid = 0;
    const ProcessName wanted({name.c_str(), name.length()}, name.length() == _qzString8_allSize<25>::capacity,
                             caseSensitive);
    if (!wanted.isUsable())
        return false;

    const int leftOut = leaveOutCaller ? getpid() : 0;
    quint64 startTime = 0;
    const bool isStillThere = last.pid != 0 && last.pid != leftOut &&
                              ProcessEntries(procRoot, last.pid).judge(wanted, startTime) == Verdict::Yes &&
                              startTime == last.startTime;
    if (!isStillThere) {
        last = {};
        const Verdict verdict = searchAll(procRoot, wanted, leftOut, last);
        if (verdict != Verdict::Yes)
            return verdict == Verdict::Unknown;
    }
    if (foundPid != nullptr)
        *foundPid = last.pid;
    return true;
}
