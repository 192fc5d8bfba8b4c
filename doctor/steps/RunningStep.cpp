#include "doctor/steps/RunningStep.h"

#include <array>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QJsonDocument>
#include <QRandomGenerator>

#include "doctor/steps/Channel.h"
#include "doctor/steps/processes.h"

namespace doctor {

namespace {

/// Numbers below belong to the standard streams and to what the child opens.
constexpr int lowestLine = 100;

/// Sets up the child: its own process group, killed with the doctor, no core file, output to the socket.
void becomeChild(pid_t parent, int line) {
    ::setpgid(0, 0);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent)
        ::_exit(0);
    // One byte: the kernel then neither writes a core file nor starts a core collector.
    const rlimit noCore{1, 1};
    ::setrlimit(RLIMIT_CORE, &noCore);
    const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (nothing >= 0)
        ::dup2(nothing, STDIN_FILENO);
    ::dup2(line, STDOUT_FILENO);
    ::dup2(line, STDERR_FILENO);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

[[noreturn]] void runChild(const Step& step, pid_t parent, int line, const QByteArray& mark) {
    becomeChild(parent, line);
    const int kept = ::fcntl(line, F_DUPFD_CLOEXEC, lowestLine);
    Channel channel(kept >= 0 ? kept : line, mark);
    step.work(channel);
    channel.send(messageDone);
    if (!step.runsExitHandlers)
        ::_exit(0);
    channel.begin(QStringLiteral("exit"));
    std::exit(0);
}

} // namespace

RunningStep::RunningStep(const Step& stepToRun, int place, StepRunner::SendSignal send)
    : step(&stepToRun), placeInList(place), sendSignal(send),
      mark("\x01qz" + QByteArray::number(QRandomGenerator::system()->generate64(), 16) + "\x02"),
      started(Clock::now()) {
    std::array<int, 2> ends{-1, -1};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return;
    line = FileDescriptor(ends[0]);
    const FileDescriptor childsEnd(ends[1]);
    const pid_t parent = ::getpid();
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0)
        runChild(*step, parent, childsEnd.get(), mark);
    if (pid < 0)
        return;
    // In both processes, since either may need it first.
    ::setpgid(pid, pid);
    outcome.pid = pid;
}

std::chrono::milliseconds RunningStep::age() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started);
}

void RunningStep::receive() {
    // Longer than any packet that the system permits.
    static QByteArray room(1 << 20, Qt::Uninitialized);
    // A closed socket and an empty packet both read as 0 bytes; only the former does so repeatedly.
    constexpr int mostEmptyPackets = 64;
    for (int empty = 0; line.isOpen();) {
        const ssize_t length =
            ::recv(line.get(), room.data(), static_cast<std::size_t>(room.size()), MSG_DONTWAIT);
        if (length < 0 && errno == EINTR)
            continue;
        if (length < 0)
            return;
        if (length > 0)
            take(QByteArray(room.constData(), static_cast<int>(length)));
        else if (++empty > mostEmptyPackets)
            line.reset();
    }
}

void RunningStep::take(const QByteArray& packet) {
    if (!packet.startsWith(mark)) {
        const QByteArray kept = packet.left(std::max(0, StepRunner::mostOutput - outputBytes));
        outputBytes += kept.size();
        if (!kept.isEmpty())
            outcome.messages.append({messageOutput, {{"text", textOfBytes(kept)}}});
        return;
    }
    const int end = packet.indexOf('\n', mark.size());
    const Message message{QString::fromLatin1(packet.mid(mark.size(), end - mark.size())),
                          QJsonDocument::fromJson(packet.mid(end + 1)).object()};
    if (message.kind == messageBegin)
        outcome.inside = message.content.value("call").toString();
    if (message.kind == messageEnd)
        outcome.inside.clear();
    if (message.kind == messageDone)
        outcome.end = StepOutcome::End::Done;
    outcome.messages.append(message);
}

bool RunningStep::isOver(const StepLimits& limits) {
    siginfo_t ended{};
    // Not reaped yet, so that the numbers of the process and its group can't be reused.
    const bool isThere =
        outcome.pid > 0 &&
        ::waitid(P_PID, static_cast<id_t>(outcome.pid), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
        ended.si_pid == 0;
    if (!isThere) {
        collect();
        return true;
    }
    if (!killed && age() >= limits.step) {
        killGroup();
        killed = Clock::now();
    }
    if (killed && Clock::now() - *killed >= limits.afterKill) {
        outcome.end = StepOutcome::End::TimedOut;
        outcome.survived = true;
        outcome.state = processState(static_cast<pid_t>(outcome.pid));
        outcome.seconds = std::chrono::duration<double>(Clock::now() - started).count();
        return true;
    }
    return false;
}

/// The child has ended: kills its group as well.
void RunningStep::collect() {
    outcome.seconds = std::chrono::duration<double>(Clock::now() - started).count();
    if (outcome.pid <= 0)
        return;
    killGroup();
    receive();
    int status = 0;
    while (::waitpid(static_cast<pid_t>(outcome.pid), &status, 0) < 0 && errno == EINTR) {
    }
    const bool toldAll = outcome.isDone();
    if (killed) {
        outcome.end = StepOutcome::End::TimedOut;
    } else if (WIFSIGNALED(status)) {
        outcome.end = StepOutcome::End::Crashed;
        outcome.code = WTERMSIG(status);
    } else if (!toldAll || WEXITSTATUS(status) != 0) {
        outcome.end = StepOutcome::End::Exited;
        outcome.code = WEXITSTATUS(status);
    } else {
        outcome.inside.clear();
    }
}

void RunningStep::killGroup() const {
    sendSignal(-static_cast<pid_t>(outcome.pid), SIGKILL);
    sendSignal(static_cast<pid_t>(outcome.pid), SIGKILL);
}

} // namespace doctor
