// A second process for tests: runs a function and ends with its result.
#pragma once

#include <chrono>
#include <csignal>
#include <functional>
#include <thread>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

/// Forked by the constructor; killed and collected by the destructor at the latest.
class ChildProcess {
  public:
    explicit ChildProcess(const std::function<int()>& work) : pid(fork()) {
        if (pid == 0)
            _exit(work());
    }
    ~ChildProcess() {
        kill();
        result();
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void kill() const { signal(SIGKILL); }
    void signal(int number) const {
        if (pid > 0)
            ::kill(pid, number);
    }

    /// Its exit code; 1000 + the signal that ended it; -1 if it is still running after 60 s or could not be
    /// started.
    int result() {
        for (int i = 0; i < 60000 && pid > 0; ++i) {
            int status = 0;
            if (waitpid(pid, &status, WNOHANG) == pid) {
                pid = 0;
                last = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
            } else {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
        return pid == 0 ? last : -1;
    }

    pid_t id() const { return pid; }

  private:
    pid_t pid;
    int last = -1;
};

/// An event that one process awaits and another signals, any number of times.
class Signpost {
  public:
    Signpost() {
        if (pipe2(ends, O_CLOEXEC) != 0)
            ends[0] = ends[1] = -1;
    }
    ~Signpost() {
        close(ends[0]);
        close(ends[1]);
    }
    Signpost(const Signpost&) = delete;
    Signpost& operator=(const Signpost&) = delete;

    void give(int times = 1) const {
        for (int i = 0; i < times; ++i)
            if (write(ends[1], "x", 1) != 1)
                return;
    }

    bool await() const {
        char byte = 0;
        return read(ends[0], &byte, 1) == 1;
    }

  private:
    int ends[2] = {-1, -1};
};
