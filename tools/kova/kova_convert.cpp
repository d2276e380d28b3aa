// kova convert: text from one code set to another, in pieces, with the place of everything that
// does not convert.
#include "kova/kova_convert_job.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <set>

#include "common/tool_path.h"
#include "common/tool_text.h"

namespace kovacli {

static constexpr uint32_t nel_code = 0x85;
static constexpr size_t least_piece = 1024, longest_character = 4;

// ---- output ----

bool fits_target(convert_job &job, const std::string &text) {
    route_state st;
    const run_result got = run(job.from_utf8, st, bytes_of(text), text.size(), false, job.scratch);
    return got.error == KO_OK && got.taken == text.size() && !got.substituted;
}

void write_utf8(convert_job &job, output &out, const std::string &text) {
    route_state st;
    target_state(job.from_utf8, st) = target_state(job.way, job.st);
    run(job.from_utf8, st, bytes_of(text), text.size(), false, job.scratch);
    target_state(job.way, job.st) = target_state(job.from_utf8, st);
    for (conv_state &leg : job.st.leg)
        leg.first_frag = 0; // the text of the target has begun
    write_lines(job.ends, out, job.scratch.text());
}

// Ends the shifted state of the target.
static void unshift(convert_job &job, output &out) {
    int &state = target_state(job.way, job.st);
    write_lines(job.ends, out, closing_shift(job.way, state));
    state = state_after_closing(job.way, state);
    for (conv_state &leg : job.st.leg)
        leg.first_frag = 0;
}

void write_raw(convert_job &job, output &out, const std::string &bytes) {
    unshift(job, out);
    finish_lines(job.ends, out);
    write(out, bytes);
}

void write_replacement(convert_job &job, output &out) {
    if (job.replacement_is_utf8) return write_utf8(job, out, job.replacement);
    unshift(job, out);
    write_lines(job.ends, out, job.replacement);
}

// Writes the closing shift if the last character converted was not the end of the text, because
// that was skipped or replaced.
static void close_text(convert_job &job, output &out) {
    finish_lines(job.ends, out);
    if (!job.closed) write(out, closing_shift(job.way, target_state(job.way, job.st)));
}

// ---- one text ----

static bool is_line_end(const convert_job &job, const unsigned char *text, size_t len) {
    const auto is = [&](const std::string &end) {
        return len == end.size() && std::memcmp(text, end.data(), len) == 0;
    };
    return is(job.newline) || (!job.nel.empty() && is(job.nel));
}

// What --state takes, so that a text can be resumed: the shift states of source and target, what
// the start of a text in utf16 said of its order, and r where a carriage return is held back. "" if
// there is nothing of this.
static std::string state_text(convert_job &job, int source) {
    const auto told = reinterpret_cast<uintptr_t>(job.st.leg[0].ext_state); // a number in a pointer
    const auto mark = job.by_mark ? told : 0;
    const int target = target_state(job.way, job.st);
    if (source == 0 && target == 0 && mark == 0 && !job.ends.holds_cr) return "";
    return std::to_string(source) + "," + std::to_string(target) + "," + std::to_string(mark) +
           (job.ends.holds_cr ? "r" : "");
}

static void take_state(convert_job &job, const std::string &text) {
    if (text.empty()) return;
    int source = 0, target = 0;
    unsigned mark = 0;
    char end[3] = {};
    const int read = std::sscanf(text.c_str(), "%9d,%9d,%9u%2s", &source, &target, &mark, end);
    const std::string rest = end;
    const bool holds_cr = rest == "r" && job.ends.joins_crlf;
    if (read < 3 || source < 0 || target < 0 || !(rest.empty() || holds_cr))
        throw failure(bad_usage, "--state " + text + ": no state that an error said");
    source_state(job.st) = source;
    target_state(job.way, job.st) = target;
    job.st.leg[0].ext_state = reinterpret_cast<void *>(uintptr_t{mark});
    job.ends.holds_cr = holds_cr;
}

// The state of the source after a character that is not converted: in UTF-7 it holds the bits with
// which the next one begins.
static int state_after(convert_job &job, const unsigned char *text, const bad_input &bad) {
    if (bad.code == no_code_point || !job.has_to_utf8) return source_state(job.st);
    route_state st = inside(job.st.leg[0]);
    const run_result got = run(job.to_utf8, st, text, bad.len, false, job.scratch);
    return source_state(got.error == KO_OK && got.taken == bad.len ? st : job.st);
}

failure stopped(convert_job &job, finding_kind kind, const unsigned char *text,
                const bad_input &bad, const std::string &message) {
    static constexpr const char *names[] = {"substituted", "", "unmapped", "invalid", "cut_off"};
    const void *const start = text;
    stop_report stop{names[kind], message + " continues", "", bad.code, job.place, bad.len, "", ""};
    stop.bytes = hex({static_cast<const char *>(start), bad.len}, "");
    stop.state = state_text(job, source_state(job.st));
    stop.next_state = state_text(job, state_after(job, text, bad));
    if (!stop.state.empty())
        stop.message += "; --from-offset " + std::to_string(job.place.offset) + " --state " +
                        stop.state + " resumes there";
    job.stop = stop;
    return failure(bad_text, stop.message);
}

// Takes what was not converted. A newline that the target lacks still ends its line.
static void step_over(convert_job &job, input &in, const unsigned char *text,
                      const bad_input &bad) {
    const size_t len = bad.len;
    source_state(job.st) = state_after(job, text, bad);
    job.place.offset += len;
    job.place.column += 1;
    job.characters += 1;
    job.bytes += len;
    if (is_line_end(job, text, len)) {
        job.place.line += 1;
        job.place.column = 1;
    }
    take(in, len);
}

static void handle_bad(convert_job &job, input &in, output &out, int error) {
    if (error != KO_EILSEQ && error != KO_EINVAL)
        throw failure(bad_file, place_text(in, job.place) + ": the conversion fails with error " +
                                    std::to_string(error));
    const unsigned char *text = in.block.data() + in.at;
    const bad_input bad = diagnose(job, text, in.fill - in.at, error);
    if (bad.why == fault::missing && bad.code == nel_code && job.ends.changes()) {
        close_text(job, out); // the end of a line, which the target has as another one
        int &state = target_state(job.way, job.st);
        state = state_after_closing(job.way, state);
        write(out, job.ends.wanted);
        advance(job, job.place, text, bad.len, job.st.leg[0]);
        source_state(job.st) = state_after(job, text, bad);
        job.bytes += bad.len;
        return take(in, bad.len);
    }
    const std::string where = place_text(in, job.place) + ": " + trouble_text(job, bad);
    const finding_kind kind = bad.why == fault::missing ? unmapped
                              : bad.why == fault::cut   ? cut_off
                                                        : invalid;
    if (!write_otherwise(job, out, text, bad.len, bad.code, where)) {
        if (!job.goes_on) throw stopped(job, kind, text, bad, where + "; --skip or --replace");
        note(job.found[kind], where);
        if (job.options->replace) write_replacement(job, out);
    }
    step_over(job, in, text, bad);
}

// ---- what was converted to another character ----

// The code point of the first character of a text that has a route to utf8.
static uint32_t first_point(convert_job &job, route &to_utf8, const conv_state &from,
                            const unsigned char *text, size_t len) {
    route_state st = inside(from);
    uint32_t point = no_code_point;
    const run_result got = run(to_utf8, st, text, len, false, job.scratch);
    const bool whole = got.error == KO_OK && got.taken == len && job.scratch.used > 0;
    return whole && utf8_char(job.scratch.room.data(), job.scratch.used, point) > 0 ? point
                                                                                    : no_code_point;
}

namespace {
// A flagged character: where it begins, what it became, and the code points of both.
struct flagged_character {
    const unsigned char *text;
    size_t len;
    route_state before;
    const byte_buffer &made;
    uint32_t point = no_code_point, made_point = no_code_point;
    bool same() const { return point == made_point && point != no_code_point; }
};
} // namespace

static void find_points(convert_job &job, flagged_character &c) {
    if (job.is_utf8 || job.is_utf16)
        source_character(job, c.text, c.len, c.point);
    else if (job.has_to_utf8)
        c.point = first_point(job, job.to_utf8, c.before.leg[0], c.text, c.len);
    const conv_state shifted = {.source_state = target_state(job.way, c.before)};
    if (job.has_back)
        c.made_point = first_point(job, job.back, shifted, c.made.room.data(), c.made.used);
}

static std::string substitution_text(const convert_job &job, const flagged_character &c) {
    std::string text = character_text(c.text, c.len, c.point);
    if (c.point != no_code_point && !c.same()) text += ", which " + job.way.to.name + " lacks";
    text += "; the conversion writes " + hex(c.made.text(), " ");
    if (c.made_point != no_code_point) text += " (" + code_point_text(c.made_point) + ")";
    return text;
}

// Writes what a flagged character becomes. job.st is the state before it; after gets the target's
// state after it. The same character under other bytes loses nothing; another one stops the
// conversion unless that was asked for.
static void write_flagged(convert_job &job, const input &in, output &out, flagged_character &c,
                          route_state &after) {
    const convert_options &options = *job.options;
    find_points(job, c);
    if (c.point == nel_code && job.ends.changes())
        return write_lines(job.ends, out, job.ends.wanted);
    const bool other = !c.same();
    finding &found = job.found[other ? substituted : one_way];
    std::string where;
    if (found.first.size() < shown_places || !job.goes_on)
        where = place_text(in, job.place) + ": " + substitution_text(job, c);
    if (other && !options.accept && write_otherwise(job, out, c.text, c.len, c.point, where)) {
        target_state(job.way, after) = target_state(job.way, job.st);
        return;
    }
    if (other && !job.goes_on && !options.accept) {
        bad_input bad;
        bad.len = c.len;
        bad.code = c.point;
        throw stopped(job, substituted, c.text, bad,
                      where + "; --accept-substitutes, --skip or --replace");
    }
    note(found, where);
    if (!other || !(options.skip || options.replace))
        return write_lines(job.ends, out, c.made.text());
    if (options.replace) write_replacement(job, out);
    target_state(job.way, after) = target_state(job.way, job.st);
}

// Converts a piece some of whose characters are flagged, each of those by itself. Returns the bytes
// taken; job.st and job.place are those after them.
static size_t convert_flagged(convert_job &job, const input &in, output &out,
                              const unsigned char *text, size_t len) {
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
static bool convert_piece(convert_job &job, input &in, output &out) {
    const size_t unread = in.fill - in.at, kept = in.at_end ? 0 : longest_character;
    if (unread <= kept) return false;
    const unsigned char *text = in.block.data() + in.at;
    const route_state before = job.st;
    size_t piece = before_escape(job, text, std::min(unread - kept, job.piece));
    if (piece == 0) {
        const escape_result found = take_escape(job, in, out);
        if (found != escape_result::none) return found == escape_result::taken;
        piece = 1;
    }
    run_result got = run(job.way, job.st, text, piece, in.at_end && piece == unread, job.converted);
    // What may begin an escape was a part of a longer character.
    while (job.may_begin.any() && got.taken == 0 && got.error == KO_EINVAL &&
           piece < std::min(unread - kept, longest_character)) {
        job.st = before;
        ++piece;
        got = run(job.way, job.st, text, piece, in.at_end && piece == unread, job.converted);
    }
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

static bool begins_with(const input &in, const std::string &bytes) {
    return in.fill - in.at >= bytes.size() &&
           std::memcmp(in.block.data() + in.at, bytes.data(), bytes.size()) == 0;
}

// Takes what the first bytes say of the order of the others.
static void learn_order(convert_job &job, input &in) {
    while (in.fill < 2 && more(in)) {
    }
    const bool little = begins_with(in, "\xFF\xFE");
    job.mark = little ? "\xFF\xFE" : "\xFE\xFF";
    route_state told = job.st;
    run(job.way, told, bytes_of(job.mark), job.mark.size(), false, job.scratch);
    for (size_t i = 0; i < told.leg.size(); ++i) {
        job.st.leg[i].ext_state = told.leg[i].ext_state;
        job.st.leg[i].first_frag = 0;
    }
    job.newline = little ? std::string("\n\0", 2) : std::string("\0\n", 2);
    if (!job.nel.empty()) job.nel = little ? std::string("\x85\0", 2) : std::string("\0\x85", 2);
}

static bool is_resumed(const convert_options &options) {
    return options.from_offset > 0 || !options.state.empty();
}

// The mark of the other byte order would be the noncharacter U+FFFE, and what follows other
// characters than those of the text.
static void refuse_other_order(const convert_job &job, const input &in) {
    const std::string other(job.mark.rbegin(), job.mark.rend());
    if (other.size() != 2 || !begins_with(in, other)) return;
    throw failure(bad_text, in.name + ": the text begins with the byte-order mark of " +
                                (job.is_utf16 ? "utf16le" : "unicode (utf16be)") +
                                "; -f utf16 reads either order, --keep-bom takes it as U+FFFE");
}

// Takes the byte-order mark at the start of a text.
static void begin_text(convert_job &job, input &in) {
    if (job.mark.empty() || (job.options->keeps_mark && !job.by_mark)) return;
    while (in.fill < job.mark.size() && more(in)) {
    }
    if (!job.by_mark) refuse_other_order(job, in);
    if (!begins_with(in, job.mark)) return;
    job.place.offset += job.mark.size();
    job.bytes += job.mark.size();
    take(in, job.mark.size());
}

// Goes to where --from-offset says, in the state of --state.
static void resume(convert_job &job, input &in) {
    const convert_options &options = *job.options;
    for (conv_state &leg : job.st.leg)
        leg.first_frag = 0;
    if (job.by_mark && options.state.empty())
        throw failure(bad_usage, "--from-offset: where utf16 goes on, its order is that of the "
                                 "--state that the error said; utf16le and unicode have one");
    take_state(job, options.state);
    while (in.offset < options.from_offset && (in.at < in.fill || more(in)))
        take(in, size_t(std::min<uint64_t>(in.fill - in.at, options.from_offset - in.offset)));
    if (in.offset < options.from_offset)
        throw failure(bad_usage, "--from-offset " + std::to_string(options.from_offset) + ": " +
                                     in.name + " has " + std::to_string(in.offset) + " bytes");
    job.place.offset = in.offset;
}

static void convert_file(convert_job &job, const std::string &path, output &out) {
    input in;
    open(in, path);
    if (job.records.from) read_records(job.records, in);
    job.st = {};
    for (conv_state &leg : job.st.leg)
        leg.first_frag = 1;
    job.place = {};
    job.closed = false;
    if (job.by_mark) learn_order(job, in);
    if (is_resumed(*job.options))
        resume(job, in);
    else
        begin_text(job, in);
    do {
        while (convert_piece(job, in, out))
            show_progress(job.progress, job.bytes);
    } while (more(in) || in.at < in.fill);
    close_text(job, out);
}

// ---- preparation ----

static std::string pair_text(const convert_job &job) {
    return job.way.from.name + " to " + job.way.to.name;
}

static void tell_way(const convert_job &job) {
    std::string text = pair_text(job);
    if (job.way.legs == 0) text += ": the same code set, bytes are copied";
    if (job.way.legs > 0 && job.way.through.empty()) text += ": " + job.way.files[0];
    if (!job.way.through.empty())
        text += " through " + job.way.through + ": " + job.way.files[0] + ", " + job.way.files[1];
    kovatool::tell("kova", text);
}

// Is every byte either a character or invalid, without shifts?
static bool has_single_bytes(convert_job &job) {
    if (job.way.legs == 0) return true;
    for (unsigned i = 0; i < 256; ++i) {
        const auto byte = uint8_t(i);
        route_state st;
        const run_result got = run(job.way, st, &byte, 1, false, job.scratch);
        if (got.error == KO_EINVAL || source_state(st) != 0) return false;
    }
    return true;
}

// A byte-order mark; throws failure for what is no encoding of Unicode.
static std::string mark_of(const data_place &place, const code_set &set) {
    route from_utf8;
    byte_buffer made;
    route_state st;
    const bool fits = is_unicode(set.name) && open_route(place, utf8_code_set(), set, from_utf8);
    if (!fits) throw failure(bad_usage, "--bom: " + set.name + " is no encoding of Unicode");
    run(from_utf8, st, bytes_of("\xEF\xBB\xBF"), 3, false, made);
    return std::string(made.text());
}

static void learn_source(const data_place &place, convert_job &job) {
    const code_set utf8 = utf8_code_set();
    job.is_utf8 = same_code_set(job.way.from, utf8);
    job.is_utf16 = same_code_set(job.way.from, unicode_code_set());
    job.by_mark = same_code_set(job.way.from, find_code_set("utf16"));
    if (is_unicode(job.way.from.name)) job.mark = mark_of(place, job.way.from);
    if (job.is_utf8 || job.is_utf16) return;
    job.one_byte = has_single_bytes(job);
    job.has_to_utf8 = open_route(place, job.way.from, utf8, job.to_utf8);
}

static void learn_lines(const data_place &place, convert_job &job) {
    const line_controls source = find_controls(place, job.way.from);
    if (!source.lf.empty()) job.newline = source.lf;
    job.ends = plan_line_ends(job.options->newline, source, find_controls(place, job.way.to),
                              job.way.to.name);
    if (job.ends.changes()) job.nel = source.nel;
}

static void learn_replacement(const data_place &place, const common_options &common,
                              convert_job &job) {
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

// ---- files ----

namespace {
// Notes what happens to an input, however that ends.
struct input_counter {
    convert_job &job;
    const output &out;
    input_report &report;
    findings before;
    uint64_t bytes, written;
    input_counter(convert_job &of, const output &to, input_report &in)
        : job(of), out(to), report(in), before(of.found), bytes(of.bytes), written(to.written) {
        job.characters = 0;
        job.stop.reset();
    }
    input_counter(const input_counter &) = delete;
    ~input_counter() {
        report.bytes_in = job.bytes - bytes;
        report.bytes_out = out.written - written;
        report.characters = job.characters;
        report.stop = job.stop;
        for (size_t kind = 0; kind < before.size(); ++kind)
            report.counts[kind] = job.found[kind].count - before[kind].count;
    }
};
} // namespace

// Converts files into one output, and adds a report for each.
static void convert_files(convert_job &job, const std::vector<std::string> &files,
                          const std::string &target, const std::string &mark,
                          std::vector<input_report> &reports) {
    output out, lines;
    output &text = job.records.to ? lines : out;
    try {
        open(out, target); // does not touch the target yet: it may be one of the files read
        if (job.records.to) open_lines(lines);
        write(text, mark);
        for (const std::string &path : files) {
            reports.push_back({path, out.name});
            const input_counter counter(job, text, reports.back());
            convert_file(job, path, text);
        }
        if (job.records.to) write_records(job.records, lines, out);
        finish(out);
    } catch (const failure &e) {
        clear_progress(job.progress);
        if (!reports.empty()) reports.back().failure = e.what();
        if (job.stop && job.options->keeps_part) finish(out);
        throw;
    } catch (...) {
        clear_progress(job.progress);
        throw;
    }
    clear_progress(job.progress);
}

// Where the results go that --output-dir asks for. Throws failure if one would replace an input or
// another result.
// Do two names lead to one file, or two links to one that does not exist yet?
static bool same_end(const std::string &a, const std::string &b) {
    std::error_code error;
    const auto end_of = [&](const std::string &path) {
        std::filesystem::path end = kovatool::to_path(path);
        for (int links = 0; links < 40 && std::filesystem::is_symlink(end, error); ++links)
            end = end.parent_path() / std::filesystem::read_symlink(end, error);
        return std::filesystem::weakly_canonical(end, error);
    };
    const auto one = end_of(a), two = end_of(b);
    return one == two && !one.empty();
}

static std::vector<std::string> targets_in(const std::string &dir,
                                           const std::vector<std::string> &files) {
    if (!is_directory(dir)) throw failure(bad_file, "--output-dir: there is no directory " + dir);
    std::vector<std::string> targets;
    std::set<std::string> names;
    for (const std::string &path : files) {
        const std::filesystem::path name = kovatool::to_path(path).filename();
        if (path == "-" || name.empty())
            throw failure(bad_usage, "--output-dir: " + path + " has no name for its result");
        if (!names.insert(kovatool::from_path(name)).second)
            throw failure(bad_usage,
                          "--output-dir: two files are called " + kovatool::from_path(name));
        targets.push_back(kovatool::from_path(kovatool::to_path(dir) / name));
    }
    for (const std::string &target : targets)
        for (const std::string &path : files) {
            std::error_code error;
            if (std::filesystem::equivalent(kovatool::to_path(target), kovatool::to_path(path),
                                            error))
                throw failure(bad_usage, "--output-dir: the result of " + target +
                                             " would replace the input " + path);
        }
    for (size_t i = 0; i < targets.size(); ++i)
        for (size_t k = 0; k < i; ++k)
            if (same_end(targets[i], targets[k]))
                throw failure(bad_usage, "--output-dir: " + targets[k] + " and " + targets[i] +
                                             " are one file");
    return targets;
}

// Converts each file into one of its own, also after one that fails. Returns the first status that
// is not 0.
static int convert_each(convert_job &job, const std::vector<std::string> &files,
                        const std::string &mark, std::vector<input_report> &reports) {
    const std::vector<std::string> targets = targets_in(job.options->out_dir, files);
    int status = done;
    for (size_t i = 0; i < files.size(); ++i) {
        try {
            convert_files(job, {files[i]}, targets[i], mark, reports);
        } catch (const failure &e) {
            kovatool::tell("kova", e.what());
            if (status == done) status = e.status;
        }
    }
    return status;
}

static int convert_all(convert_job &job, const std::vector<std::string> &files,
                       const std::string &mark) {
    std::vector<input_report> reports;
    int status = done;
    try {
        if (!job.options->out_dir.empty())
            status = convert_each(job, files, mark, reports);
        else
            convert_files(job, files, job.options->out, mark, reports);
    } catch (const failure &e) {
        if (job.options->json && !reports.empty()) write_report(job, reports, e.status);
        throw;
    }
    tell_findings(job);
    if (job.options->json) write_report(job, reports, status);
    return status;
}

static void check_options(const convert_options &options) {
    const bool to_file = !options.out.empty() && options.out != "-";
    if (options.json && !options.list && !to_file && options.out_dir.empty())
        throw failure(bad_usage, "--json: standard output has the text; give -o FILE or "
                                 "--output-dir DIR");
    if (!options.to_records.empty() && (options.writes_mark || options.keeps_part))
        throw failure(bad_usage,
                      "--to-records: records have neither a mark nor a part that is kept");
    if (is_resumed(options) && options.files.size() > 1)
        throw failure(bad_usage, "--from-offset: one file only");
    if (!options.out_dir.empty() && options.files.empty())
        throw failure(bad_usage, "--output-dir: no file is given");
}

int run_convert(const common_options &common, const convert_options &options) {
    check_options(options);
    const bool by_rule = is_unicode(options.from) && is_unicode(options.to) && !options.translit;
    const data_place place = by_rule ? data_place{} : find_data(common, data_kind::conversions);
    if (options.list) return list_code_sets(place, options.json, options.out);
    convert_job job;
    job.options = &options;
    job.goes_on = options.skip || options.replace || options.report;
    const bool resumed = is_resumed(options);
    open_needed_route(place, find_code_set(options.from), find_code_set(options.to), job.way);
    learn_source(place, job);
    learn_lines(place, job);
    learn_replacement(place, common, job);
    learn_escapes(place, job);
    learn_records(place, job);
    const std::string mark = options.writes_mark && !resumed ? mark_of(place, job.way.to) : "";
    if (options.verbose) tell_way(job);
    const std::vector<std::string> files = inputs_of(options.files);
    start_progress(job.progress, options.progress, files);
    return convert_all(job, files, mark);
}

} // namespace kovacli
