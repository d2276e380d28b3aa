// Memory for texts whose ends are watched.
#ifndef GUARDED_BLOCK_H
#define GUARDED_BLOCK_H

#include <gtest/gtest.h>

#include "kova.h"

#include <string.h>
#include <string_view>
#include <vector>

#if defined(__unix__)
#include <sys/mman.h>
#endif

// Memory that ends where no page follows, so that a read or write beyond it is noticed.
struct guarded_block {
    unsigned char *end = nullptr;
    size_t size = 32768;
#if defined(__unix__)
    void *map;
    guarded_block()
        : map(mmap(nullptr, size + 65536, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        EXPECT_NE(map, MAP_FAILED);
        EXPECT_EQ(mprotect(map, size, PROT_READ | PROT_WRITE), 0);
        end = static_cast<unsigned char *>(map) + size;
    }
    ~guarded_block() { munmap(map, size + 65536); }
#else
    std::vector<unsigned char> bytes = std::vector<unsigned char>(32768);
    guarded_block() { end = bytes.data() + size; }
#endif
    guarded_block(const guarded_block &) = delete;
    // A copy that ends gap bytes before the end.
    ko_mchar_t *put(std::string_view text, size_t gap = 0) {
        unsigned char *const at = end - gap - text.size();
        if (!text.empty()) memcpy(at, text.data(), text.size());
        return at;
    }
    template <class T> T *room(size_t count) {
        void *at = end - count * sizeof(T);
        return static_cast<T *>(at);
    }
};

#endif
