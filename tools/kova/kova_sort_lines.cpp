// Lines of a file for kova sort: finding their ends, and decoding them.
#include "kova/kova_sort_lines.h"

#include <algorithm>
#include <climits>

#include "kova_host.h"

namespace kovacli {

// Is each wide character the unit of UTF-16 that it stands for?
static bool has_all_units(const codec &code) {
    for (size_t unit = 0; code.utf16 && unit < code.wide_of.size(); ++unit)
        if (code.wide_of[unit] != unit) return false;
    return code.utf16;
}

line_rules line_rules_of(const codec &code, bool nulls, bool replace) {
    line_rules rules{&code, {}, replace, code.utf8 && has_all_units(code)};
    const ko_wchar_t end = nulls ? ko_wchar_t{0} : code.newline;
    if (code.utf8)
        rules.end = nulls ? std::string(1, '\0') : "\n";
    else if (code.min_len == 2)
        rules.end = {char(end >> 8), char(end & 0xFF)};
    else
        rules.end = std::string(1, char(end));
    return rules;
}

void open_lines(const line_rules &rules, const std::string &path, line_reader &reader) {
    open(reader.in, path);
    more(reader.in);
    static constexpr unsigned char mark[] = {0xEF, 0xBB, 0xBF};
    if (rules.code->utf8 && reader.in.fill >= 3 &&
        std::equal(mark, mark + 3, reader.in.block.data()))
        take(reader.in, 3);
}

// The first end of a line in text, or npos. An end of two bytes is searched for at even places.
static size_t find_end(const line_rules &rules, std::string_view text, size_t from) {
    if (rules.end.size() == 1) return text.find(rules.end[0], from);
    for (size_t at = from & ~size_t{1}; at + 1 < text.size(); at += 2)
        if (text[at] == rules.end[0] && text[at + 1] == rules.end[1]) return at;
    return text.npos;
}

static void pass_on(line_reader &reader, std::string_view text, std::string_view whole,
                    size_t taken, sort_line &line) {
    line = {text, whole, ++reader.lines, reader.in.offset};
    take(reader.in, taken);
    reader.bytes += taken;
    reader.searched = 0;
}

bool line_at_hand(const line_rules &rules, line_reader &reader, sort_line &line) {
    input &in = reader.in;
    const std::string_view text(reinterpret_cast<const char *>(in.block.data()) + in.at,
                                in.fill - in.at);
    const size_t end = find_end(rules, text, reader.searched);
    if (end == text.npos) {
        reader.searched = text.size() & ~size_t{1};
        return false;
    }
    const size_t taken = end + rules.end.size();
    pass_on(reader, text.substr(0, end), text.substr(0, taken), taken, line);
    return true;
}

static constexpr size_t longest_line = INT_MAX / 16;

static failure too_long(const std::string &file, uint64_t number) {
    return failure(bad_text, file + ":" + std::to_string(number) +
                                 ": the line is longer than 128 MiB; is this a text file?");
}

// Reads on where what is at hand has no end of a line. A line that is too long is not read to its
// end, which may never come.
static bool more_of_line(line_reader &reader) {
    if (reader.in.fill - reader.in.at > longest_line)
        throw too_long(reader.in.name, reader.lines + 1);
    return more(reader.in);
}

bool next_line(const line_rules &rules, line_reader &reader, sort_line &line) {
    for (;;) {
        if (line_at_hand(rules, reader, line)) return true;
        if (more_of_line(reader)) continue;
        const size_t len = reader.in.fill - reader.in.at;
        if (len == 0) return false;
        reader.last.assign(reinterpret_cast<const char *>(&reader.in.block[reader.in.at]), len);
        reader.last += rules.end;
        const std::string_view whole = reader.last;
        pass_on(reader, whole.substr(0, len), whole, len, line);
        return true;
    }
}

// ---- many lines ----

// The place after the last end of a line, 0 without one.
static size_t after_last_end(const line_rules &rules, std::string_view text) {
    if (rules.end.size() == 1) return text.rfind(rules.end[0]) + 1;
    for (size_t at = text.size() & ~size_t{1}; at; at -= 2)
        if (text[at - 2] == rules.end[0] && text[at - 1] == rules.end[1]) return at;
    return 0;
}

static uint64_t count_lines(const line_rules &rules, std::string_view text) {
    uint64_t count = 0;
    if (rules.end.size() > 1) {
        for (size_t at = 0; at + 1 < text.size(); at += 2)
            count += text[at] == rules.end[0] && text[at + 1] == rules.end[1];
        return count;
    }
    const char end = rules.end[0];
    while (!text.empty()) {
        const std::string_view some = text.substr(0, 255); // a byte counts their ends
        uint8_t ends = 0;
        for (const char c : some)
            ends = uint8_t(ends + (c == end));
        count += ends;
        text.remove_prefix(some.size());
    }
    return count;
}

// Where the line that a place of whole lines is in ends. An end that was added to an odd number of
// bytes is not at an even place.
static size_t line_end(const line_rules &rules, std::string_view text, size_t from) {
    return std::min(find_end(rules, text, from), text.size() - rules.end.size());
}

line_share cut_lines(const line_rules &rules, line_share &rest, size_t bytes) {
    line_share first = rest;
    if (bytes < rest.text.size())
        first.text = rest.text.substr(0, line_end(rules, rest.text, bytes) + rules.end.size());
    rest.text.remove_prefix(first.text.size());
    rest.number += count_lines(rules, first.text);
    rest.offset += first.text.size();
    return first;
}

bool cut_line(const line_rules &rules, line_share &rest, sort_line &line) {
    if (rest.text.empty()) return false;
    const size_t end = line_end(rules, rest.text, 0), taken = end + rules.end.size();
    line = {rest.text.substr(0, end), rest.text.substr(0, taken), rest.number++, rest.offset};
    rest.text.remove_prefix(taken);
    rest.offset += taken;
    return true;
}

line_share next_lines(const line_rules &rules, line_reader &reader, size_t bytes) {
    for (;;) {
        const input &in = reader.in;
        const std::string_view text(reinterpret_cast<const char *>(in.block.data()) + in.at,
                                    in.fill - in.at);
        line_share rest{text.substr(0, after_last_end(rules, text)), reader.lines + 1, in.offset};
        if (!rest.text.empty()) {
            const line_share first = cut_lines(rules, rest, bytes);
            reader.lines = rest.number - 1;
            reader.bytes += first.text.size();
            take(reader.in, first.text.size());
            return first;
        }
        if (more_of_line(reader)) continue;
        sort_line last;
        if (!next_line(rules, reader, last)) return {};
        return {last.whole, last.number, last.offset};
    }
}

// ---- decoding ----

static std::string place(const std::string &file, const sort_line &line, size_t within) {
    return file + ":" + std::to_string(line.number) + ": byte offset " +
           std::to_string(line.offset + within);
}

void decode_line(const line_rules &rules, const std::string &file, const sort_line &line,
                 std::vector<ko_wchar_t> &wide, replaced_count &replaced) {
    if (line.whole.size() > longest_line) throw too_long(file, line.number);
    bad_character bad;
    const uint64_t before = replaced.count;
    if (!decode_text(*rules.code, line.text, rules.replace, wide, bad, &replaced.count))
        throw failure(bad_text, place(file, line, bad.offset) + ": " + describe(*rules.code, bad) +
                                    hint(*rules.code, bad) + ", --replace continues");
    if (before == 0 && replaced.count > 0) replaced.first = place(file, line, bad.offset);
}

int64_t decode_quickly(const line_rules &rules, std::string_view text,
                       std::vector<ko_wchar_t> &wide) {
    if (!rules.utf16 || text.size() > longest_line) return -1;
    if (wide.size() < text.size()) wide.resize(text.size());
    return std::max<int64_t>(
        ko_utf8stowcs(rules.code->loc, wide.data(), wide.size(), text.data(), text.size(), nullptr),
        -1);
}

} // namespace kovacli
