// Mapping files, with one character per line, and mapping tables in UCM form with their state
// tables.
#include "kovac/kovac_convert.h"

#include <algorithm>
#include <array>

namespace kovac {
namespace {

// A line of a file, with its place for reports.
struct line_reader {
    const source_file *file;
    diagnostics *diag;
    size_t next = 0;       // of the line after this one
    std::string_view rest; // of this line
    bool fail(std::string_view at, const std::string &why) const {
        error(*diag, {file, uint32_t(at.data() - file->text.data())}, why);
        return false;
    }
};

std::string_view trimmed(std::string_view s) {
    const size_t first = s.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return s.substr(s.size());
    return s.substr(first, s.find_last_not_of(" \t\r") - first + 1);
}

// Reads the next line that is not empty, without its comment and outer blanks.
bool next_text(line_reader &in) {
    const std::string_view text = in.file->text;
    while (in.next < text.size()) {
        const size_t end = std::min(text.find('\n', in.next), text.size());
        in.rest = text.substr(in.next, end - in.next);
        in.rest = trimmed(in.rest.substr(0, in.rest.find('#')));
        in.next = end + 1;
        if (!in.rest.empty()) return true;
    }
    return false;
}

std::string_view take_field(line_reader &in) {
    const size_t end = std::min(in.rest.find_first_of(" \t"), in.rest.size());
    const std::string_view field = in.rest.substr(0, end);
    in.rest = trimmed(in.rest.substr(end));
    return field;
}

bool parse_hex(std::string_view digits, uint32_t *value) {
    *value = 0;
    if (digits.empty() || digits.size() > 8) return false;
    for (char c : digits) {
        if (hex_value(c) < 0) return false;
        *value = *value << 4 | uint32_t(hex_value(c));
    }
    return true;
}

// Reads hexadecimal digits, two per byte.
bool parse_bytes(std::string_view digits, char_bytes *bytes) {
    if (digits.size() % 2 || digits.size() > 2 * max_char_bytes) return false;
    bytes->len = uint8_t(digits.size() / 2);
    return parse_hex(digits, &bytes->value);
}

bool parse_code(std::string_view text, uint32_t *code) {
    return text.size() >= 4 && parse_hex(text, code) && is_scalar(*code);
}

// Marks pairs as shifted in a stateful set; its single bytes are unshifted.
bool place_shift(const conv_set &set, char_bytes *bytes) {
    bytes->shifted = set.stateful && bytes->len == 2;
    return !set.stateful || bytes->len <= 2;
}

// ---- mapping files ----

bool read_shift_line(line_reader &in, conv_set &set) {
    const std::string_view line = in.rest;
    char_bytes out, back;
    if (!parse_bytes(take_field(in), &out) || !parse_bytes(in.rest, &back) || out.len != 1 ||
        back.len != 1) {
        return in.fail(line, "two bytes are expected: the one that enters the shifted state and "
                             "the one that ends it");
    }
    if (!set.codes.empty())
        return in.fail(line, "shift codes must come before the first character");
    if (out.value == back.value) return in.fail(line, "the two shift codes must differ");
    set.stateful = true;
    set.shift_out = uint8_t(out.value);
    set.shift_in = uint8_t(back.value);
    return true;
}

bool read_mapping_line(line_reader &in, set_builder &builder) {
    const std::string_view field = take_field(in);
    if (field == "shift") return read_shift_line(in, *builder.set);
    char_bytes bytes;
    if (!parse_bytes(field, &bytes)) {
        return in.fail(field, "the bytes of a character are expected, two digits each, as in 81fe");
    }
    if (!place_shift(*builder.set, &bytes)) {
        return in.fail(field, "with shift codes a character has one or two bytes");
    }
    const std::string_view name = take_field(in);
    uint32_t code = 0;
    if (!name.starts_with("U+") || !parse_code(name.substr(2), &code)) {
        return in.fail(name.empty() ? field : name, "a code point is expected, as in U+00E9");
    }
    const std::string_view flag = in.rest.empty() ? "0" : in.rest;
    if (flag.size() != 1 || flag[0] < '0' || flag[0] > '3') {
        return in.fail(flag, "the flag is 0 (both ways), 1 or 2 (to bytes), or 3 (to the code "
                             "point)");
    }
    builder.add(bytes, code, tie(flag[0] - '0'));
    return true;
}

// ---- UCM ----

struct state_step {
    uint8_t next = 0;
    bool is_final = true;
    char action = 'i'; // final steps: '.' character, 'u' unassigned, 'i' illegal, 's' shift,
                       // 'p' of code points beyond the basic plane
};
using state_row = std::array<state_step, 256>;
constexpr size_t most_states = 128;

struct ucm_reader {
    line_reader in;
    set_builder builder;
    std::vector<state_row> states;
};

// Reads one item of a state's line: FIRST[-LAST][:NEXT][.[ACTION]].
bool read_state_item(const line_reader &in, std::string_view item, state_row &row) {
    const std::string_view whole = item;
    const size_t range_end = std::min(item.find_first_of(":."), item.size());
    const std::string_view range = item.substr(0, range_end);
    const size_t dash = std::min(range.find('-'), range.size());
    uint32_t first = 0, last = 0, next = 0;
    if (!parse_hex(range.substr(0, dash), &first)) return in.fail(whole, "a byte is expected");
    last = first;
    if (dash < range.size() && !parse_hex(range.substr(dash + 1), &last)) {
        return in.fail(whole, "the end of the range is not a byte");
    }
    item.remove_prefix(range_end);
    const bool has_next = !item.empty() && item[0] == ':';
    const size_t dot = std::min(item.find('.'), item.size());
    if (has_next && !parse_hex(item.substr(1, dot - 1), &next)) {
        return in.fail(whole, "the number of the next state is expected after \":\"");
    }
    const bool is_final = !has_next || dot < item.size();
    const char action = dot + 1 < item.size() ? item[dot + 1] : '.';
    if (last > 0xFF || first > last || next >= most_states ||
        std::string_view(".uisp").find(action) == std::string_view::npos) {
        return in.fail(whole, "this is no step of a state; one is written FIRST[-LAST][:NEXT]"
                              "[.[u|i|s|p]] with bytes up to ff and states below 128");
    }
    for (uint32_t b = first; b <= last; ++b)
        row[b] = {uint8_t(next), is_final, action};
    return true;
}

bool read_state(ucm_reader &rd) {
    if (rd.states.size() == most_states) {
        return rd.in.fail(rd.in.rest, "more than 128 states; remove those that no step leads to");
    }
    rd.states.emplace_back();
    std::string_view items = rd.in.rest;
    while (!items.empty()) {
        const size_t end = std::min(items.find(','), items.size());
        const std::string_view item = trimmed(items.substr(0, end));
        items.remove_prefix(std::min(end + 1, items.size()));
        if (item.empty() || item == "initial" || item == "surrogates") continue;
        if (!read_state_item(rd.in, item, rd.states.back())) return false;
    }
    return true;
}

// Finds the shift codes: the bytes of the first state with the action "s", into another state and
// back.
void find_shifts(ucm_reader &rd) {
    if (rd.states.empty()) return;
    conv_set &set = *rd.builder.set;
    for (size_t b = 0; b < 256; ++b) {
        const state_step &step = rd.states[0][b];
        if (!step.is_final || step.action != 's') continue;
        (step.next ? set.shift_out : set.shift_in) = uint8_t(b);
        set.stateful |= step.next != 0;
    }
}

// Do the states accept a byte sequence?
bool states_allow(const ucm_reader &rd, char_bytes bytes) {
    if (rd.states.empty()) return true;
    size_t state = 0;
    if (bytes.shifted) state = rd.states[0][rd.builder.set->shift_out].next;
    for (unsigned i = 0; i < bytes.len; ++i) {
        if (state >= rd.states.size()) return false;
        const state_step &step = rd.states[state][bytes.value >> 8 * (bytes.len - 1u - i) & 0xFF];
        if (step.is_final) {
            return i + 1u == bytes.len && (step.action == '.' || step.action == 'p');
        }
        state = step.next;
    }
    return false;
}

bool read_ucm_header(ucm_reader &rd) {
    line_reader &in = rd.in;
    const std::string_view key = take_field(in);
    if (key == "<icu:state>") return read_state(rd);
    if (key == "<uconv_class>") {
        if (in.rest == "\"EBCDIC_STATEFUL\"") rd.builder.set->stateful = true;
    } else if (key == "<icu:base>") {
        return in.fail(key, "a table that only adds to another one cannot be compiled");
    }
    return true;
}

// <Uxxxx> \x81\x40 |0
bool read_ucm_line(ucm_reader &rd) {
    line_reader &in = rd.in;
    const std::string_view name = take_field(in);
    if (name.size() < 7 || !name.starts_with("<U") || name.back() != '>') {
        return in.fail(name, "a code point is expected, as in <U00E9>");
    }
    std::string digits;
    const std::string_view written = take_field(in);
    for (size_t i = 0; i < written.size(); i += 4) {
        if (!written.substr(i).starts_with("\\x") || i + 4 > written.size()) {
            return in.fail(name, "the bytes are expected, as in \\x81\\x40");
        }
        digits += written.substr(i + 2, 2);
    }
    const std::string_view flag = in.rest.empty() ? "|0" : in.rest;
    if (flag.size() != 2 || flag[0] != '|' || flag[1] < '0' || flag[1] > '4') {
        return in.fail(name, "the flag is one of |0 to |4");
    }
    if (name.find("><") != std::string_view::npos || name.find('+') != std::string_view::npos) {
        ++rd.builder.set->sequences;
        return true;
    }
    uint32_t code = 0;
    char_bytes bytes;
    if (!parse_code(name.substr(2, name.size() - 3), &code)) {
        return in.fail(name, "this is not a code point");
    }
    if (!parse_bytes(digits, &bytes) || !place_shift(*rd.builder.set, &bytes)) {
        return in.fail(name, "these bytes are not a character of the code set");
    }
    const tie kind = flag[1] == '4' ? tie::to_bytes : tie(flag[1] - '0');
    if (kind != tie::substitute && !states_allow(rd, bytes)) {
        return in.fail(name, "the state table does not accept these bytes");
    }
    rd.builder.add(bytes, code, kind);
    return true;
}

} // namespace

bool read_mapping(const source_file &file, diagnostics &diag, conv_set &set) {
    line_reader in{&file, &diag, 0, {}};
    set_builder builder{&set, {}, {}};
    while (next_text(in)) {
        if (!read_mapping_line(in, builder)) return false;
    }
    if (!set.codes.empty()) return true;
    error(diag, {&file, 0}, "the mapping file holds no characters");
    return false;
}

// Recognised by flags after the bytes, or by a key that charmaps do not have.
bool is_ucm(std::string_view text) {
    return text.find("<uconv_class>") != text.npos || text.find("<icu:state>") != text.npos ||
           (text.find("\nCHARMAP") != text.npos && text.find(" |0") != text.npos);
}

bool read_ucm(const source_file &file, diagnostics &diag, conv_set &set) {
    ucm_reader rd{
        {&file, &diag, 0, {}},
        {&set,    {}, {}},
        {}
    };
    bool in_map = false, ended = false;
    while (!ended && next_text(rd.in)) {
        const std::string_view line = rd.in.rest;
        if (line == "CHARMAP") {
            in_map = true;
            find_shifts(rd);
        } else if (in_map && line.starts_with("END")) {
            ended = true;
        } else if (!(in_map ? read_ucm_line(rd) : read_ucm_header(rd))) {
            return false;
        }
    }
    if (ended && !set.codes.empty()) return true;
    error(diag, {&file, 0}, ended ? "the table holds no characters" : "CHARMAP has no END CHARMAP");
    return false;
}

} // namespace kovac
