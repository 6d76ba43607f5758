/*
 * i386-emulation-guard COMMAND [ARGUMENTS...]
 *
 * Runs COMMAND (qemu-i386 and the i386 program it emulates) under a seccomp
 * filter that every program it starts inherits, through fork and execve:
 *
 * 1. waitid(P_PIDFD, ...) answers "not implemented". Qt's process class asks
 *    the kernel with exactly that call whether it can wait on process file
 *    descriptors; qemu 7.2 passes the question through, the x86_64 kernel
 *    says yes, and qemu then refuses the clone(CLONE_PIDFD) that Qt starts
 *    every child with. Qt is left holding a process id of -1, and stopping
 *    that "process" sends the signal to every process the user may signal,
 *    the test runner and its shell included. Told that pidfd waiting is
 *    missing, Qt forks plainly and waits through SIGCHLD, which qemu
 *    emulates.
 * 2. Any system call made through the i386 interface ends the calling
 *    process. Under the emulator every guest call reaches the kernel as an
 *    x86_64 call made by qemu, so only an i386 program that was started
 *    natively, past the emulator, can make one: on a kernel with i386
 *    support such a slip would pass unnoticed and then fail on a kernel
 *    without it. The guard makes it fail everywhere.
 */
#define _GNU_SOURCE
#include <errno.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#ifndef P_PIDFD
#define P_PIDFD 3
#endif

static int installFilter(void)
{
    struct sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_waitid, 0, 3),
        /* The id type is an int: the low half of the first argument. */
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, args[0])),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, P_PIDFD, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    struct sock_fprog program = {sizeof filter / sizeof filter[0], filter};
    /* Needed to install a filter without CAP_SYS_ADMIN; the test programs
     * start nothing that is setuid. */
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        return -1;
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

int main(int argc, char** argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: i386-emulation-guard COMMAND [ARGUMENTS...]\n");
        return 2;
    }
    if (installFilter() != 0) {
        fprintf(stderr, "i386-emulation-guard: cannot install the seccomp filter: %s\n", strerror(errno));
        return 126;
    }
    execvp(argv[1], argv + 1);
    fprintf(stderr, "i386-emulation-guard: cannot start %s: %s\n", argv[1], strerror(errno));
    return 127;
}
