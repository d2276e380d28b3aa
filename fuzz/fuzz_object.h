// Mutates data files as what they are: lines of numbers and digits, under a hash of their content.
// Most of what comes of a real object is then read far.
#ifndef FUZZ_OBJECT_H
#define FUZZ_OBJECT_H

#include "kova_host.h"

#include <array>
#include <random>
#include <string>

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t max_size);

struct object_mutator {
    std::string text;
    size_t most; // bytes that the text may have
    std::minstd_rand random;

    struct part {
        size_t at, size;
    };
    size_t below(size_t n) { return n ? random() % n : 0; }
    template <class Keep> part around(size_t at, Keep keep) const {
        size_t begin = at, end = at;
        while (begin && keep(text[begin - 1]))
            --begin;
        while (end < text.size() && keep(text[end]))
            ++end;
        return {begin, end - begin};
    }
    part lines() { // some, with their ends
        part p = around(below(text.size()), [](char c) { return c != '\n'; });
        for (size_t more = below(4) ? 0 : below(40); p.at + p.size < text.size(); --more) {
            const size_t end = text.find('\n', p.at + p.size);
            p.size = std::min(end, text.size() - 1) + 1 - p.at;
            if (!more) break;
        }
        return p;
    }
    void replace(part p, const std::string &with) {
        if (text.size() - p.size + with.size() <= most) text.replace(p.at, p.size, with);
    }

    void change_number() {
        static const std::string numbers[] = {"0",   "1",   "-1",    "2",     "3",    "4",
                                              "127", "255", "256",   "65535", "4095", "2147483647",
                                              "ff",  "100", "-2147", "1e9",   "16382"};
        const part p = around(below(text.size()), [](char c) { return uint8_t(c) > ' '; });
        if (!below(3)) return replace(p, numbers[below(std::size(numbers))]);
        if (p.size > 9) return change_digits();
        const int near = std::atoi(text.substr(p.at, p.size).c_str()) + int(below(5)) - 2;
        replace(p, std::to_string(near));
    }
    void change_digits() { // of a long row of them
        for (size_t n = 1 + below(3), at = below(text.size()); n && at < text.size(); ++at)
            if (isxdigit(uint8_t(text[at]))) {
                text[at] = "0123456789abcdef"[below(16)];
                --n;
            }
    }
    void move_lines() {
        const part from = lines(), to = lines();
        const std::string moved = text.substr(from.at, from.size);
        replace({to.at, below(2) ? to.size : 0}, moved);
    }
    void change_bytes() {
        const size_t at = below(text.size()), size = std::min<size_t>(16, text.size() - at);
        std::array<uint8_t, 32> window = {};
        std::copy_n(text.begin() + ptrdiff_t(at), size, window.begin());
        const size_t now = LLVMFuzzerMutate(window.data(), size, window.size());
        replace({at, size}, {window.begin(), window.begin() + now});
    }
    void change() {
        const size_t which = below(20);
        if (which < 7) return change_number();
        if (which < 12) return change_digits();
        if (which < 15) return replace(lines(), "");
        if (which < 18) return move_lines();
        if (which < 19) return change_bytes();
        text.resize(below(text.size()));
    }
    void seal() {
        uint64_t content = 0;
        const size_t at = text.find("CONTENT=");
        if (at == text.npos || at + 24 > text.size()) return;
        ko_verify_object(text.data(), text.size(), &content);
        char digits[17];
        snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(content));
        text.replace(at + 8, 16, digits);
    }
};

// front: bytes before the text, which are options.
inline size_t mutate_object(uint8_t *data, size_t size, size_t max_size, unsigned seed,
                            size_t front) {
    if (size <= front || max_size < size || seed % 16 == 0)
        return LLVMFuzzerMutate(data, size, max_size);
    object_mutator m = {
        {data + front, data + size},
        max_size - front, std::minstd_rand(seed)
    };
    if (front && m.below(4) == 0) LLVMFuzzerMutate(data, front, front);
    for (size_t n = 1 + m.below(4); n && !m.text.empty(); --n)
        m.change();
    if (m.below(16)) m.seal();
    std::copy(m.text.begin(), m.text.end(), data + front);
    return front + m.text.size();
}

#endif
