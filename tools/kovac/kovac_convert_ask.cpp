// The characters of a code set that a converter knows, asked one by one.
#include "kovac/kovac_convert.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <unistd.h>

namespace kovac {

namespace {

// Beginnings of three bytes that are followed up byte by byte; where there are more, only the
// characters of four bytes are taken that code points convert to.
constexpr size_t most_long_leads = 16384;

constexpr uint32_t code_step = 0x4000; // code points between two signs of progress
constexpr size_t all_codes = last_code / code_step + 1;

struct reader {
    const set_asker &ask;
    conv_set *set;
    progress shown;
    std::vector<char_bytes> long_leads; // of three bytes
};

std::string bytes_text(char_bytes one) {
    std::string text;
    for (unsigned i = one.len; i-- > 0;)
        text += char(one.value >> 8 * i & 0xFF);
    return text;
}

// The bytes of a character as the converter takes them from its initial state.
std::string text_of(const reader &rd, char_bytes one) {
    if (!one.shifted) return bytes_text(one);
    return char(rd.set->shift_out) + bytes_text(one) + char(rd.set->shift_in);
}

asked read_one(const reader &rd, char_bytes one) {
    uint32_t code = 0;
    const asked a = rd.ask.code(text_of(rd, one), &code);
    if (a == asked::several) ++rd.set->sequences;
    if (a == asked::character && is_scalar(code)) rd.set->codes.emplace(one, code);
    return a;
}

// Reads every character that begins with the prefix.
void read_codes(reader &rd, char_bytes prefix) {
    for (uint32_t b = 0; b < 256; ++b) {
        const char_bytes one{false, uint8_t(prefix.len + 1), prefix.value << 8 | b};
        if (one.len == 1) show_progress(rd.shown, b, 256 + all_codes);
        if (read_one(rd, one) != asked::incomplete) continue;
        if (one.len < max_char_bytes - 1) read_codes(rd, one);
        if (one.len == max_char_bytes - 1) rd.long_leads.push_back(one);
    }
}

bool is_shift(const conv_set &set, uint32_t byte) {
    return byte == set.shift_out || byte == set.shift_in;
}

void read_shifted_codes(reader &rd) {
    for (uint32_t b = 0; b < 256; ++b)
        if (!is_shift(*rd.set, b)) read_one(rd, {false, 1, b});
    for (uint32_t pair = 0; pair < 0x10000; ++pair) {
        if (!(pair & 0xFF)) show_progress(rd.shown, pair >> 8, 256 + all_codes);
        if (!is_shift(*rd.set, pair >> 8)) read_one(rd, {true, 2, pair});
    }
}

void read_bytes_of(const reader &rd, uint32_t code) {
    std::string text;
    if (!is_scalar(code) || !rd.ask.bytes(code, text)) return;
    const conv_set &set = *rd.set;
    const bool shifted = set.stateful && text.size() == 4 && uint8_t(text[0]) == set.shift_out &&
                         uint8_t(text[3]) == set.shift_in;
    if (shifted) text = text.substr(1, 2);
    if (!shifted && text.size() > (set.stateful ? 1u : max_char_bytes)) return;
    char_bytes bytes{shifted, uint8_t(text.size()), 0};
    for (const char c : text)
        bytes.value = bytes.value << 8 | uint8_t(c);
    if (bytes.len) rd.set->bytes.emplace(code, bytes);
}

void read_bytes(reader &rd) {
    for (const auto &[first, last] : rd.ask.ranges) {
        for (uint32_t code = first; code <= std::min(last, rd.set->last); ++code) {
            if (code % code_step == 0)
                show_progress(rd.shown, 256 + code / code_step, 256 + all_codes);
            read_bytes_of(rd, code);
        }
    }
}

void read_long_codes(reader &rd) {
    if (rd.long_leads.size() <= most_long_leads) {
        for (const char_bytes lead : rd.long_leads)
            for (uint32_t b = 0; b < 256; ++b)
                read_one(rd, {false, max_char_bytes, lead.value << 8 | b});
        return;
    }
    for (const auto &[code, bytes] : rd.set->bytes)
        if (bytes.len == max_char_bytes) read_one(rd, bytes);
}

} // namespace

void read_by_asking(const set_asker &ask, const std::string &name, conv_set &set) {
    reader rd{ask, &set, {"reading " + name}, {}};
    if (set.stateful)
        read_shifted_codes(rd);
    else
        read_codes(rd, {});
    read_bytes(rd);
    read_long_codes(rd);
    end_progress(rd.shown);
}

// ---- progress ----

static double now() {
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(time).count();
}

void show_progress(progress &p, size_t done, size_t total) {
    constexpr double patience = 1, pause = 0.2; // seconds
    const double time = now();
    if (p.next == 0) p.next = time + patience;
    if (time < p.next || !isatty(2)) return;
    p.next = time + pause;
    p.shown = true;
    std::fprintf(stderr, "\r\033[K%s: %zu %%", p.what.c_str(), done * 100 / total);
}

void begin_progress(progress &p) {
    p.shown = isatty(2) != 0;
    if (p.shown) std::fprintf(stderr, "\r\033[K%s", p.what.c_str());
}

void end_progress(progress &p) {
    if (p.shown) std::fputs("\r\033[K", stderr);
    p.shown = false;
}

} // namespace kovac
