// The host of the fuzzers: the memory and the files of the tests, whose checks end the program.
#ifndef FUZZ_HOST_H
#define FUZZ_HOST_H

#include "support/fixture.h"

static memory_hooks memory;

static void check(bool holds, const char *law) {
    if (holds) return;
    fprintf(stderr, "broken: %s\n", law);
    abort();
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    GTEST_FLAG_SET(break_on_failure, true);
    return 0;
}

#endif
