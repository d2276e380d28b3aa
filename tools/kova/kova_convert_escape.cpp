// What kova convert writes for characters that the target lacks, if it is told to: transliterations
// and escapes; and escapes that are read back.
#include "kova/kova_convert_job.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace kovacli {

static char introducer(escape_form form) { return form == escape_form::xml ? '&' : '\\'; }

static escape_form form_of(const std::string &name) {
    return name == "xml"   ? escape_form::xml
           : name == "uni" ? escape_form::uni
           : name == "hex" ? escape_form::hex
                           : escape_form::none;
}

static std::string formatted(const char *format, unsigned value) {
    char text[16];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// ---- writing ----

// The bytes of a character, with the shift codes around it that its state needs.
static std::string whole_bytes(const convert_job &job, const unsigned char *text, size_t len) {
    const void *const start = text;
    const std::string bytes(static_cast<const char *>(start), len);
    const bool shifted = job.st.leg[0].source_state != 0;
    return shifted ? job.source_opening + bytes + job.source_closing : bytes;
}

static std::string escape_of(const convert_job &job, const unsigned char *text, size_t len,
                             uint32_t point) {
    if (job.escapes == escape_form::xml) return formatted("&#x%X;", point);
    if (job.escapes == escape_form::uni && point < 0x10000) return formatted("\\u%04X", point);
    if (job.escapes == escape_form::uni)
        return formatted("\\u%04X", 0xD7C0 + (point >> 10)) +
               formatted("\\u%04X", 0xDC00 | (point & 0x3FF));
    std::string escape;
    for (const char byte : whole_bytes(job, text, len))
        escape += formatted("\\x%02X", uint8_t(byte));
    return escape;
}

// The spelling of a character that the target can write; NULL if it has none. One that may begin an
// escape is none where escapes are written.
static const std::string *spelling_of(convert_job &job, uint32_t point) {
    const auto found = job.spellings.find(point);
    if (found == job.spellings.end()) return nullptr;
    for (const std::string &spelling : found->second) {
        const bool begins_one = job.escapes != escape_form::none &&
                                spelling.find(introducer(job.escapes)) != spelling.npos;
        if (!begins_one && fits_target(job, spelling)) return &spelling;
    }
    return nullptr;
}

static bool write_spelling(convert_job &job, output &out, uint32_t point) {
    const std::string *const spelling = point == no_code_point ? nullptr : spelling_of(job, point);
    if (spelling) write_utf8(job, out, *spelling);
    return spelling;
}

bool write_otherwise(convert_job &job, output &out, const unsigned char *text, size_t len,
                     uint32_t point, const std::string &where) {
    if (write_spelling(job, out, point)) {
        note(job.found[transliterated], where);
        return true;
    }
    const bool by_code = job.escapes == escape_form::xml || job.escapes == escape_form::uni;
    // In a state that no shift code of one byte enters, bytes alone would say something else.
    const bool stateless = job.st.leg[0].source_state == 0 || !job.source_opening.empty();
    if (job.escapes == escape_form::none || (by_code ? point == no_code_point : !stateless))
        return false;
    write_utf8(job, out, escape_of(job, text, len, point));
    note(job.found[escaped], where);
    return true;
}

// ---- what is an escape ----

namespace {
struct escape_value {
    size_t count = 0; // its characters; 0: there is no escape
    uint32_t code = 0;
};
} // namespace

// The digits at text[at], up to what comes after them; no_code_point for none or too many.
static uint32_t number_at(std::string_view text, size_t &at, int base, size_t most) {
    uint32_t value = 0;
    const char *const start = text.data() + at;
    const size_t room = std::min(most, text.size() - at);
    const auto [end, error] = std::from_chars(start, start + room, value, base);
    if (error != std::errc() || end == start) return no_code_point;
    at += size_t(end - start);
    return value;
}

static bool is_character(uint32_t code) {
    return code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
}

// "&#x41;" or "&#65;"
static escape_value read_xml(std::string_view text) {
    if (!text.starts_with("&#")) return {};
    const bool is_hex = text.size() > 2 && (text[2] == 'x' || text[2] == 'X');
    size_t at = is_hex ? 3 : 2;
    const uint32_t code = number_at(text, at, is_hex ? 16 : 10, 8);
    const bool whole = is_character(code) && at < text.size() && text[at] == ';';
    return whole ? escape_value{at + 1, code} : escape_value{};
}

// The four digits of "\u0041"; no_code_point for anything else.
static uint32_t unit_at(std::string_view text, size_t at) {
    if (text.size() < at + 6 || text.substr(at, 2) != "\\u") return no_code_point;
    size_t digits = at + 2;
    const uint32_t unit = number_at(text, digits, 16, 4);
    return digits == at + 6 ? unit : no_code_point;
}

// "\u0041", "\uD83D\uDE00" or "\u{1F600}"
static escape_value read_uni(std::string_view text) {
    if (text.starts_with("\\u{")) {
        size_t at = 3;
        const uint32_t code = number_at(text, at, 16, 8);
        const bool whole = is_character(code) && at < text.size() && text[at] == '}';
        return whole ? escape_value{at + 1, code} : escape_value{};
    }
    const uint32_t unit = unit_at(text, 0);
    if (is_character(unit)) return {6, unit};
    const uint32_t low = unit_at(text, 6);
    if (unit > 0xDBFF || low < 0xDC00 || low > 0xDFFF) return {};
    return {12, 0x10000 + ((unit & 0x3FF) << 10) + (low & 0x3FF)};
}

// "\xE9"
static escape_value read_hex(std::string_view text) {
    if (!text.starts_with("\\x")) return {};
    size_t at = 2;
    const uint32_t byte = number_at(text, at, 16, 2);
    return at == 4 ? escape_value{4, byte} : escape_value{};
}

static escape_value read_escape(escape_form form, std::string_view text) {
    return form == escape_form::xml   ? read_xml(text)
           : form == escape_form::uni ? read_uni(text)
           : form == escape_form::hex ? read_hex(text)
                                      : escape_value{};
}

// ---- finding them ----

// Is this unit of two or four bytes the character, in either order?
static bool is_unit(const unsigned char *text, size_t unit, char c) {
    const auto zeros = size_t(std::count(text, text + unit, 0));
    return zeros == unit - 1 && (text[0] == uint8_t(c) || text[unit - 1] == uint8_t(c));
}

size_t before_escape(const convert_job &job, const unsigned char *text, size_t len) {
    if (job.may_begin.none()) return len;
    const size_t unit = job.is_utf8 ? 1 : job.newline.size();
    if (unit == 1)
        return size_t(
            std::find_if(text, text + len, [&](unsigned char c) { return job.may_begin[c]; }) -
            text);
    for (size_t i = 0; i + unit <= len; i += unit)
        for (const escape_form form : {job.escapes, job.unescapes})
            if (form != escape_form::none && is_unit(text + i, unit, introducer(form))) return i;
    return len;
}

namespace {
// The characters of ASCII at a place of the source, and where each ends.
struct ahead {
    std::string text;
    std::vector<size_t> ends;
    std::string spelled; // with what spellings make of the other characters
    bool cut = false;    // more of the text must be read to know
};
} // namespace

// What a character beyond ASCII becomes; "" for itself, or if it has no spelling.
static std::string spelled_as(convert_job &job, uint32_t point) {
    std::string own;
    append_utf8(point, own);
    const std::string *const spelling = spelling_of(job, point);
    return spelling && !fits_target(job, own) ? *spelling : "";
}

static ahead look_ahead(convert_job &job, const input &in) {
    constexpr size_t longest_escape = 12;
    ahead seen;
    const unsigned char *const text = in.block.data() + in.at;
    const size_t len = in.fill - in.at;
    for (size_t at = 0; seen.spelled.size() < longest_escape;) {
        uint32_t point = 0;
        const int count = at < len ? source_character(job, text + at, len - at, point) : -1;
        seen.cut = count < 0 && !in.at_end;
        if (count <= 0) break;
        at += size_t(count);
        const std::string made =
            point < 0x80 ? std::string(1, char(point)) : spelled_as(job, point);
        if (made.empty()) break;
        if (point < 0x80 && seen.text.size() == seen.spelled.size()) {
            seen.text += made;
            seen.ends.push_back(at);
        }
        seen.spelled += made;
    }
    return seen;
}

static void take_characters(convert_job &job, input &in, size_t bytes) {
    for (conv_state &leg : job.st.leg)
        leg.first_frag = 0; // the text has begun
    advance(job, job.place, in.block.data() + in.at, bytes, job.st.leg[0]);
    job.bytes += bytes;
    take(in, bytes);
}

// Writes what an escape of the source stands for.
static void write_value(convert_job &job, const input &in, output &out, const ahead &seen,
                        const escape_value &value) {
    const std::string where = place_text(in, job.place) + ": the escape " +
                              seen.text.substr(0, value.count) + " is " +
                              code_point_text(value.code);
    if (job.unescapes == escape_form::hex) {
        note(job.found[unescaped], place_text(in, job.place));
        return write_raw(job, out, std::string(1, char(value.code)));
    }
    std::string text;
    append_utf8(value.code, text);
    const bool begins_one = job.escapes != escape_form::none && text[0] == introducer(job.escapes);
    if (!begins_one && fits_target(job, text)) {
        note(job.found[unescaped], place_text(in, job.place));
        return write_utf8(job, out, text);
    }
    if (write_otherwise(job, out, bytes_of(text), text.size(), value.code, where)) return;
    if (!job.goes_on) {
        bad_input bad;
        bad.len = seen.ends[value.count - 1];
        bad.code = value.code;
        throw stopped(job, unmapped, in.block.data() + in.at, bad,
                      where + ", which " + job.way.to.name + " lacks; --skip or --replace");
    }
    note(job.found[unmapped], where);
    if (job.options->replace) write_replacement(job, out);
}

escape_result take_escape(convert_job &job, input &in, output &out) {
    const ahead seen = look_ahead(job, in);
    if (seen.cut) return escape_result::unknown;
    if (const escape_value value = read_escape(job.unescapes, seen.text); value.count > 0) {
        write_value(job, in, out, seen, value);
        take_characters(job, in, seen.ends[value.count - 1]);
        return escape_result::taken;
    }
    if (job.options->keep_escapes || read_escape(job.escapes, seen.spelled).count == 0)
        return escape_result::none;
    // Text that looks like an escape: its first character is written as one.
    const unsigned char *const text = in.block.data() + in.at;
    write_utf8(job, out, escape_of(job, text, seen.ends[0], uint32_t(uint8_t(seen.text[0]))));
    note(job.found[escaped], place_text(in, job.place));
    take_characters(job, in, seen.ends[0]);
    return escape_result::taken;
}

// ---- preparation ----

// Finds the shift codes of the source by trying its bytes.
static void learn_shifts(convert_job &job) {
    for (unsigned i = 0; job.has_to_utf8 && i < 256; ++i) {
        const auto byte = uint8_t(i);
        for (const int shifted : {0, 1}) {
            route_state st;
            source_state(st) = shifted;
            const run_result got = run(job.to_utf8, st, &byte, 1, false, job.scratch);
            // Other states than 0 and 1 are those of rules, which no byte alone enters and leaves.
            if (got.error != KO_OK || source_state(st) != !shifted) continue;
            (shifted ? job.source_closing : job.source_opening) = std::string(1, char(byte));
        }
    }
}

// Finds the bytes that may begin an escape in the source.
static void learn_beginnings(const data_place &place, convert_job &job, char begins) {
    job.may_begin.set(uint8_t(begins), job.is_utf8 || job.newline.size() > 1);
    if (!job.has_to_utf8) return;
    for (unsigned i = 0; i < 256; ++i) {
        const auto byte = uint8_t(i);
        route_state st;
        const run_result got = run(job.to_utf8, st, &byte, 1, false, job.scratch);
        if (got.error == KO_OK && job.scratch.text() == std::string_view(&begins, 1))
            job.may_begin.set(byte);
    }
    route to_source;
    route_state st;
    if (!open_route(place, utf8_code_set(), job.way.from, to_source)) return;
    const auto byte = uint8_t(begins);
    const run_result got = run(to_source, st, &byte, 1, false, job.scratch);
    if (got.error == KO_OK && job.scratch.used > 0) job.may_begin.set(job.scratch.room[0]);
}

static void need_utf8(const data_place &place, convert_job &job, const char *option) {
    if (!job.has_from_utf8)
        job.has_from_utf8 = open_route(place, utf8_code_set(), job.way.to, job.from_utf8);
    const bool reads = job.is_utf8 || job.is_utf16 || job.has_to_utf8;
    if (!reads || !job.has_from_utf8)
        throw failure(bad_usage, std::string(option) +
                                     ": there is no conversion between utf8 and " +
                                     (reads ? job.way.to.name : job.way.from.name));
}

void learn_escapes(const data_place &place, convert_job &job) {
    const convert_options &options = *job.options;
    job.escapes = form_of(options.escape);
    job.unescapes = form_of(options.unescape);
    if (options.translit) {
        need_utf8(place, job, "--translit");
        job.spellings = read_translit(place);
    }
    if (job.escapes != escape_form::none) {
        need_utf8(place, job, "--escape");
        const char *const characters = job.escapes == escape_form::xml   ? "&#x;0123456789ABCDEF"
                                       : job.escapes == escape_form::uni ? "\\u0123456789ABCDEF"
                                                                         : "\\x0123456789ABCDEF";
        if (!fits_target(job, characters))
            throw failure(bad_usage, "--escape " + options.escape + ": " + job.way.to.name +
                                         " lacks one of the characters " + characters);
        learn_shifts(job);
    }
    constexpr uint16_t utf7 = 57506, mailbox = 57507;
    const bool in_digits = job.way.from.number == utf7 || job.way.from.number == mailbox;
    if (in_digits && (job.escapes != escape_form::none || job.unescapes != escape_form::none))
        throw failure(bad_usage, "--escape and --unescape do not read " + job.way.from.name +
                                     ", whose digits hide characters; convert it to utf8 first");
    if (job.unescapes != escape_form::none) need_utf8(place, job, "--unescape");
    for (const escape_form form : {job.escapes, job.unescapes})
        if (form != escape_form::none) learn_beginnings(place, job, introducer(form));
}

} // namespace kovacli
