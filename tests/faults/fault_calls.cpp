// Counts and fails calls of the system: memory by malloc's own name, files where the C library
// enters the kernel, so that what stdio makes of a fault is part of what is tested. Linux on x86-64
// with glibc.
//
// Preloaded into a command, it serves runs: for every byte read from a pipe it forks a process that
// goes on to main, and it writes that process's status to another. KOVA_FAULTS names, in decimal,
// the descriptors of the plan, of both pipes, and of the files that become 0, 1 and 2.
#include "fault_plan.h"

#include <stdlib.h>

#if !defined(__linux__) || !defined(__x86_64__) || !defined(__GLIBC__)
bool obey_faults(fault_plan *) { return false; }
#else

#include <errno.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <iterator>

static constinit std::atomic<fault_plan *> obeyed = nullptr;

// Is this call one that the plan fails?
static bool fails(fault_call kind) {
    fault_plan *const plan = obeyed;
    if (!plan || kind == call_kinds) return false;
    const int64_t n = plan->calls[kind]++;
    if (kind != plan->kind || n < plan->at || (n > plan->at && !plan->stays)) return false;
    ++plan->injected;
    if (plan->kill) kill(getpid(), SIGKILL);
    return true;
}

// ---- Memory ------------------------------------------------------------------------------------

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *block);

static bool lacks_memory() {
    if (!fails(call_memory)) return false;
    errno = ENOMEM;
    return true;
}
static void *counting(void *block, int change = 1) {
    if (fault_plan *const plan = obeyed; plan && block) plan->live += change;
    return block;
}
void *malloc(size_t size) { return lacks_memory() ? nullptr : counting(__libc_malloc(size)); }
void *calloc(size_t count, size_t size) {
    return lacks_memory() ? nullptr : counting(__libc_calloc(count, size));
}
void *realloc(void *block, size_t size) {
    return lacks_memory() ? nullptr : counting(__libc_realloc(block, size), !block);
}
void *aligned_alloc(size_t alignment, size_t size) {
    return lacks_memory() ? nullptr : counting(__libc_memalign(alignment, size));
}
void free(void *block) { __libc_free(counting(block, -1)); }
}

extern "C" {
pid_t __fork();
pid_t fork() {
    if (!fails(call_name)) return __fork();
    errno = EAGAIN;
    return -1;
}
}

// ---- Calls of the kernel -----------------------------------------------------------------------

static constexpr long own_call = 0x6b6f7661; // the sixth argument of calls that are not counted

static long enter(long number, const long (&a)[5], long sixth = own_call) {
    long result = number;
    register long r10 __asm__("r10") = a[3];
    register long r8 __asm__("r8") = a[4];
    register long r9 __asm__("r9") = sixth;
    __asm__ volatile("syscall"
                     : "+a"(result)
                     : "D"(a[0]), "S"(a[1]), "d"(a[2]), "r"(r10), "r"(r8), "r"(r9)
                     : "rcx", "r11", "memory");
    return result;
}

static constexpr struct {
    int number;
    fault_call kind;
    char traced;
} counted[] = {
    {SYS_open,       call_open,  'o'},
    {SYS_openat,     call_open,  'o'},
    {SYS_pipe,       call_open,  0  },
    {SYS_pipe2,      call_open,  0  },
    {SYS_read,       call_read,  0  },
    {SYS_pread64,    call_read,  0  },
    {SYS_readv,      call_read,  0  },
    {SYS_write,      call_write, 'w'},
    {SYS_pwrite64,   call_write, 'w'},
    {SYS_writev,     call_write, 'w'},
    {SYS_close,      call_close, 0  },
    {SYS_fsync,      call_sync,  's'},
    {SYS_fdatasync,  call_sync,  's'},
    {SYS_rename,     call_name,  'r'},
    {SYS_link,       call_name,  'l'},
    {SYS_unlink,     call_kinds, 'u'}, // never fails: what a program has to remove would stay
    {SYS_mkdir,      call_name,  0  },
    {SYS_ftruncate,  call_ask,   0  },
    {SYS_fchmod,     call_ask,   0  },
    {SYS_flock,      call_ask,   0  },
    {SYS_lseek,      call_ask,   0  },
    {SYS_getdents64, call_ask,   0  },
    {SYS_readlink,   call_ask,   0  },
    {SYS_newfstatat, call_ask,   0  },
    {SYS_fcntl,      call_ask,   0  },
    {SYS_getcwd,     call_ask,   0  },
    {SYS_access,     call_ask,   0  },
};

static void note(char what, const long (&a)[5], bool has_paths) {
    fault_plan *const plan = obeyed;
    if (!plan || !what) return;
    const uint32_t n = plan->traced++;
    if (n >= std::size(plan->trace)) return;
    fault_trace &line = plan->trace[n];
    line = {.call = what, .path = {}, .to = {}};
    const auto copy = [](char(&out)[120], const char *text) {
        const size_t size = strlen(text);
        strcpy(out, size < sizeof out ? text : text + size + 1 - sizeof out);
    };
    if (has_paths) {
        copy(line.path, reinterpret_cast<const char *>(a[0]));
        if (what != 'u' && what != 'o') copy(line.to, reinterpret_cast<const char *>(a[1]));
        return;
    }
    char link[40], path[4096] = {};
    snprintf(link, sizeof link, "/proc/self/fd/%d", int(a[0]));
    const long ask[5] = {reinterpret_cast<long>(link), reinterpret_cast<long>(path),
                         sizeof path - 1};
    if (enter(SYS_readlink, ask) > 0) copy(line.path, path);
}

// Half of what was asked for, at least a byte.
static long enter_shortly(long number, long (&a)[5]) {
    iovec first;
    if (number == SYS_readv || number == SYS_writev) {
        const auto *parts = reinterpret_cast<const iovec *>(a[1]);
        for (; a[2] > 1 && !parts->iov_len; --a[2])
            ++parts;
        first = {parts->iov_base, (parts->iov_len + 1) / 2};
        a[1] = reinterpret_cast<long>(&first);
        a[2] = 1;
    } else {
        a[2] = (a[2] + 1) / 2;
    }
    return enter(number, a);
}

static long perform(long number, long (&a)[5]) {
    for (const auto &call : counted) {
        if (call.number != number) continue;
        const bool writes = call.kind == call_write;
        if (writes && a[0] == STDERR_FILENO) break;
        const bool at = number == SYS_openat, named = call.traced && strchr("rlu", call.traced);
        if (at && (a[2] & O_ACCMODE) != O_RDONLY) {
            const long path[5] = {a[1]};
            note('o', path, true);
        }
        if (call.kind != call_open) note(call.traced, a, named);
        if (fails(call.kind)) {
            const int error = obeyed.load()->error;
            if (number == SYS_close) enter(number, a);
            if (error) return -error;
            return call.kind == call_read || writes ? enter_shortly(number, a) : enter(number, a);
        }
        if (call.kind == call_sync) return 0; // which nobody waits for here
        break;
    }
    return enter(number, a);
}

static void on_call(int, siginfo_t *info, void *context) {
    auto &r = static_cast<ucontext_t *>(context)->uc_mcontext.gregs;
    long a[5] = {long(r[REG_RDI]), long(r[REG_RSI]), long(r[REG_RDX]), long(r[REG_R10]),
                 long(r[REG_R8])};
    r[REG_RAX] = perform(info->si_syscall, a);
}

extern "C" void *mmap(void *at, size_t size, int protection, int flags, int fd, off_t offset) {
    const long a[5] = {reinterpret_cast<long>(at), long(size), protection, flags, fd};
    if (fd >= 0 && fails(call_open)) {
        errno = obeyed.load()->error ? obeyed.load()->error : ENODEV;
        return MAP_FAILED;
    }
    const long result = enter(SYS_mmap, a, offset);
    if (result < 0 && result > -4096) errno = int(-result);
    return result < 0 && result > -4096 ? MAP_FAILED : reinterpret_cast<void *>(result);
}

// Lets the kernel hand the counted calls to on_call.
static bool watch_calls() {
    constexpr size_t calls = std::size(counted);
    sock_filter filter[calls + 6];
    size_t n = 0;
    filter[n++] = BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr));
    for (size_t i = 0; i < calls; ++i)
        filter[n++] =
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, uint32_t(counted[i].number), uint8_t(calls - i), 0);
    filter[n++] = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    filter[n++] = BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[5]));
    filter[n++] = BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, own_call, 1, 0);
    filter[n++] = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP);
    filter[n++] = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    const sock_fprog program = {static_cast<unsigned short>(n), filter};
    struct sigaction action = {};
    action.sa_sigaction = on_call;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    return sigaction(SIGSYS, &action, nullptr) == 0 &&
           prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

bool obey_faults(fault_plan *plan) {
    static bool watches = false;
    if (plan && !watches) watches = watch_calls();
    obeyed = watches ? plan : nullptr;
    return watches;
}

// ---- Runs of a command -------------------------------------------------------------------------

static constexpr unsigned most_seconds = 60; // of one run

[[gnu::constructor]] static void serve_runs() {
    const char *const said = getenv("KOVA_FAULTS");
    int fds[6]; // plan, requests, answers, standard streams
    if (!said ||
        sscanf(said, "%d,%d,%d,%d,%d,%d", fds, fds + 1, fds + 2, fds + 3, fds + 4, fds + 5) != 6)
        return;
    unsetenv("KOVA_FAULTS");
    unsetenv("LD_PRELOAD");
    void *const shared =
        mmap(nullptr, sizeof(fault_plan), PROT_READ | PROT_WRITE, MAP_SHARED, fds[0], 0);
    if (shared == MAP_FAILED) _exit(120);
    for (char request; read(fds[1], &request, 1) == 1;) {
        const pid_t run = fork();
        if (run == 0) {
            for (int i = 0; i < 3; ++i)
                dup2(fds[3 + i], i);
            for (const int fd : fds)
                close(fd);
            alarm(most_seconds);
            if (!obey_faults(static_cast<fault_plan *>(shared))) _exit(121);
            return;
        }
        int status = -1;
        while (waitpid(run, &status, 0) < 0 && errno == EINTR) {
        }
        if (write(fds[2], &status, sizeof status) != sizeof status) break;
    }
    _exit(0);
}

#endif
