// The host of the fuzzers: it counts blocks and streams, and its only file is the input.
#ifndef FUZZ_HOST_H
#define FUZZ_HOST_H

#include "kova.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

static constinit long live_blocks = 0, open_streams = 0;
static constinit const uint8_t *input = nullptr;
static constinit size_t input_size = 0, input_pos = 0;

static void check(bool holds, const char *law) {
    if (holds) return;
    fprintf(stderr, "broken: %s\n", law);
    abort();
}

static void *host_malloc(size_t size) {
    void *block = malloc(size);
    live_blocks += block != nullptr;
    return block;
}
static void host_free(void *block) {
    live_blocks -= block != nullptr;
    free(block);
}
static void *host_fopen(const char *, const char *) {
    open_streams++;
    input_pos = 0;
    return &open_streams;
}
static int host_fclose(void *) {
    open_streams--;
    return 0;
}
static int host_getc(void *) { return input_pos < input_size ? input[input_pos++] : -1; }
static int host_ungetc(int byte, void *) {
    input_pos--;
    return byte;
}
static char *host_fgets(char *buf, int size, void *stream) {
    int len = 0;
    while (len < size - 1) {
        const int c = host_getc(stream);
        if (c < 0) break;
        buf[len++] = static_cast<char>(c);
        if (c == '\n') break;
    }
    buf[len] = 0;
    return len ? buf : nullptr;
}
static int host_feof(void *) { return input_pos == input_size; }
static int host_ferror(void *) { return 0; }

template <class Fn> static void install(int code, Fn *fn) {
    ko_setextfunc(nullptr, code, reinterpret_cast<ko_extfn_t>(fn));
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    install(KO_EXT_MALLOC, host_malloc);
    install(KO_EXT_FREE, host_free);
    install(KO_EXT_FOPEN, host_fopen);
    install(KO_EXT_FCLOSE, host_fclose);
    install(KO_EXT_GETC, host_getc);
    install(KO_EXT_FGETC, host_getc);
    install(KO_EXT_UNGETC, host_ungetc);
    install(KO_EXT_FGETS, host_fgets);
    install(KO_EXT_FEOF, host_feof);
    install(KO_EXT_FERROR, host_ferror);
    return 0;
}

#endif
