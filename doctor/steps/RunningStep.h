// A step while its child runs.
#pragma once

#include <chrono>
#include <optional>

#include "doctor/steps/StepRunner.h"
#include "support/FileDescriptor.h"

namespace doctor {

class RunningStep {
  public:
    using Clock = std::chrono::steady_clock;

    /// Forks. `step` must outlive the object. Without a process or a line to it, the outcome is `NotRun`, and
    /// it is over at once.
    RunningStep(const Step& step, int place, StepRunner::SendSignal sendSignal);

    RunningStep(RunningStep&&) = default;
    RunningStep& operator=(RunningStep&&) = default;
    RunningStep(const RunningStep&) = delete;
    RunningStep& operator=(const RunningStep&) = delete;
    ~RunningStep() = default;

    int place() const { return placeInList; }
    const QString& name() const { return step->name; }
    int descriptor() const { return line.get(); }
    std::chrono::milliseconds age() const;

    /// Reads the messages that have arrived so far.
    void receive();

    /// Kills it at its time limit, and abandons it if that doesn't end it. True when it is over: ended and
    /// reaped with all of its group, or abandoned.
    bool isOver(const StepLimits& limits);

    StepOutcome takeOutcome() { return std::move(outcome); }

  private:
    void take(const QByteArray& packet);
    void collect();
    void killGroup() const;

    const Step* step;
    int placeInList;
    StepRunner::SendSignal sendSignal;
    FileDescriptor line;
    QByteArray mark;
    Clock::time_point started;
    std::optional<Clock::time_point> killed;
    int outputBytes = 0;
    StepOutcome outcome;
};

} // namespace doctor
