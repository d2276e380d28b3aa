// Faults of the system, injected by number into a program: which calls count, which of them fails
// and how, and what has happened. fault_calls.cpp obeys a plan, in the program itself or preloaded.
#ifndef FAULT_PLAN_H
#define FAULT_PLAN_H

#include <atomic>
#include <stdint.h>

// The calls that are counted apart from each other.
enum fault_call {
    call_memory, // malloc and its kin
    call_open,   // open, pipe, opendir, mmap of a file
    call_read,
    call_write, // of anything but standard error
    call_close,
    call_sync,
    call_name, // rename, link, mkdir, fork
    call_ask,  // stat, lseek, readlink, readdir, locks and permissions
    call_kinds
};

// What a program did to files, in order.
struct fault_trace {
    char call;      // (o)pen to write, (w)rite, (s)ync, (r)ename, (l)ink, (u)nlink
    char path[120]; // the end of it
    char to[120];   // of rename and link
};

struct fault_plan {
    int32_t kind = -1; // of the call that fails, or -1
    int32_t error = 0; // errno; 0: half is read or written, and nothing fails
    int32_t stays = 0; // whether all later calls of the kind fail, too
    int32_t kill = 0;  // whether the process is killed in place of the call
    int64_t at = 0;    // the number of the call
    std::atomic<int64_t> calls[call_kinds] = {};
    std::atomic<int64_t> injected = 0;
    std::atomic<int64_t> live = 0;    // blocks handed out and not given back since it was set to 0
    std::atomic<uint32_t> traced = 0; // lines of the trace, also those that had no room
    fault_trace trace[512] = {};
};

// Obeys the plan from now on; NULL: none. False where the system does not let calls be counted.
bool obey_faults(fault_plan *plan);

#endif
