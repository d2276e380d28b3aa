// Places in a text that is converted, and what is wrong with bytes that do not convert.
#include "kova/kova_convert_job.h"

#include <algorithm>
#include <cstring>

#include "common/tool_text.h"

namespace kovacli {

static uint64_t utf8_characters(const unsigned char *text, size_t len) {
    return uint64_t(
        std::count_if(text, text + len, [](unsigned char c) { return (c & 0xC0) != 0x80; }));
}

// The number of characters in valid source text that starts in a given shift state.
static uint64_t characters(convert_job &job, const unsigned char *text, size_t len,
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
static uint64_t count_lines(const std::string &end, const unsigned char *text, size_t len,
                            size_t &tail) {
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

void advance(convert_job &job, text_place &place, const unsigned char *text, size_t len,
             conv_state from) {
    size_t tail = 0;
    uint64_t lines = count_lines(job.newline, text, len, tail);
    if (!job.nel.empty()) lines += count_lines(job.nel, text, len, tail);
    if (job.options->json) job.characters += characters(job, text, len, from);
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
static bool knows_source(const convert_job &job) {
    return job.is_utf8 || job.is_utf16 || job.has_to_utf8;
}

// Tries to convert the first bytes of text by themselves; returns the error.
static int trial(convert_job &job, const unsigned char *text, size_t len) {
    route_state st = inside(job.st.leg[0]);
    return run(job.has_to_utf8 && job.to_utf8.legs > 0 ? job.to_utf8 : job.way, st, text, len,
               false, job.scratch)
        .error;
}

// The length of an invalid sequence: the bytes that make it invalid, without those that are
// characters by themselves.
static size_t invalid_length(convert_job &job, const unsigned char *text, size_t len,
                             size_t &seen) {
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

} // namespace kovacli
