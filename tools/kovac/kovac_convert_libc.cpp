// A code set as the C library's converter knows it, asked character by character.
#include "kovac/kovac_convert.h"

#ifndef _WIN32
#include <cerrno>
#include <iconv.h>
#endif

namespace kovac {

#ifdef _WIN32

bool read_libc_set(const std::string &, set_part, conv_set &) { return false; }

#else

namespace {

struct converter {
    iconv_t cd;
    converter(const char *to, const char *from) : cd(iconv_open(to, from)) {}
    converter(const converter &) = delete;
    ~converter() {
        if (is_open()) iconv_close(cd);
    }
    bool is_open() const { return cd != reinterpret_cast<iconv_t>(-1); }
};

enum class answer { character, nothing, several, incomplete, invalid };

constexpr const char *code_form = "UTF-32BE";

// Converts from the initial state and back to it. Only exact conversions count.
answer ask(const converter &cv, const std::string &in, std::string &out) {
    char buffer[64];
    char *from = const_cast<char *>(in.data()); // iconv takes it like this, but only reads
    char *to = buffer;
    size_t left = in.size(), room = sizeof buffer;
    iconv(cv.cd, nullptr, nullptr, nullptr, nullptr);
    const size_t result = iconv(cv.cd, &from, &left, &to, &room);
    if (result == size_t(-1)) return errno == EINVAL ? answer::incomplete : answer::invalid;
    if (result != 0 || iconv(cv.cd, nullptr, nullptr, &to, &room) == size_t(-1)) {
        return answer::invalid;
    }
    out.assign(buffer, size_t(to - buffer));
    return out.empty() ? answer::nothing : answer::character;
}

std::string text_of(uint32_t value, size_t len) {
    std::string text;
    for (size_t i = len; i-- > 0;)
        text += char(value >> 8 * i & 0xFF);
    return text;
}

uint32_t value_of(std::string_view text) {
    uint32_t value = 0;
    for (char c : text)
        value = value << 8 | uint8_t(c);
    return value;
}

answer ask_code(const converter &cv, const std::string &bytes, uint32_t *code) {
    std::string out;
    answer a = ask(cv, bytes, out);
    if (a == answer::character && out.size() != 4) a = answer::several;
    if (a == answer::character) *code = value_of(out);
    return a;
}

struct reader {
    const converter &decode;
    const converter &encode;
    conv_set *set;
};

void add_code(const reader &rd, char_bytes bytes, const std::string &text) {
    uint32_t code = 0;
    const answer a = ask_code(rd.decode, text, &code);
    if (a == answer::several) ++rd.set->sequences;
    if (a == answer::character && is_scalar(code)) rd.set->codes.emplace(bytes, code);
}

// Reads every character that begins with the prefix.
void read_codes(const reader &rd, char_bytes prefix) {
    for (uint32_t b = 0; b < 256; ++b) {
        const char_bytes one{false, uint8_t(prefix.len + 1), prefix.value << 8 | b};
        const std::string text = text_of(one.value, one.len);
        uint32_t code = 0;
        const answer a = ask_code(rd.decode, text, &code);
        if (a == answer::incomplete && one.len < max_char_bytes) read_codes(rd, one);
        if (a == answer::several) ++rd.set->sequences;
        if (a == answer::character && is_scalar(code)) rd.set->codes.emplace(one, code);
    }
}

void read_shifted_codes(const reader &rd, bool singles, bool pairs) {
    const char out = char(rd.set->shift_out), in = char(rd.set->shift_in);
    for (uint32_t b = 0; singles && b < 256; ++b) {
        if (b != rd.set->shift_out && b != rd.set->shift_in) {
            add_code(rd, {false, 1, b}, text_of(b, 1));
        }
    }
    for (uint32_t pair = 0; pairs && pair < 0x10000; ++pair) {
        const uint32_t lead = pair >> 8;
        if (lead == rd.set->shift_out || lead == rd.set->shift_in) continue;
        add_code(rd, {true, 2, pair}, out + text_of(pair, 2) + in);
    }
}

void read_bytes(const reader &rd) {
    const char out = char(rd.set->shift_out), in = char(rd.set->shift_in);
    for (uint32_t code = 0; code <= last_code; ++code) {
        std::string text;
        if (!is_scalar(code) || ask(rd.encode, text_of(code, 4), text) != answer::character) {
            continue;
        }
        const bool shifted =
            rd.set->stateful && text.size() == 4 && text[0] == out && text[3] == in;
        if (shifted) text = text.substr(1, 2);
        const bool fits = shifted || (rd.set->stateful ? text.size() == 1 : text.size() <= 4);
        if (fits) {
            rd.set->bytes.emplace(code, char_bytes{shifted, uint8_t(text.size()), value_of(text)});
        }
    }
}

// Makes a part independent: without shift codes and shifted state.
void take_part(conv_set &set, set_part part) {
    const bool pairs = part == set_part::pairs;
    std::map<char_bytes, uint32_t> codes;
    for (const auto &[bytes, code] : set.codes) {
        if (bytes.shifted == pairs) codes.emplace(char_bytes{false, bytes.len, bytes.value}, code);
    }
    set.codes = std::move(codes);
    std::erase_if(set.bytes, [pairs](const auto &one) { return one.second.shifted != pairs; });
    for (auto &[code, bytes] : set.bytes)
        bytes.shifted = false;
    set.stateful = false;
}

} // namespace

bool read_libc_set(const std::string &name, set_part part, conv_set &set) {
    const converter decode(code_form, name.c_str()), encode(name.c_str(), code_form);
    if (!decode.is_open() || !encode.is_open()) return false;
    const reader rd{decode, encode, &set};
    std::string none;
    set.stateful = ask(decode, std::string(1, char(set.shift_out)), none) == answer::nothing &&
                   ask(decode, std::string(1, char(set.shift_in)), none) != answer::character;
    if (part != set_part::whole && !set.stateful) return false;
    if (set.stateful) {
        read_shifted_codes(rd, part != set_part::pairs, part != set_part::single);
    } else {
        read_codes(rd, {});
    }
    read_bytes(rd);
    if (part != set_part::whole) take_part(set, part);
    return !set.codes.empty();
}

#endif

} // namespace kovac
