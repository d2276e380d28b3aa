// Files as characters: the loop that decodes them block by block, and its handling of bytes that
// are not a character.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "kova/kova_cli.h"
#include "kova/kova_io.h"
#include "kova/kova_text.h"

namespace kovacli {

// Bytes that are not a character end the command, or with --replace are counted.
struct bad_count {
    bool replace = false;
    const char *with_replace = ""; // what --replace does, for the message; "": there is none
    uint64_t count = 0;
    std::string first; // place of the first
};

// Handles a bad character, at which the input is. Throws failure.
void note_bad(bad_count &counted, const codec &code, const input &in, uint64_t line,
              const bad_character &bad);

// Reports on standard error how many there were and what was done with them.
void tell_bad(const bad_count &counted, const char *what);

// Does text of "unicode" end with the first half of a surrogate pair?
inline bool ends_in_half(const codec &code, const ko_wchar_t *wide, size_t units) {
    return code.utf16 && units && (wide[units - 1] & 0xFC00) == 0xD800;
}

// Passes on a file's characters piece by piece, in wide, and the bytes of each bad one. Returns the
// number of bytes in the file. Throws failure.
template <class Units, class Bad>
uint64_t read_text(const codec &code, const std::string &path, std::vector<ko_wchar_t> &wide,
                   bad_count &counted, Units take_units, Bad take_bad) {
    input in;
    open(in, path);
    uint64_t line = 1;
    while (in.at < in.fill || more(in)) {
        bad_character bad;
        wide.resize(in.fill - in.at);
        size_t units = decode(code, in.block.data() + in.at, in.fill - in.at, wide.data(), bad);
        size_t end = bad.why == fault::none ? in.fill - in.at : bad.offset;
        bool again = bad.why == fault::none;
        // The first half of a pair waits for the second, which may be in the next block.
        if (bad.why != fault::invalid && ends_in_half(code, wide.data(), units)) {
            if (units == 1 && more(in)) continue;
            again |= units > 1;
            end -= units > 1 ? 2 : 0;
            units -= units > 1;
        }
        line += uint64_t(std::count(wide.data(), wide.data() + units, code.newline));
        take_units(units);
        take(in, end);
        if (again || (bad.why == fault::cut && more(in))) continue;
        note_bad(counted, code, in, line, bad);
        take_bad(in.block.data() + in.at, bad.len);
        take(in, bad.len);
    }
    return in.offset;
}

} // namespace kovacli
