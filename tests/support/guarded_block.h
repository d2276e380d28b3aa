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
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KOVA_POISON 1
#endif
#endif
#if defined(KOVA_POISON) || defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(at, bytes) (static_cast<void>(at), static_cast<void>(bytes))
#define ASAN_UNPOISON_MEMORY_REGION(at, bytes) (static_cast<void>(at), static_cast<void>(bytes))
#endif

// Memory that ends where no page follows, so that a read or write beyond it is noticed; the address
// sanitizer notices every one outside the text or room asked for last.
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
    ~guarded_block() {
        open_all();
        munmap(map, size + 65536);
    }
#else
    std::vector<unsigned char> bytes = std::vector<unsigned char>(32768);
    guarded_block() { end = bytes.data() + size; }
#endif
    guarded_block(const guarded_block &) = delete;
    void open_all() const { ASAN_UNPOISON_MEMORY_REGION(end - size, size); }
    void open_only(unsigned char *at, size_t bytes) const {
        open_all();
        ASAN_POISON_MEMORY_REGION(end - size, size_t(at - (end - size)));
        ASAN_POISON_MEMORY_REGION(at + bytes, size_t(end - at) - bytes);
    }
    // A copy that ends gap bytes before the end.
    ko_mchar_t *put(std::string_view text, size_t gap = 0) {
        unsigned char *const at = end - gap - text.size();
        open_only(at, text.size());
        if (!text.empty()) memcpy(at, text.data(), text.size());
        return at;
    }
    template <class T> T *room(size_t count) {
        void *at = end - count * sizeof(T);
        open_only(end - count * sizeof(T), count * sizeof(T));
        return static_cast<T *>(at);
    }
};

#endif
