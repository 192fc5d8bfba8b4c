// Tests in a child process, and a system that refuses a call there: it can't be taken back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <QTest>

#include "tests/unit/ChildProcess.h"

constexpr int notPossible = 99; ///< a child's result: the machine doesn't allow what the test needs

/// A system call that fails with `reason` if its argument number `argument`, counted from 0, has all bits of
/// `flags`.
struct RefusedCall {
    long call;
    unsigned flags;
    int reason;
    unsigned argument = 2;
};

/// Refuses a call to this process from here on. False if system calls can't be filtered.
inline bool refuse(const RefusedCall& refused) {
    const auto [call, flags, reason, argument] = refused;
    // fstat() is one of two system calls, depending on the C library's release.
    if (call == SYS_fstat && !refuse({SYS_newfstatat, AT_EMPTY_PATH, reason, 3}))
        return false;
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, unsigned(call), 0, 4),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS,
                 unsigned(offsetof(seccomp_data, args) + argument * sizeof(std::uint64_t))),
        BPF_STMT(BPF_ALU | BPF_AND | BPF_K, flags),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, flags, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | unsigned(reason)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{sizeof program / sizeof program[0], program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

/// Runs `work` in a child process. Passes if it returns 0; skips the test for the reason `why` if it returns
/// `notPossible`. Returns whether it passed.
inline bool passesInChild(const char* why, const std::function<int()>& work) {
    ChildProcess child(work);
    const int result = child.result();
    if (result == notPossible) {
        QTest::qSkip(why, __FILE__, __LINE__);
        return false;
    }
    return QTest::qCompare(result, 0, "the child's result", "0", __FILE__, __LINE__);
}

/// The same where the system refuses `calls` to the child.
inline bool passesWithRefused(const std::vector<RefusedCall>& calls, const std::function<int()>& work) {
    return passesInChild("SKIPPED: system calls can't be filtered here", [&] {
        for (const RefusedCall& call : calls)
            if (!refuse(call))
                return notPossible;
        return work();
    });
}
