#include "doctor/steps/StepRunner.h"

#include <algorithm>
#include <vector>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "doctor/steps/RunningStep.h"
#include "doctor/steps/processes.h"

namespace doctor {

namespace {

using namespace std::chrono_literals;

constexpr auto tick = 20ms;

/// Waits until a child sends a message or ends, but briefly: its descendants may keep its socket open.
void awaitNews(const std::vector<RunningStep>& running) {
    std::vector<pollfd> lines;
    for (const RunningStep& step : running)
        if (step.descriptor() >= 0)
            lines.push_back({step.descriptor(), POLLIN, 0});
    const auto wait = lines.size() < running.size() ? 1ms : tick;
    ::poll(lines.data(), lines.size(), static_cast<int>(wait.count()));
}

/// Kills and reaps processes that drivers left behind: as the subreaper, this process is their parent now.
void endStrays(const std::vector<pid_t>& givenUp) {
    for (int tries = 0; tries < 10; ++tries) {
        std::vector<pid_t> strays = childrenOf(::getpid());
        strays.erase(std::remove_if(strays.begin(), strays.end(),
                                    [&](pid_t pid) {
                                        return std::find(givenUp.begin(), givenUp.end(), pid) !=
                                               givenUp.end();
                                    }),
                     strays.end());
        if (strays.empty())
            return;
        for (const pid_t pid : strays)
            ::kill(pid, SIGKILL);
        for (const pid_t pid : strays)
            for (int i = 0; i < 50 && ::waitpid(pid, nullptr, WNOHANG) == 0; ++i)
                ::usleep(1000);
    }
}

} // namespace

QVector<QJsonObject> StepOutcome::reported(const char* kind) const {
    QVector<QJsonObject> contents;
    for (const Message& message : messages)
        if (message.kind == QLatin1String(kind))
            contents.append(message.content);
    return contents;
}

QByteArray StepOutcome::output() const {
    QByteArray text;
    const QVector<QJsonObject> pieces = reported(messageOutput);
    for (const QJsonObject& piece : pieces)
        text += bytesOfText(piece.value("text").toString());
    return text;
}

StepRunner::StepRunner(StepLimits stepLimits, Progress onProgress, SendSignal send)
    : limits(stepLimits), progress(std::move(onProgress)), sendSignal(send) {}

QVector<StepOutcome> StepRunner::run(const QVector<Step>& steps) {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    // The parent may have had it ignored: then the system keeps no child's status, and a crash looks like an
    // exit.
    std::signal(SIGCHLD, SIG_DFL);
    QVector<StepOutcome> outcomes(steps.size());
    std::vector<RunningStep> running;
    std::vector<pid_t> givenUp;
    bool overtaken = false;
    auto nextProgress = RunningStep::Clock::now();
    for (int next = 0; next < steps.size() || !running.empty();) {
        while (next < steps.size() && (running.empty() || overtaken)) {
            running.emplace_back(steps[next], next, sendSignal);
            ++next;
        }
        awaitNews(running);
        for (std::size_t i = running.size(); i-- > 0;) {
            RunningStep& step = running[i];
            step.receive();
            overtaken = overtaken || step.age() >= limits.patience;
            if (!step.isOver(limits))
                continue;
            StepOutcome& outcome = outcomes[step.place()] = step.takeOutcome();
            if (outcome.survived)
                givenUp.push_back(static_cast<pid_t>(outcome.pid));
            running.erase(running.begin() + static_cast<std::ptrdiff_t>(i));
        }
        const auto slow = std::find_if(running.begin(), running.end(),
                                       [](const RunningStep& step) { return step.age() >= 1s; });
        if (slow != running.end() && progress && RunningStep::Clock::now() >= nextProgress) {
            nextProgress = RunningStep::Clock::now() + 100ms;
            progress(slow->name(), slow->age());
        }
    }
    endStrays(givenUp);
    return outcomes;
}

} // namespace doctor
