// The keys by which kova sort orders lines: which parts of a line count, and how they are compared.
#pragma once

#include <string>
#include <vector>

#include "kova/kova_cli.h"
#include "kova/kova_text.h"

namespace kovacli {

// One end of a part of a line. field: from 1; 0 is the line's start or end. character: from 1; 0 at
// the last place is the field's end.
struct sort_place {
    size_t field = 0, character = 0;
    bool after_blanks = false; // characters are counted from the first that is not blank
};

enum class part_kind : uint8_t { text, number, version };

struct sort_part {
    sort_place first, last;
    part_kind kind = part_kind::text;
    bool dictionary = false, fold = false, reverse = false;
};

// What all lines share. Several threads may read it.
struct key_rules {
    const codec *code = nullptr;
    std::vector<sort_part> parts; // compared one after the other
    int separator = -1;           // wide character; -1: fields are runs of non-blanks
    bool host_keys = false;       // the shorter keys of kova_host.h
    bool whole_lines = false;     // these, of whole lines as they are
    // By wide character; empty where no part needs them.
    std::vector<uint8_t> traits;
    std::vector<ko_wchar_t> upper;
    int radix = -1, group = -1;
    ko_wchar_t zero = '0'; // the first of ten digits
};

// Scratch memory for one line at a time.
struct key_scratch {
    std::vector<ko_wchar_t> part;
    std::vector<std::pair<size_t, size_t>> spans;
};

// Reads the parts and makes the tables that they need. Throws failure.
void make_key_rules(const codec &code, const sort_options &options, key_rules &rules);

// Appends the key of a line, whose bytes order as the lines do. Throws failure.
void append_line_key(const key_rules &rules, const std::vector<ko_wchar_t> &line,
                     key_scratch &scratch, std::string &key);

// Most lines whose keys are those of whole_lines, unless they have null characters, have a key of
// at most so many bytes.
inline size_t usual_key_len(size_t units) { return 32 + 3 * units; }

// Writes such a key. Returns its length, which may be more than the room, or a negative number
// where append_line_key must tell what is wrong.
int64_t write_line_key(const key_rules &rules, const ko_wchar_t *line, size_t units,
                       unsigned char *key, size_t room);

} // namespace kovacli
