// kova convert: text from one code set to another, in pieces, with the place of everything that
// does not convert.
#include "kova/kova_convert.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "common/tool_text.h"
#include "kova/kova_convert_newline.h"
#include "kova/kova_io.h"
#include "kova/kova_text.h"

namespace kovacli {

namespace {

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
constexpr uint32_t nel_code = 0x85;
constexpr size_t least_piece = 1024;

enum finding_kind : uint8_t { substituted, one_way, unmapped, invalid, cut_off };

struct convert_job {
    const convert_options *options = nullptr;
    bool goes_on = false;
    // The others: for messages, for newline and replacement, and to tell what was substituted.
    route way, to_utf8, from_utf8, back;
    bool has_to_utf8 = false, has_from_utf8 = false, has_back = false;
    bool is_utf8 = false, is_utf16 = false, one_byte = false; // the source
    bool by_mark = false; // the byte order of the source, and so its newline, is in its first bytes
    std::string newline = "\n", replacement;
    std::string nel; // ends a line of the source, too; "" if it does not
    line_ends ends;
    bool replacement_is_utf8 = false;
    byte_buffer converted, scratch;
    finding findings[5] = {{"substituted by the conversion"},
                           {"that would come back as other bytes"},
                           {"without a counterpart"},
                           {"invalid"},
                           {"cut off by the end of a text"}};
    // The current text.
    route_state st;
    text_place place;
    bool closed = false;
    // Progress.
    bool reports = false, reported = false;
    uint64_t total = 0, bytes = 0;
    size_t piece = size_t{1} << 20; // converted at a time: little where much does not convert
    double started = 0, next_report = 0;
};

const unsigned char *bytes_of(std::string_view text) {
    return reinterpret_cast<const unsigned char *>(text.data());
}

int &source_state(route_state &st) { return st.leg[0].source_state; }

// A state inside a text, as far as the source tells: shifted or not, and its byte order.
route_state inside(const conv_state &source) {
    route_state st;
    st.leg[0].source_state = source.source_state;
    st.leg[0].ext_state = source.ext_state;
    return st;
}

// ---- places ----

uint64_t utf8_characters(const unsigned char *text, size_t len) {
    return uint64_t(
        std::count_if(text, text + len, [](unsigned char c) { return (c & 0xC0) != 0x80; }));
}

// The number of characters in valid source text that starts in a given shift state.
uint64_t characters(convert_job &job, const unsigned char *text, size_t len,
                    const conv_state &from) {
    if (job.is_utf8) return utf8_characters(text, len);
    if (job.is_utf16) {
        uint64_t count = 0;
        for (size_t i = 0; i + 1 < len; i += 2)
            count += (text[i] & 0xFC) != 0xDC;
        return count;
    }
    if (job.one_byte || !job.has_to_utf8) return len;
    route_state st = inside(from);
    uint64_t count = 0;
    for (size_t at = 0; at < len;) {
        const run_result got = run(job.to_utf8, st, text + at, len - at, false, job.scratch);
        count += utf8_characters(job.scratch.room.data(), job.scratch.used);
        at += got.taken;
        if (got.error == KO_OK && got.taken > 0) continue;
        if (at < len) ++count, ++at; // the target has what utf8 lacks
    }
    return count;
}

// Counts line ends; tail becomes the place after the last one, if that is further on.
uint64_t count_lines(const std::string &end, const unsigned char *text, size_t len, size_t &tail) {
    uint64_t lines = 0;
    size_t last = 0;
    if (end.size() == 1) {
        const auto byte = uint8_t(end[0]);
        lines = uint64_t(std::count(text, text + len, byte));
        if (lines > 0)
            for (last = len; text[last - 1] != byte;)
                --last;
    }
    const bool is_utf8 = end.size() == 2 && end[0] == '\xC2'; // its units are bytes
    const size_t unit = is_utf8 ? 1 : end.size();
    for (size_t i = 0; end.size() > 1 && i + end.size() <= len; i += unit) {
        if (std::memcmp(text + i, end.data(), end.size()) != 0) continue;
        ++lines;
        last = i + end.size();
    }
    tail = std::max(tail, last);
    return lines;
}

// Moves a place over valid text.
void advance(convert_job &job, text_place &place, const unsigned char *text, size_t len,
             conv_state from) {
    size_t tail = 0;
    uint64_t lines = count_lines(job.newline, text, len, tail);
    if (!job.nel.empty()) lines += count_lines(job.nel, text, len, tail);
    place.offset += len;
    place.line += lines;
    if (lines > 0) {
        place.column = 1;
        from.source_state = 0; // the end of a line is a character of the unshifted state
    }
    place.column += characters(job, text + tail, len - tail, from);
}

std::string place_text(const input &in, const text_place &place) {
    return in.name + ":" + std::to_string(place.line) + ":" + std::to_string(place.column) +
           ": byte offset " + std::to_string(place.offset);
}

// ---- what does not convert ----

// Bytes of the source character at text, 0 if it is not one, -1 if the text ends inside it.
int source_character(convert_job &job, const unsigned char *text, size_t len, uint32_t &point) {
    if (job.is_utf8) return utf8_char(text, len, point);
    if (job.is_utf16) {
        if (len < 2) return -1;
        point = uint32_t{text[0]} << 8 | text[1];
        if ((point & 0xF800) != 0xD800) return 2;
        if (point >= 0xDC00) return 0;
        if (len < 4) return -1;
        const uint32_t low = uint32_t{text[2]} << 8 | text[3];
        if ((low & 0xFC00) != 0xDC00) return 0;
        point = 0x10000 + ((point & 0x3FF) << 10) + (low & 0x3FF);
        return 4;
    }
    if (!job.has_to_utf8) return 0;
    constexpr size_t longest = 8; // with a single shift or in UTF-7
    for (size_t count = 1; count <= std::min(len, longest); ++count) {
        route_state st = inside(job.st.leg[0]);
        const run_result got = run(job.to_utf8, st, text, count, false, job.scratch);
        if (got.error == KO_EINVAL) continue;
        const bool whole = got.error == KO_OK && job.scratch.used > 0;
        return whole && utf8_char(job.scratch.room.data(), job.scratch.used, point) > 0 ? int(count)
                                                                                        : 0;
    }
    return -1;
}

// Can invalid input be distinguished from characters that only the target lacks?
bool knows_source(const convert_job &job) { return job.is_utf8 || job.is_utf16 || job.has_to_utf8; }

// Tries to convert the first bytes of text by themselves; returns the error.
int trial(convert_job &job, const unsigned char *text, size_t len) {
    route_state st = inside(job.st.leg[0]);
    return run(job.has_to_utf8 && job.to_utf8.legs > 0 ? job.to_utf8 : job.way, st, text, len,
               false, job.scratch)
        .error;
}

// The length of an invalid sequence: the bytes that make it invalid, without those that are
// characters by themselves.
size_t invalid_length(convert_job &job, const unsigned char *text, size_t len, size_t &seen) {
    if (job.is_utf8) {
        seen = utf8_bad_bytes(text, len);
        return std::max<size_t>(seen - 1, 1);
    }
    if (job.newline.size() > 1) return std::min(len, job.newline.size()); // a unit
    size_t count = 1;
    while (count < std::min<size_t>(len, 4) && trial(job, text, count) == KO_EINVAL)
        ++count;
    seen = count;
    for (size_t i = 1; i < count; ++i)
        if (trial(job, text + i, 1) == KO_OK) return i;
    return count;
}

struct bad_input : bad_character {
    size_t seen = 0; // bytes that show it is bad: len, or more if the next ones are kept
};

bad_input diagnose(convert_job &job, const unsigned char *text, size_t len, int error) {
    bad_input bad;
    uint32_t point = 0;
    const int count = source_character(job, text, len, point);
    if (count > 0) {
        bad.why = fault::missing;
        bad.len = size_t(count);
        bad.code = point;
    } else if (count < 0 || (error == KO_EINVAL && !knows_source(job))) {
        bad.why = fault::cut;
        bad.len = len;
    } else {
        bad.why = fault::invalid;
        bad.len = invalid_length(job, text, len, bad.seen);
    }
    bad.seen = std::max(bad.seen, bad.len);
    std::copy_n(text, std::min<size_t>(bad.seen, 4), bad.bytes.begin());
    return bad;
}

// The text of a character: "the bytes c3 a9 are U+00E9 (é)".
std::string character_text(const unsigned char *text, size_t len, uint32_t point) {
    const std::string_view bytes(reinterpret_cast<const char *>(text), std::min<size_t>(len, 4));
    std::string all = (len == 1 ? "the byte " : "the bytes ") + hex(bytes, " ") +
                      (len == 1 ? " is " : " are ") +
                      (point == no_code_point ? "a character" : code_point_text(point));
    if (point < 0xA0 || point == no_code_point) return all;
    all += " (";
    append_utf8(point, all);
    return all + ")";
}

std::string trouble_text(const convert_job &job, const bad_input &bad) {
    const std::string bytes =
        hex({reinterpret_cast<const char *>(bad.bytes.data()), std::min<size_t>(bad.seen, 4)}, " ");
    const std::string subject = (bad.seen == 1 ? "the byte " : "the bytes ") + bytes;
    switch (bad.why) {
    case fault::missing: {
        return character_text(bad.bytes.data(), bad.seen, bad.code) + ", which " + job.way.to.name +
               " lacks";
    }
    case fault::cut:
        return "the text ends inside a character of " + job.way.from.name + " (" + bytes + ")";
    default:
        return subject + (bad.seen == 1 ? " does not begin" : " are not") + " a character of " +
               job.way.from.name +
               (knows_source(job) ? "" : ", or one that " + job.way.to.name + " lacks");
    }
}

void note(finding &found, const std::string &where) {
    ++found.count;
    if (found.first.size() < shown_places) found.first.push_back(where);
}

// ---- output ----

void write_replacement(convert_job &job, output &out) {
    for (conv_state &leg : job.st.leg)
        leg.first_frag = 0; // the text of the target has begun
    if (!job.replacement_is_utf8) {
        write_lines(job.ends, out, closing_shift(job.way, target_state(job.way, job.st)));
        target_state(job.way, job.st) = 0;
        write_lines(job.ends, out, job.replacement);
        return;
    }
    route_state st;
    target_state(job.from_utf8, st) = target_state(job.way, job.st);
    run(job.from_utf8, st, bytes_of(job.replacement), job.replacement.size(), false, job.scratch);
    target_state(job.way, job.st) = target_state(job.from_utf8, st);
    write_lines(job.ends, out, job.scratch.text());
}

// Writes the closing shift if the last character converted was not the end of the text, because
// that was skipped or replaced.
void close_text(convert_job &job, output &out) {
    finish_lines(job.ends, out);
    if (!job.closed) write(out, closing_shift(job.way, target_state(job.way, job.st)));
}

// ---- progress ----

std::string amount(double bytes) {
    char text[40];
    const bool large = bytes >= 1073741824.0;
    std::snprintf(text, sizeof text, "%.1f %s", bytes / (large ? 1073741824.0 : 1048576.0),
                  large ? "GiB" : "MiB");
    return text;
}

// The line on standard error, at most five times a second and not in the first second.
void report_progress(convert_job &job) {
    if (!job.reports) return;
    const double now = seconds_now();
    if (now < job.next_report) return;
    job.next_report = now + 0.2;
    job.reported = true;
    const double done_bytes = double(job.bytes), rate = done_bytes / (now - job.started);
    std::string text = amount(done_bytes);
    if (job.total > job.bytes)
        text += " of " + amount(double(job.total)) + " (" +
                std::to_string(int(100 * done_bytes / double(job.total))) + "%)";
    text += ", " + amount(rate) + "/s";
    if (job.total > job.bytes)
        text += ", " + std::to_string(int(double(job.total - job.bytes) / rate) + 1) + " s left";
    std::fprintf(stderr, "\rkova: %s\033[K", text.c_str());
    std::fflush(stderr);
}

void clear_progress(convert_job &job) {
    if (job.reported) std::fputs("\r\033[K", stderr);
    job.reported = false;
}

// ---- one text ----

bool is_line_end(const convert_job &job, const unsigned char *text, size_t len) {
    const auto is = [&](const std::string &end) {
        return len == end.size() && std::memcmp(text, end.data(), len) == 0;
    };
    return is(job.newline) || (!job.nel.empty() && is(job.nel));
}

void handle_bad(convert_job &job, input &in, output &out, int error) {
    if (error != KO_EILSEQ && error != KO_EINVAL)
        throw failure(bad_file, place_text(in, job.place) + ": the conversion fails with error " +
                                    std::to_string(error));
    const unsigned char *text = in.block.data() + in.at;
    const bad_input bad = diagnose(job, text, in.fill - in.at, error);
    if (bad.why == fault::missing && bad.code == nel_code && job.ends.changes()) {
        close_text(job, out); // the end of a line, which the target has as another one
        target_state(job.way, job.st) = 0;
        write(out, job.ends.wanted);
        advance(job, job.place, text, bad.len, job.st.leg[0]);
        return take(in, bad.len);
    }
    const std::string where = place_text(in, job.place) + ": " + trouble_text(job, bad);
    if (!job.goes_on) throw failure(bad_text, where + "; --skip or --replace continues");
    note(job.findings[bad.why == fault::missing ? unmapped
                      : bad.why == fault::cut   ? cut_off
                                                : invalid],
         where);
    if (job.options->replace) write_replacement(job, out);
    job.place.offset += bad.len;
    job.place.column += 1;
    // A newline that the target lacks still ends its line.
    if (is_line_end(job, text, bad.len)) {
        job.place.line += 1;
        job.place.column = 1;
    }
    take(in, bad.len);
}

// ---- what was converted to another character ----

// The code point of the first character of a text that has a route to utf8.
uint32_t first_point(convert_job &job, route &to_utf8, const conv_state &from,
                     const unsigned char *text, size_t len) {
    route_state st = inside(from);
    uint32_t point = no_code_point;
    const run_result got = run(to_utf8, st, text, len, false, job.scratch);
    const bool whole = got.error == KO_OK && got.taken == len && job.scratch.used > 0;
    return whole && utf8_char(job.scratch.room.data(), job.scratch.used, point) > 0 ? point
                                                                                    : no_code_point;
}

// A flagged character: where it begins, what it became, and the code points of both.
struct flagged_character {
    const unsigned char *text;
    size_t len;
    route_state before;
    const byte_buffer &made;
    uint32_t point = no_code_point, made_point = no_code_point;
    bool same() const { return point == made_point && point != no_code_point; }
};

void find_points(convert_job &job, flagged_character &c) {
    if (job.is_utf8 || job.is_utf16)
        source_character(job, c.text, c.len, c.point);
    else if (job.has_to_utf8)
        c.point = first_point(job, job.to_utf8, c.before.leg[0], c.text, c.len);
    const conv_state shifted = {.source_state = target_state(job.way, c.before)};
    if (job.has_back)
        c.made_point = first_point(job, job.back, shifted, c.made.room.data(), c.made.used);
}

std::string substitution_text(const convert_job &job, const flagged_character &c) {
    std::string text = character_text(c.text, c.len, c.point);
    if (c.point != no_code_point && !c.same()) text += ", which " + job.way.to.name + " lacks";
    text += "; the conversion writes " + hex(c.made.text(), " ");
    if (c.made_point != no_code_point) text += " (" + code_point_text(c.made_point) + ")";
    return text;
}

// Writes what a flagged character becomes. job.st is the state before it; after gets the target's
// state after it. The same character under other bytes loses nothing; another one stops the
// conversion unless that was asked for.
void write_flagged(convert_job &job, const input &in, output &out, flagged_character &c,
                   route_state &after) {
    const convert_options &options = *job.options;
    find_points(job, c);
    if (c.point == nel_code && job.ends.changes())
        return write_lines(job.ends, out, job.ends.wanted);
    const bool other = !c.same();
    finding &found = job.findings[other ? substituted : one_way];
    std::string where;
    if (found.first.size() < shown_places)
        where = place_text(in, job.place) + ": " + substitution_text(job, c);
    if (other && !job.goes_on && !options.accept)
        throw failure(bad_text, where + "; --accept-substitutes, --skip or --replace continues");
    note(found, where);
    if (!other || !(options.skip || options.replace))
        return write_lines(job.ends, out, c.made.text());
    if (options.replace) write_replacement(job, out);
    target_state(job.way, after) = target_state(job.way, job.st);
}

// Converts a piece some of whose characters are flagged, each of those by itself. Returns the bytes
// taken; job.st and job.place are those after them.
size_t convert_flagged(convert_job &job, const input &in, output &out, const unsigned char *text,
                       size_t len) {
    byte_buffer made;
    size_t at = 0;
    for (size_t piece = len; at < len;) {
        piece = std::min(piece, len - at);
        route_state next = job.st;
        const run_result got = run(job.way, next, text + at, piece, false, made);
        if (got.taken == 0) {
            if (piece >= len - at) break;
            ++piece;
            continue;
        }
        // The piece contains one, so one of its halves does, and so on down to one character.
        if (got.substituted && piece > 1) {
            route_state lone = job.st;
            const size_t fewer = piece > 8 ? piece / 2 : piece - 1;
            if (run(job.way, lone, text + at, fewer, false, made).taken > 0) {
                piece = fewer;
                continue;
            }
            next = job.st;
            run(job.way, next, text + at, piece, false, made);
        }
        flagged_character c{text + at, got.taken, job.st, made};
        if (got.substituted)
            write_flagged(job, in, out, c, next);
        else
            write_lines(job.ends, out, made.text());
        advance(job, job.place, text + at, got.taken, job.st.leg[0]);
        job.st = next;
        at += got.taken;
        piece *= 2;
    }
    return at;
}

// Converts the bytes at hand. The last ones wait until more is read or the text is known to end,
// because its last character is converted differently. False if more must be read first.
bool convert_piece(convert_job &job, input &in, output &out) {
    constexpr size_t longest_character = 4;
    const size_t unread = in.fill - in.at, kept = in.at_end ? 0 : longest_character;
    if (unread <= kept) return false;
    const unsigned char *text = in.block.data() + in.at;
    const route_state before = job.st;
    const size_t piece = std::min(unread - kept, job.piece);
    const bool last = in.at_end && piece == unread;
    run_result got = run(job.way, job.st, text, piece, last, job.converted);
    job.piece = got.error == KO_OK ? std::min(2 * job.piece, size_t{1} << 20) : least_piece;
    if (got.substituted) {
        job.st = before;
        const size_t taken = convert_flagged(job, in, out, text, got.taken);
        if (taken < got.taken) got.error = taken == 0 ? int{KO_EILSEQ} : int{KO_OK};
        got.taken = taken;
        got.closed = false;
    } else {
        write_lines(job.ends, out, job.converted.text());
        advance(job, job.place, text, got.taken, before.leg[0]);
    }
    job.closed = got.closed;
    take(in, got.taken);
    job.bytes += got.taken;
    if (got.error == KO_OK) return true;
    // What is at the end of the piece, or not complete, is judged once more has been read.
    if (got.error == KO_EINVAL && piece < unread - kept && in.fill - in.at > longest_character)
        return true; // the piece ended inside a character
    if (!in.at_end && (got.error == KO_EINVAL || in.fill - in.at < longest_character)) return false;
    handle_bad(job, in, out, got.error);
    return true;
}

void convert_file(convert_job &job, const std::string &path, output &out) {
    input in;
    open(in, path);
    job.st = {};
    for (conv_state &leg : job.st.leg)
        leg.first_frag = 1;
    job.place = {};
    job.closed = false;
    if (job.by_mark) {
        while (in.fill < 2 && more(in)) {
        }
        const bool little = in.fill >= 2 && in.block[0] == 0xFF && in.block[1] == 0xFE;
        job.newline = little ? std::string("\n\0", 2) : std::string("\0\n", 2);
        if (!job.nel.empty())
            job.nel = little ? std::string("\x85\0", 2) : std::string("\0\x85", 2);
    }
    do {
        while (convert_piece(job, in, out))
            report_progress(job);
    } while (more(in) || in.at < in.fill);
    close_text(job, out);
}

// ---- preparation ----

std::string pair_text(const convert_job &job) {
    return job.way.from.name + " to " + job.way.to.name;
}

void tell_way(const convert_job &job) {
    std::string text = pair_text(job);
    if (job.way.legs == 0) text += ": the same code set, bytes are copied";
    if (job.way.legs > 0 && job.way.through.empty()) text += ": " + job.way.files[0];
    if (!job.way.through.empty())
        text += " through " + job.way.through + ": " + job.way.files[0] + ", " + job.way.files[1];
    kovatool::tell("kova", text);
}

// Is every byte either a character or invalid, without shifts?
bool has_single_bytes(convert_job &job) {
    if (job.way.legs == 0) return true;
    for (unsigned i = 0; i < 256; ++i) {
        const auto byte = uint8_t(i);
        route_state st;
        const run_result got = run(job.way, st, &byte, 1, false, job.scratch);
        if (got.error == KO_EINVAL || source_state(st) != 0) return false;
    }
    return true;
}

void learn_source(const data_place &place, convert_job &job) {
    const code_set utf8 = utf8_code_set();
    job.is_utf8 = same_code_set(job.way.from, utf8);
    job.is_utf16 = same_code_set(job.way.from, unicode_code_set());
    job.by_mark = same_code_set(job.way.from, find_code_set("utf16"));
    if (job.is_utf8 || job.is_utf16) return;
    job.one_byte = has_single_bytes(job);
    job.has_to_utf8 = open_route(place, job.way.from, utf8, job.to_utf8);
}

void learn_lines(const data_place &place, convert_job &job) {
    const line_controls source = find_controls(place, job.way.from);
    if (!source.lf.empty()) job.newline = source.lf;
    job.ends = plan_line_ends(job.options->newline, source, find_controls(place, job.way.to),
                              job.way.to.name);
    if (job.ends.changes()) job.nel = source.nel;
}

// A byte-order mark; throws failure for what is no encoding of Unicode.
std::string mark_of(const data_place &place, const code_set &set) {
    route from_utf8;
    byte_buffer made;
    route_state st;
    const bool fits = is_unicode(set.name) && open_route(place, utf8_code_set(), set, from_utf8);
    if (!fits) throw failure(bad_usage, "--bom: " + set.name + " is no encoding of Unicode");
    run(from_utf8, st, bytes_of("\xEF\xBB\xBF"), 3, false, made);
    return std::string(made.text());
}

bool fits_target(convert_job &job, const std::string &text) {
    route_state st;
    const run_result got = run(job.from_utf8, st, bytes_of(text), text.size(), false, job.scratch);
    return got.error == KO_OK && got.taken == text.size() && !got.substituted;
}

void learn_replacement(const data_place &place, const common_options &common, convert_job &job) {
    job.has_back = open_route(place, job.way.to, utf8_code_set(), job.back);
    if (!job.options->replace) return;
    job.has_from_utf8 = open_route(place, utf8_code_set(), job.way.to, job.from_utf8);
    const bool by_default = job.options->replacement == default_replacement;
    job.replacement_is_utf8 = job.has_from_utf8 && (by_default || text_is_utf8(common));
    job.replacement = job.options->replacement;
    if (by_default)
        job.replacement =
            job.has_from_utf8 && fits_target(job, "\xEF\xBF\xBD") ? "\xEF\xBF\xBD" : "?";
    if (job.replacement_is_utf8 && !fits_target(job, job.replacement))
        throw failure(bad_text,
                      "--replace: " + job.way.to.name + " has no \"" + job.replacement + "\"");
}

// Adds up the sizes of all files, if every one has a size.
void measure_files(convert_job &job, const std::vector<std::string> &files) {
    uint64_t total = 0;
    for (const std::string &path : files) {
        if (path != "-" && !is_regular_file(path)) return; // opening a pipe would disturb it
        input in;
        open(in, path);
        if (in.size == 0) return;
        total += in.size;
    }
    job.total = total;
}

// ---- what was not converted as it is ----

void tell_report(const convert_job &job) {
    for (const finding &found : job.findings) {
        std::fprintf(stderr, "kova: %llu %s %s\n", static_cast<unsigned long long>(found.count),
                     found.count == 1 ? "character" : "characters", found.name);
        for (const std::string &where : found.first)
            kovatool::tell("kova", "  " + where);
        if (found.count > found.first.size())
            std::fprintf(stderr, "kova:   and %llu more\n",
                         static_cast<unsigned long long>(found.count - found.first.size()));
    }
}

void tell_findings(const convert_job &job) {
    if (job.options->report) return tell_report(job);
    for (const finding &found : job.findings) {
        const bool one_way_only = &found == &job.findings[one_way];
        if (found.count == 0 || (one_way_only && !job.options->verbose)) continue;
        const std::string what = one_way_only ? found.name
                                 : job.options->accept
                                     ? std::string("substituted")
                                     : std::string(job.options->replace ? "replaced" : "skipped") +
                                           " (" + found.name + ")";
        std::fprintf(stderr, "kova: %llu %s %s, the first at %s\n",
                     static_cast<unsigned long long>(found.count),
                     found.count == 1 ? "character" : "characters", what.c_str(),
                     kovatool::printable(found.first[0]).c_str());
    }
}

} // namespace

int run_convert(const common_options &common, const convert_options &options) {
    const bool by_rule = is_unicode(options.from) && is_unicode(options.to);
    const data_place place = by_rule ? data_place{} : find_data(common, data_kind::conversions);
    if (options.list) return list_code_sets(place);
    convert_job job;
    job.options = &options;
    job.goes_on = options.skip || options.replace || options.report;
    const unsigned marks = options.keeps_mark ? unsigned{KO_CONVERT_KEEP_MARK} : 0;
    open_needed_route(place, find_code_set(options.from), find_code_set(options.to), job.way,
                      marks);
    learn_source(place, job);
    learn_lines(place, job);
    learn_replacement(place, common, job);
    const std::string mark = options.writes_mark ? mark_of(place, job.way.to) : "";
    if (options.verbose) tell_way(job);
    const std::vector<std::string> files = inputs_of(options.files);
    job.reports = options.progress && is_terminal(stderr);
    if (job.reports) measure_files(job, files);
    job.started = seconds_now();
    job.next_report = job.started + 1.0;
    output out;
    try {
        open(out, options.out); // does not touch the target yet: it may be one of the files read
        write(out, mark);
        for (const std::string &path : files)
            convert_file(job, path, out);
        finish(out);
    } catch (...) {
        clear_progress(job);
        throw;
    }
    clear_progress(job);
    tell_findings(job);
    return done;
}

} // namespace kovacli
