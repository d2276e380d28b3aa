// Lines of a file for kova sort: finding their ends, and decoding them.
#include "kova/kova_sort_lines.h"

#include <algorithm>
#include <climits>

namespace kovacli {

line_rules line_rules_of(const codec &code, bool nulls, bool replace) {
    line_rules rules{&code, {}, replace};
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

bool next_line(const line_rules &rules, line_reader &reader, sort_line &line) {
    for (;;) {
        if (line_at_hand(rules, reader, line)) return true;
        if (more(reader.in)) continue;
        const size_t len = reader.in.fill - reader.in.at;
        if (len == 0) return false;
        reader.last.assign(reinterpret_cast<const char *>(&reader.in.block[reader.in.at]), len);
        reader.last += rules.end;
        const std::string_view whole = reader.last;
        pass_on(reader, whole.substr(0, len), whole, len, line);
        return true;
    }
}

static std::string place(const std::string &file, const sort_line &line, size_t within) {
    return file + ":" + std::to_string(line.number) + ": byte offset " +
           std::to_string(line.offset + within);
}

void decode_line(const line_rules &rules, const std::string &file, const sort_line &line,
                 std::vector<ko_wchar_t> &wide, replaced_count &replaced) {
    if (line.whole.size() > INT_MAX / 16)
        throw failure(bad_text, file + ":" + std::to_string(line.number) +
                                    ": the line is longer than 128 MiB; is this a text file?");
    bad_character bad;
    const uint64_t before = replaced.count;
    if (!decode_text(*rules.code, line.text, rules.replace, wide, bad, &replaced.count))
        throw failure(bad_text, place(file, line, bad.offset) + ": " + describe(*rules.code, bad) +
                                    hint(*rules.code, bad) + ", --replace continues");
    if (before == 0 && replaced.count > 0) replaced.first = place(file, line, bad.offset);
}

} // namespace kovacli
