// Reading bytes with their place in a file, and writing with every error checked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "common/tool_file.h"
#include "kova/kova_platform.h"

namespace kovacli {

// A file or standard input, read block by block.
struct input {
    std::string name; // for messages
    std::FILE *stream = nullptr;
    bool owned = false;
    bool at_end = false;
    std::vector<unsigned char> block;
    size_t at = 0, fill = 0; // unread bytes are block[at, fill)
    uint64_t offset = 0;     // of block[at] in the file
    uint64_t size = 0;       // 0 when unknown

    input() = default;
    input(const input &) = delete;
    ~input();
};

// The files that a command reads: standard input where none is named.
inline std::vector<std::string> inputs_of(const std::vector<std::string> &files) {
    return files.empty() ? std::vector<std::string>{"-"} : files;
}

// "-" is standard input. Throws failure.
void open(input &in, const std::string &path);

// Makes more bytes of the file available after those unread; false at its end. Throws failure.
bool more(input &in);

void take(input &in, size_t bytes);

// Standard output, or a file replaced in one step by finish.
struct output {
    std::string name = "standard output";
    std::FILE *stream = stdout;
    uint64_t written = 0; // bytes
    kovatool::replacement file;
    bool replaces = false;

    output() = default;
    output(const output &) = delete;
    ~output();
};

// "" and "-" are standard output. Throws failure.
void open(output &out, const std::string &path);
void write(output &out, const void *bytes, size_t count);
inline void write(output &out, std::string_view text) { write(out, text.data(), text.size()); }

// When this returns, the system has every byte and the target is replaced. Throws failure.
void finish(output &out);

} // namespace kovacli
