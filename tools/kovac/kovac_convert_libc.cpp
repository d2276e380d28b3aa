// A code set as the C library's converter knows it.
#include "kovac/kovac_convert.h"

#ifndef _WIN32
#include <cerrno>
#include <iconv.h>
#endif

namespace kovac {

#ifdef _WIN32

bool read_libc_set(const std::string &, conv_set &, std::string *) { return false; }

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

enum class answer { text, nothing, incomplete, invalid };

constexpr const char *code_form = "UTF-32BE";

// Converts from the initial state and back to it. Only exact conversions count.
answer convert(const converter &cv, const std::string &in, std::string &out) {
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
    return out.empty() ? answer::nothing : answer::text;
}

std::string code_text(uint32_t code) {
    return {char(code >> 24), char(code >> 16 & 0xFF), char(code >> 8 & 0xFF), char(code & 0xFF)};
}

asked ask_code(const converter &decode, const std::string &bytes, uint32_t *code) {
    std::string out;
    const answer a = convert(decode, bytes, out);
    if (a == answer::incomplete) return asked::incomplete;
    if (a != answer::text) return asked::invalid;
    if (out.size() != 4) return asked::several;
    *code = 0;
    for (const char c : out)
        *code = *code << 8 | uint8_t(c);
    return asked::character;
}

bool begins_with(const std::string &text, unsigned char byte) {
    return !text.empty() && uint8_t(text[0]) == byte;
}

// Why an object cannot hold the set: characters that depend on those before them, other than by one
// pair of shift bytes, or that all have the form of a number. "" if it can.
std::string hindrance(const converter &encode, const conv_set &set) {
    std::string once, twice;
    if (convert(encode, code_text('A'), once) == answer::text &&
        once.find('\0') != std::string::npos)
        return "it is a form of Unicode; \"unicode\" and \"utf8\" are built in";
    for (const uint32_t code : {0x41u, 0xE9u, 0x416u, 0x3042u, 0x4E00u, 0xAC00u}) {
        if (convert(encode, code_text(code), once) != answer::text ||
            convert(encode, code_text(code) + code_text(code), twice) != answer::text)
            continue;
        const bool shifts = set.stateful && once.size() == 4 && begins_with(once, set.shift_out) &&
                            twice == once.substr(0, 3) + once.substr(1);
        if (twice != once + once && !shifts)
            return "the bytes of a character depend on those before it, which a conversion object "
                   "cannot express except by one pair of shift bytes";
    }
    return "";
}

} // namespace

bool read_libc_set(const std::string &name, conv_set &set, std::string *why) {
    const converter decode(code_form, name.c_str()), encode(name.c_str(), code_form);
    why->clear();
    if (!decode.is_open() || !encode.is_open()) return false;
    std::string none;
    set.stateful = convert(decode, std::string(1, char(set.shift_out)), none) == answer::nothing &&
                   convert(decode, std::string(1, char(set.shift_in)), none) != answer::text;
    *why = hindrance(encode, set);
    if (!why->empty()) return false;
    const set_asker ask{
        [&decode](const std::string &bytes, uint32_t *code) {
            return ask_code(decode, bytes, code);
        },
        [&encode](uint32_t code, std::string &bytes) {
            return convert(encode, code_text(code), bytes) == answer::text;
        },
        {{0, last_code}},
    };
    read_by_asking(ask, name, set);
    if (set.codes.empty()) *why = "the C library's converter has no characters";
    return !set.codes.empty();
}

#endif

} // namespace kovac
