// The parts of kova convert share this: what one run of the command knows, the place in the text
// that it reads, and what it has to tell.
#pragma once

#include <array>
#include <bitset>
#include <optional>
#include <string>
#include <vector>

#include "kova/kova_cli.h"
#include "kova/kova_convert.h"
#include "kova/kova_convert_newline.h"
#include "kova/kova_frames.h"
#include "kova/kova_io.h"
#include "kova/kova_progress.h"
#include "kova/kova_text.h"
#include "kova/kova_translit.h"

namespace kovacli {

struct text_place {
    uint64_t offset = 0, line = 1, column = 1; // bytes from 0, lines and characters from 1
};

// What a report records of one kind of trouble.
struct finding {
    const char *name;
    uint64_t count = 0;
    std::vector<std::string> first; // places, at most shown_places
};
constexpr size_t shown_places = 5;

enum finding_kind : uint8_t {
    substituted,
    one_way,
    unmapped,
    invalid,
    cut_off,
    transliterated,
    escaped,
    unescaped
};
using findings = std::array<finding, 8>;

enum class escape_form : uint8_t { none, xml, uni, hex };

struct bad_input : bad_character {
    size_t seen = 0; // bytes that show it is bad: len, or more if the next ones are kept
};

// What stopped a text, for the report: the place, and where and how it can be resumed.
struct stop_report {
    std::string kind, message, bytes;
    uint32_t code = no_code_point;
    text_place place;
    size_t len = 0;                // bytes of what stopped it
    std::string state, next_state; // there, and after it
};

// What happened to one input.
struct input_report {
    std::string input, output;
    uint64_t bytes_in = 0, bytes_out = 0, characters = 0;
    std::array<uint64_t, std::tuple_size_v<findings>> counts{};
    std::optional<stop_report> stop;
    std::string failure; // a reason beside text, such as a file that cannot be read
};

// Records that are lines of the text.
struct record_job {
    std::optional<frame_format> from, to;
    line_controls source, target;
    bool shifts = false; // of the source: each record begins unshifted
    std::string blank;   // fills fixed records
};

struct convert_job {
    const convert_options *options = nullptr;
    bool goes_on = false;
    // The others: for messages, for newline and replacement, and to tell what was substituted.
    route way, to_utf8, from_utf8, back;
    bool has_to_utf8 = false, has_from_utf8 = false, has_back = false;
    bool is_utf8 = false, is_utf16 = false, one_byte = false; // the source
    bool by_mark = false; // the byte order of the source, and so its newline, is in its first bytes
    std::string mark;     // what may begin the source and is no character
    std::string newline = "\n", replacement;
    std::string nel; // ends a line of the source, too; "" if it does not
    line_ends ends;
    record_job records;
    bool replacement_is_utf8 = false;
    byte_buffer converted, scratch;
    findings found{
        {{"substituted by the conversion"},
         {"that would come back as other bytes"},
         {"without a counterpart"},
         {"invalid"},
         {"cut off by the end of a text"},
         {"transliterated"},
         {"escaped"},
         {"read from an escape"}}
    };
    // Escapes and transliteration.
    escape_form escapes = escape_form::none, unescapes = escape_form::none;
    std::string source_opening, source_closing; // shift codes of the source; "": none of one byte
    std::bitset<256> may_begin; // first bytes of what begins an escape in the source
    translit_table spellings;
    // The current text.
    route_state st;
    text_place place;
    bool closed = false;
    uint64_t characters = 0; // counted for a report
    std::optional<stop_report> stop;
    kovacli::progress progress;
    uint64_t bytes = 0;             // converted so far
    size_t piece = size_t{1} << 20; // converted at a time: little where much does not convert
};

inline const unsigned char *bytes_of(std::string_view text) {
    const void *const bytes = text.data();
    return static_cast<const unsigned char *>(bytes);
}

inline int &source_state(route_state &st) { return st.leg[0].source_state; }

// A state inside a text, as far as the source tells: shifted or not, and its byte order.
inline route_state inside(const conv_state &source) {
    route_state st;
    st.leg[0].source_state = source.source_state;
    st.leg[0].ext_state = source.ext_state;
    return st;
}

// ---- kova_convert_place.cpp ----

// Moves a place over valid text.
void advance(convert_job &job, text_place &place, const unsigned char *text, size_t len,
             conv_state from);
std::string place_text(const input &in, const text_place &place);

// Bytes of the source character at text, 0 if it is not one, -1 if the text ends inside it.
int source_character(convert_job &job, const unsigned char *text, size_t len, uint32_t &point);
bad_input diagnose(convert_job &job, const unsigned char *text, size_t len, int error);
// "the bytes c3 a9 are U+00E9 (é)".
std::string character_text(const unsigned char *text, size_t len, uint32_t point);
std::string trouble_text(const convert_job &job, const bad_input &bad);

// ---- kova_convert.cpp ----

// The failure at a character or an escape, which the report describes; the message lists what
// continues.
failure stopped(convert_job &job, finding_kind kind, const unsigned char *text,
                const bad_input &bad, const std::string &message);
// Can the target write all of a text in UTF-8, as it is?
bool fits_target(convert_job &job, const std::string &text);
// Writes a text in UTF-8 that the target can write.
void write_utf8(convert_job &job, output &out, const std::string &text);
void write_replacement(convert_job &job, output &out);
// Writes bytes of the target's unshifted state as they are.
void write_raw(convert_job &job, output &out, const std::string &bytes);

// ---- kova_convert_escape.cpp ----

// Prepares what --escape, --unescape and --translit ask for. Throws failure.
void learn_escapes(const data_place &place, convert_job &job);

// Writes a character that the target lacks, by its transliteration or as an escape; with
// escape_form::hex also bytes that are no character. False if neither serves.
bool write_otherwise(convert_job &job, output &out, const unsigned char *text, size_t len,
                     uint32_t point, const std::string &where);

// Bytes before the next place of the text that may begin an escape; len if there is none.
size_t before_escape(const convert_job &job, const unsigned char *text, size_t len);

// What stands at a place that before_escape found.
enum class escape_result : uint8_t {
    none,   // no escape: the character is converted like others
    taken,  // it was written, and the input is after it
    unknown // more of the text must be read
};
escape_result take_escape(convert_job &job, input &in, output &out);

// ---- kova_convert_records.cpp ----

// Prepares what --records and --to-records ask for. Throws failure.
void learn_records(const data_place &place, convert_job &job);

// Puts the records of an input as lines into its place. Throws failure.
void read_records(const record_job &records, input &in);

// A place for lines, and these as records of an output. Throws failure.
void open_lines(output &lines);
void write_records(const record_job &records, output &lines, output &out);

// ---- kova_convert_report.cpp ----

void note(finding &found, const std::string &where);
// Tells on standard error what was not converted as it is.
void tell_findings(const convert_job &job);
// Writes the report of all inputs to standard output.
void write_report(const convert_job &job, const std::vector<input_report> &inputs, int status);

} // namespace kovacli
