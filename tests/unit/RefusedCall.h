// A system that refuses a call, for children of a test: it can't be taken back.
#pragma once

#include <cstddef>
#include <cstdint>

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

constexpr int notPossible = 99; ///< a child's result: the machine doesn't allow what the test needs

/// From here on, for this process: `call` fails with `reason` where its argument of that number, counted from
/// 0, has all bits of `flags`. False if the system calls can't be filtered.
inline bool refuse(unsigned call, unsigned flags, unsigned reason, unsigned argument = 2) {
    // fstat() is one of two system calls, depending on the C library's release.
    if (call == SYS_fstat && !refuse(SYS_newfstatat, AT_EMPTY_PATH, reason, 3))
        return false;
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 4),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS,
                 unsigned(offsetof(seccomp_data, args) + argument * sizeof(std::uint64_t))),
        BPF_STMT(BPF_ALU | BPF_AND | BPF_K, flags),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, flags, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | reason),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{sizeof program / sizeof program[0], program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}
