// The keys by which kova sort orders lines: fields, numbers, versions, and texts in the locale's
// order.
#include "kova/kova_sort_key.h"

#include <algorithm>
#include <climits>
#include <cstdint>

#include "kova.h"
#include "kova/kova_char.h"
#include "kova_host.h"

namespace kovacli {

// ---- options ----

static failure bad_part(const std::string &text, const char *why) {
    return failure(bad_usage, "-k: \"" + text + "\" " + why +
                                  "; write FIELD[.CHARACTER][bdfnrV][,FIELD[.CHARACTER][bdfnrV]], "
                                  "counted from 1");
}

static size_t read_count(const std::string &text, size_t &at) {
    size_t value = 0;
    const size_t start = at;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
        value = std::min(value * 10 + size_t(text[at] - '0'), size_t{INT_MAX} / 16);
    if (at == start) throw bad_part(text, "lacks a number");
    return value;
}

// What the letters after a place, or the options of the whole command, ask for.
static void set_ordering(sort_part &part, char letter, const std::string &text) {
    const part_kind kind = letter == 'n' ? part_kind::number : part_kind::version;
    switch (letter) {
    case 'd':
        part.dictionary = true;
        break;
    case 'f':
        part.fold = true;
        break;
    case 'r':
        part.reverse = true;
        break;
    case 'n':
    case 'V':
        if (part.kind != part_kind::text && part.kind != kind)
            throw bad_part(text, "asks for numbers and versions");
        part.kind = kind;
        break;
    default:
        throw bad_part(text, "has an unknown letter");
    }
}

// Reads "FIELD[.CHARACTER][letters]". Returns whether there are letters.
static bool read_place(const std::string &text, size_t &at, sort_place &place, sort_part &part) {
    place.field = read_count(text, at);
    if (place.field == 0) throw bad_part(text, "names field 0");
    if (at < text.size() && text[at] == '.') place.character = read_count(text, ++at);
    const size_t letters = at;
    for (; at < text.size() && text[at] != ','; ++at) {
        if (text[at] == 'b')
            place.after_blanks = true;
        else
            set_ordering(part, text[at], text);
    }
    return at > letters;
}

static void set_common_ordering(const sort_options &o, sort_part &part) {
    const std::string text = "of the whole command";
    part.first.after_blanks = part.last.after_blanks = o.skip_blanks;
    if (o.dictionary) set_ordering(part, 'd', text);
    if (o.fold) set_ordering(part, 'f', text);
    if (o.reverse) set_ordering(part, 'r', text);
    if (o.numeric) set_ordering(part, 'n', text);
    if (o.version) set_ordering(part, 'V', text);
}

static sort_part read_part(const std::string &text, const sort_options &options) {
    sort_part part;
    size_t at = 0;
    bool own = read_place(text, at, part.first, part);
    if (part.first.character == 0) {
        if (text.find('.') < text.find(',')) throw bad_part(text, "begins at character 0");
        part.first.character = 1;
    }
    if (at < text.size()) own |= read_place(text, ++at, part.last, part);
    if (at < text.size()) throw bad_part(text, "names more than two places");
    if (part.last.field && part.last.field < part.first.field)
        throw bad_part(text, "ends before it begins");
    if (!own) set_common_ordering(options, part);
    if (part.dictionary && part.kind != part_kind::text)
        throw bad_part(text, "asks for letters and numbers");
    return part;
}

static int only_character(const std::vector<ko_wchar_t> &wide, const char *what) {
    if (wide.size() != 1)
        throw failure(bad_usage, std::string(what) + " takes one character (\\t is the tab, \\0 "
                                                     "the null character)");
    return wide[0];
}

static void read_separator(const codec &code, const std::string &option, key_rules &rules) {
    if (option.empty()) return;
    if (option == "\\0")
        rules.separator = 0;
    else
        rules.separator =
            only_character(decode_argument(code, option == "\\t" ? "\t" : option, "-t"), "-t");
}

// ---- tables ----

static constexpr uint8_t is_blank = 1, is_in_dictionary = 2;

static void make_tables(const codec &code, key_rules &rules) {
    const auto any = [&rules](auto needs) {
        return std::any_of(rules.parts.begin(), rules.parts.end(), needs);
    };
    const auto needs_traits = [&rules](const sort_part &part) {
        return part.dictionary || part.kind == part_kind::number || part.first.after_blanks ||
               part.last.after_blanks || (part.first.field && rules.separator < 0);
    };
    if (any(needs_traits)) {
        rules.traits.resize(65536);
        for (unsigned c = 0; c < 65536; ++c) {
            const bool blank = im_iswctype(code.loc, ko_wchar_t(c), KO_CT_BLANK) != 0;
            const bool word = im_iswctype(code.loc, ko_wchar_t(c), KO_CT_ALNUM) != 0;
            rules.traits[c] =
                uint8_t((blank ? is_blank : 0) | (blank || word ? is_in_dictionary : 0));
        }
    }
    if (!any([](const sort_part &part) { return part.fold; })) return;
    rules.upper.resize(65536);
    for (unsigned c = 0; c < 65536; ++c)
        rules.upper[c] = im_towupper(code.loc, ko_wchar_t(c));
}

// The one character of a string of the locale, or -1.
static int single(const ko_wchar_t *text) {
    return text && text[0] && !text[1] ? int{text[0]} : -1;
}

static void learn_numbers(const codec &code, key_rules &rules) {
    rules.radix = single(ko_wc_nl_langinfo(code.loc, KO_RADIXCHAR));
    rules.group = single(ko_wc_nl_langinfo(code.loc, KO_THOUSEP));
    if (rules.radix < 0) rules.radix = code.mapped && code.wide_of['.'] ? code.wide_of['.'] : '.';
    if (code.mapped && code.wide_of['0']) rules.zero = code.wide_of['0'];
}

void make_key_rules(const codec &code, const sort_options &options, key_rules &rules) {
    rules.code = &code;
    read_separator(code, options.separator, rules);
    for (const std::string &text : options.keys)
        rules.parts.push_back(read_part(text, options));
    if (rules.parts.empty()) {
        rules.parts.emplace_back();
        set_common_ordering(options, rules.parts[0]);
        if (options.dictionary && rules.parts[0].kind != part_kind::text)
            throw bad_part("of the whole command", "asks for letters and numbers");
    }
    make_tables(code, rules);
    learn_numbers(code, rules);
    // The first key makes the locale's tables, before other threads ask for some.
    rules.host_keys = code.utf16 && ko_utf16sxfrm(code.loc, nullptr, 0, u"a", 1) > 0;
    const sort_part &part = rules.parts[0];
    rules.whole_lines = rules.host_keys && rules.parts.size() == 1 && part.first.field == 0 &&
                        !part.first.after_blanks && part.kind == part_kind::text &&
                        !part.dictionary && !part.fold;
}

// ---- text ----

// The end of a part of a key, and a null character in its text: bytes lower than those of every
// other character, as many as a unit has in code order, and one that tells the two apart.
static constexpr char part_end = 0, null_character = 1;

static size_t end_len(const key_rules &rules) { return size_t(rules.code->min_len) + 1; }

static void put_end(const key_rules &rules, char which, std::string &key) {
    key.append(end_len(rules) - 1, '\0');
    key.push_back(which);
}

// Makes the key of units wide characters, none of them null; a null character follows them. Returns
// its whole length, or a negative number.
static int64_t transform(const key_rules &rules, char *out, size_t room, const ko_wchar_t *wide,
                         size_t units) {
    static_assert(sizeof(ko_wchar_t) == sizeof(char16_t));
    if (rules.host_keys)
        return ko_utf16sxfrm(rules.code->loc, out, room, reinterpret_cast<const char16_t *>(wide),
                             units);
    return ko_wcsxfrm(rules.code->loc, reinterpret_cast<ko_mchar_t *>(out), wide,
                      int(std::min<size_t>(room, INT_MAX)));
}

static void append_key(const key_rules &rules, const ko_wchar_t *wide, size_t units,
                       std::string &key) {
    const size_t before = key.size();
    key.resize(before + (rules.host_keys ? usual_key_len(units) : 32 + 8 * units));
    for (;;) {
        const size_t room = key.size() - before;
        const int64_t len = transform(rules, &key[before], room, wide, units);
        if (len < 0)
            throw failure(bad_text, "a line is too long to compare, or memory is exhausted");
        const bool fits = size_t(len) < room;
        key.resize(before + size_t(len) + (fits ? 0 : 1));
        if (fits) return;
    }
}

// Appends the key of a text. The library's strings end at a null character, so the parts between
// null characters are keyed one by one, and a null character sorts before all others.
static void append_text_key(const key_rules &rules, std::vector<ko_wchar_t> &text,
                            std::string &key) {
    const size_t units = text.size();
    text.push_back(0);
    for (size_t at = 0;;) {
        const size_t end = size_t(
            std::find(text.begin() + std::ptrdiff_t(at), text.end(), ko_wchar_t{0}) - text.begin());
        append_key(rules, &text[at], end - at, key);
        if (end == units) return;
        put_end(rules, null_character, key);
        at = end + 1;
    }
}

// ---- numbers ----

static bool is_digit(const key_rules &rules, ko_wchar_t c) {
    return c >= rules.zero && c - rules.zero < 10;
}

static void append_length(size_t length, std::string &key) {
    for (int shift = 24; shift >= 0; shift -= 8)
        key.push_back(char(length >> shift & 255));
}

// Appends the number at the start of a text: its sign; the number of digits before the decimal
// symbol; the digits; and what is lower than a digit. All but the sign is complemented for negative
// numbers. A text without a number counts as 0.
static void append_number_key(const key_rules &rules, const ko_wchar_t *at, const ko_wchar_t *end,
                              std::string &key) {
    while (at != end && rules.traits[*at] & is_blank)
        ++at;
    const bool minus =
        at != end && int{*at} == (rules.zero == '0' ? '-' : rules.code->wide_of['-']);
    at += minus;
    std::string digits;
    size_t whole = 0;
    for (bool after_radix = false; at != end; ++at) {
        if (is_digit(rules, *at)) {
            if (digits.empty() && !after_radix && *at == rules.zero) continue; // leading zeros
            digits.push_back(char('0' + (*at - rules.zero)));
            if (!after_radix) ++whole;
        } else if (!after_radix && *at == rules.radix) {
            after_radix = true;
        } else if (after_radix || *at != rules.group) {
            break;
        }
    }
    digits.resize(digits.find_last_not_of('0') + 1);
    const size_t start = key.size();
    key.push_back(digits.empty() ? 1 : minus ? 0 : 2);
    if (digits.empty()) return;
    append_length(whole, key);
    key += digits;
    key.push_back(0);
    if (!minus) return;
    for (size_t i = start + 1; i < key.size(); ++i)
        key[i] = char(~key[i]);
}

// Writes each run of digits as its length and the digits without leading zeros, so that collation
// orders runs by value. Lengths from 99 on have six more digits.
static void spell_versions(const key_rules &rules, std::vector<ko_wchar_t> &text) {
    std::vector<ko_wchar_t> spelled;
    const auto put = [&](size_t number, size_t width) {
        for (size_t unit = width == 2 ? 10 : 100000; unit; unit /= 10)
            spelled.push_back(ko_wchar_t(rules.zero + number / unit % 10));
    };
    for (size_t at = 0; at < text.size();) {
        if (!is_digit(rules, text[at])) {
            spelled.push_back(text[at++]);
            continue;
        }
        while (at < text.size() && text[at] == rules.zero)
            ++at;
        size_t end = at;
        while (end < text.size() && is_digit(rules, text[end]))
            ++end;
        put(std::min<size_t>(end - at, 99), 2);
        if (end - at >= 99) put(std::min<size_t>(end - at, 999999), 6);
        spelled.insert(spelled.end(), text.begin() + std::ptrdiff_t(at),
                       text.begin() + std::ptrdiff_t(end));
        at = end;
    }
    text = std::move(spelled);
}

// ---- lines ----

static void find_fields(const key_rules &rules, const std::vector<ko_wchar_t> &line,
                        std::vector<std::pair<size_t, size_t>> &spans) {
    spans.clear();
    const size_t len = line.size();
    if (rules.separator >= 0) {
        for (size_t at = 0; at <= len;) {
            size_t end = at;
            while (end < len && line[end] != rules.separator)
                ++end;
            spans.emplace_back(at, end);
            at = end + 1;
        }
        return;
    }
    for (size_t at = 0; at < len;) {
        while (at < len && rules.traits[line[at]] & is_blank)
            ++at;
        size_t end = at;
        while (end < len && !(rules.traits[line[end]] & is_blank))
            ++end;
        if (end > at) spans.emplace_back(at, end);
        at = end;
    }
}

// Skips characters from a place on, at most to the end; a surrogate pair is one.
static size_t skip_characters(const key_rules &rules, const std::vector<ko_wchar_t> &line,
                              size_t at, size_t end, size_t count) {
    for (; count && at < end; --count) {
        at += units_of(*rules.code, &line[at], end - at);
    }
    return at;
}

static size_t skip_blanks(const key_rules &rules, const std::vector<ko_wchar_t> &line, size_t at,
                          size_t end) {
    while (at < end && rules.traits[line[at]] & is_blank)
        ++at;
    return at;
}

// The units of a line that a part compares. False if the line has not so many fields.
static bool find_part(const key_rules &rules, const std::vector<ko_wchar_t> &line,
                      const std::vector<std::pair<size_t, size_t>> &spans, const sort_part &part,
                      size_t &from, size_t &to) {
    from = 0;
    to = line.size();
    if (part.first.field > spans.size()) return false;
    if (part.first.field) from = spans[part.first.field - 1].first;
    if (part.first.after_blanks) from = skip_blanks(rules, line, from, to);
    if (part.first.character)
        from = skip_characters(rules, line, from, to, part.first.character - 1);
    if (part.last.field == 0 || part.last.field > spans.size()) return true;
    const auto [start, end] = spans[part.last.field - 1];
    to = end;
    if (part.last.character == 0) return true;
    const size_t first = part.last.after_blanks ? skip_blanks(rules, line, start, end) : start;
    to = skip_characters(rules, line, first, line.size(), part.last.character);
    return true;
}

static void keep_dictionary(const key_rules &rules, std::vector<ko_wchar_t> &text) {
    size_t kept = 0;
    for (size_t at = 0, units; at < text.size(); at += units) {
        units = units_of(*rules.code, &text[at], text.size() - at);
        const unsigned keep = units == 2 ? far_classes(point_of_pair(&text[at])) & KO_CT_ALNUM
                                         : rules.traits[text[at]] & is_in_dictionary;
        for (size_t i = 0; keep && i < units; ++i)
            text[kept++] = text[at + i];
    }
    text.resize(kept);
}

static void change_text(const key_rules &rules, const sort_part &part,
                        std::vector<ko_wchar_t> &text) {
    if (part.dictionary) keep_dictionary(rules, text);
    if (part.fold) {
        for (ko_wchar_t &c : text)
            c = rules.upper[c];
        map_pairs(*rules.code, text.data(), text.size(), true);
    }
    if (part.kind == part_kind::version) spell_versions(rules, text);
}

static void append_part(const key_rules &rules, const sort_part &part,
                        const std::vector<ko_wchar_t> &line, key_scratch &scratch,
                        std::string &key) {
    size_t from = 0, to = 0;
    scratch.part.clear();
    if (find_part(rules, line, scratch.spans, part, from, to) && from < to)
        scratch.part.assign(line.begin() + std::ptrdiff_t(from), line.begin() + std::ptrdiff_t(to));
    if (part.kind == part_kind::number) {
        const ko_wchar_t *const text = scratch.part.data();
        return append_number_key(rules, text, text + scratch.part.size(), key);
    }
    change_text(rules, part, scratch.part);
    if (!scratch.part.empty()) append_text_key(rules, scratch.part, key);
}

void append_line_key(const key_rules &rules, const std::vector<ko_wchar_t> &line,
                     key_scratch &scratch, std::string &key) {
    if (rules.parts[0].first.field) find_fields(rules, line, scratch.spans);
    const bool one = rules.parts.size() == 1;
    for (const sort_part &part : rules.parts) {
        const size_t start = key.size();
        append_part(rules, part, line, scratch, key);
        if (!one || part.reverse) put_end(rules, part_end, key);
        if (part.reverse)
            for (size_t i = start; i < key.size(); ++i)
                key[i] = char(~key[i]);
    }
}

int64_t write_line_key(const key_rules &rules, const ko_wchar_t *line, size_t units,
                       unsigned char *key, size_t room) {
    const bool reverse = rules.parts[0].reverse;
    int64_t len = units ? transform(rules, reinterpret_cast<char *>(key), room, line, units) : 0;
    if (!reverse || len < 0) return len;
    for (size_t i = 0; i < end_len(rules); ++i, ++len)
        if (size_t(len) < room) key[len] = part_end;
    for (size_t i = 0; i < std::min(size_t(len), room); ++i)
        key[i] = uint8_t(~key[i]);
    return len;
}

} // namespace kovacli
