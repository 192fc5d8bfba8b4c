// Runs what calls vendors' libraries in child processes, so that no driver can stop the doctor.
#pragma once

#include <chrono>
#include <csignal>
#include <functional>

#include <sys/types.h>

#include <QByteArray>
#include <QString>
#include <QVector>

#include "doctor/steps/Message.h"

namespace doctor {

class Channel;

/// One piece of the examination.
struct Step {
    QString name;
    std::function<void(Channel&)> work; ///< runs in the child
    /// The child ends by `exit`, as the program does, so that the drivers' exit handlers run.
    bool runsExitHandlers = false;
};

/// How a step ended.
struct StepOutcome {
    enum class End {
        NotRun,
        Done,     ///< finished, with all of its messages
        Exited,   ///< something ended the process: `code` is its status
        Crashed,  ///< `code` is the signal
        TimedOut, ///< killed at the time limit
    };

    End end = End::NotRun;
    int code = 0;
    QString inside;        ///< the call it was in at its end; empty: in none
    bool survived = false; ///< still exists after SIGKILL
    char state = '?';      ///< of a process that survived, as in /proc/PID/stat: 'D' waits in the kernel
    qint64 pid = 0;
    double seconds = 0.0; ///< from its start to its end
    Messages messages;    ///< in the order in which they were sent

    bool isDone() const { return end == End::Done; }

    /// The contents of all messages of one kind.
    QVector<QJsonObject> reported(const char* kind) const;

    /// What was written to standard output and error, at most `StepRunner::mostOutput` bytes.
    QByteArray output() const;
};

/// Time limits.
struct StepLimits {
    std::chrono::milliseconds step{30'000};
    /// A step that takes longer is overtaken: all that remain then start at once, so that one hanging driver
    /// costs the time limit only once.
    std::chrono::milliseconds patience{250};
    std::chrono::milliseconds afterKill{500}; ///< for a killed process to end
};

/// Runs steps one after the other, each in a child that leads its own process group. All processes that a
/// step leaves behind are killed, in its group or not: the calling process becomes the subreaper of its
/// descendants. Needs a process with one thread.
class StepRunner {
  public:
    static constexpr int mostOutput = 64 * 1024; ///< bytes of a step's output that are kept

    using Progress = std::function<void(const QString& step, std::chrono::milliseconds sinceStart)>;
    using SendSignal = int (*)(pid_t, int);

    /// `progress` is called about ten times a second while a step takes longer than a second.
    explicit StepRunner(StepLimits limits, Progress progress = {}, SendSignal sendSignal = ::kill);

    /// The outcomes, in the order of `steps`.
    QVector<StepOutcome> run(const QVector<Step>& steps);

  private:
    StepLimits limits;
    Progress progress;
    SendSignal sendSignal;
};

} // namespace doctor
