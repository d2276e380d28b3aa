// Category lines with their copies, and the categories that consist of strings and numbers.
#include "kovac_locale.h"

#include <algorithm>

namespace kovac {
namespace {

constexpr int copy_depth = 16; // sources that copy one another, at most

// One keyword of a category. Exactly one of the targets is set; neither means that an object has
// no place for the keyword.
struct keyword {
    const char *name;
    std::string *text = nullptr;
    std::vector<std::string> *list = nullptr;
    std::vector<int> *grouping = nullptr;
    int *number = nullptr;
    std::vector<token> *raw = nullptr;
};

} // namespace

static bool read_lines(source_set &set, diagnostics &diag, std::string_view category, lexer lex,
                       int depth, std::vector<std::vector<token>> &lines) {
    const int errors = diag.errors;
    std::vector<token> line;
    bool ended = false, in_translit = false;
    while (next_line(lex, category, line, &ended)) {
        if (is_word(line[0], "translit_start") || is_word(line[0], "translit_end")) {
            in_translit = line[0].text == "translit_start";
        } else if (!in_translit && is_word(line[0], "copy")) {
            lexer copied;
            const token &what = line.size() > 1 ? line[1] : line[0];
            if (depth >= copy_depth) {
                error(diag, line[0].pos, "sources copy one another without end");
                return false;
            }
            if (!open_copy(set, diag, what, category, copied) ||
                !read_lines(set, diag, category, copied, depth + 1, lines)) {
                return false;
            }
        } else if (!in_translit) {
            lines.push_back(std::move(line));
        }
    }
    if (!ended && diag.errors == errors) {
        error(diag, {lex.file, uint32_t(lex.at)},
              format("end of file inside %s: \"END %s\" is missing", std::string(category).c_str(),
                     std::string(category).c_str()));
    }
    return diag.errors == errors;
}

bool category_lines(source_set &set, diagnostics &diag, std::string_view category,
                    std::vector<std::vector<token>> &lines) {
    lexer lex = open_lexer(*set.main, diag);
    if (!seek_category(lex, category)) {
        error(diag, {set.main, 0},
              format("the source has no %s category", std::string(category).c_str()));
        return false;
    }
    return read_lines(set, diag, category, lex, 0, lines);
}

// ---- values ------------------------------------------------------------------------------------

static bool append_code(const charmap &map, uint32_t code, std::string &bytes) {
    const charmap_char *c = find_code(map, code);
    if (!c) return false;
    if (c->len == 2) bytes += char(c->wide >> 8);
    bytes += char(c->wide & 0xFF);
    return true;
}

// A string's bytes in the code set. A character that the code set lacks is spelled as the source's
// transliteration says; without one it is dropped with a warning.
static std::string string_bytes(const text_job &job, const token &t) {
    std::string bytes;
    std::vector<std::string> unknown;
    for (uint32_t code : string_codes(job.map, t, &unknown)) {
        if (append_code(job.map, code, bytes)) continue;
        const std::vector<uint32_t> *spelled = spell(job.fallback, job.map, code);
        if (!spelled) {
            warning(job.diag, t.pos,
                    format("code set %s lacks <U%04X>, and nothing spells it: dropped",
                           job.map.name.c_str(), unsigned(code)));
            continue;
        }
        note(job.diag, t.pos, format("<U%04X> spelled by other characters", unsigned(code)));
        for (uint32_t other : *spelled)
            append_code(job.map, other, bytes);
    }
    for (const std::string &name : unknown) {
        error(job.diag, t.pos, format("unknown character <%s> in a string", name.c_str()));
    }
    return bytes;
}

static std::string name_of(const token &t) { return std::string(t.text); }

static void misplaced(const text_job &job, const token &t, const char *wanted) {
    if (t.kind != tok::bad) error(job.diag, t.pos, format("%s is expected here", wanted));
}

static void read_text(const text_job &job, const std::vector<token> &line, std::string &out) {
    if (line.size() != 2 || line[1].kind != tok::string) {
        return misplaced(job, line[line.size() > 2 ? 2 : line.size() - 1],
                         line.size() > 2 ? "the end of the line" : "a string");
    }
    out = string_bytes(job, line[1]);
}

static void read_list(const text_job &job, const std::vector<token> &line,
                      std::vector<std::string> &out) {
    out.clear();
    bool want_string = true;
    for (size_t i = 1; i < line.size(); ++i) {
        if (line[i].kind != (want_string ? tok::string : tok::semicolon)) {
            return misplaced(job, line[i], want_string ? "a string" : "\";\"");
        }
        if (want_string) out.push_back(string_bytes(job, line[i]));
        want_string = !want_string;
    }
    if (out.empty()) misplaced(job, line[0], "a string behind this keyword");
}

static void read_number(const text_job &job, const std::vector<token> &line, int &out) {
    if (line.size() != 2 || line[1].kind != tok::number) {
        return misplaced(job, line[line.size() - 1], "one number");
    }
    const int value = int(line[1].value);
    out = value == -1 ? absent_number : value;
}

// Group sizes; -1 stays as the end of grouping, and a first size of 0 or -1 means none at all.
static void read_grouping(const text_job &job, const std::vector<token> &line,
                          std::vector<int> &out) {
    constexpr size_t most = 15;
    out.clear();
    for (size_t i = 1; i < line.size(); ++i) {
        const token &t = line[i];
        if (t.kind == tok::semicolon) continue;
        const int size = t.kind == tok::string && t.text.empty() ? 0 : int(t.value);
        if (t.kind != tok::number && !(t.kind == tok::string && t.text.empty())) {
            return misplaced(job, t, "a group size");
        }
        if (size < -1 || size > 126) {
            return error(job.diag, t.pos, "a group size lies between -1 and 126");
        }
        if (out.size() == most) return error(job.diag, t.pos, "more than 15 group sizes");
        out.push_back(size);
    }
    if (!out.empty() && out[0] <= 0) out.clear();
}

static void read_keyword(const text_job &job, const std::vector<token> &line, const keyword &key) {
    if (key.text) read_text(job, line, *key.text);
    if (key.list) read_list(job, line, *key.list);
    if (key.grouping) read_grouping(job, line, *key.grouping);
    if (key.number) read_number(job, line, *key.number);
    if (key.raw) *key.raw = line;
}

static bool read_category(const text_job &job, const char *category,
                          const std::vector<keyword> &keywords) {
    const int errors = job.diag.errors;
    std::vector<std::vector<token>> lines;
    if (!category_lines(job.set, job.diag, category, lines)) return false;
    for (const std::vector<token> &line : lines) {
        const token &key = line[0];
        if (key.kind == tok::bad) continue;
        const auto found = std::find_if(keywords.begin(), keywords.end(),
                                        [&key](const keyword &k) { return is_word(key, k.name); });
        if (found != keywords.end()) {
            read_keyword(job, line, *found);
        } else if (key.kind == tok::word) {
            warning(job.diag, key.pos,
                    format("unknown keyword \"%s\" in %s", name_of(key).c_str(), category));
        } else {
            misplaced(job, key, "a keyword");
        }
    }
    return job.diag.errors == errors;
}

// ---- the categories ----------------------------------------------------------------------------

// A plain word in the code set, for what the sources do not say.
static std::string plain(const charmap &map, std::string_view text) {
    std::string bytes;
    for (char c : text)
        append_code(map, static_cast<unsigned char>(c), bytes);
    return bytes;
}

bool compile_numeric(const text_job &job, numeric_section &out) {
    out = {};
    out.negative_sign = plain(job.map, "-");
    if (!read_category(job, "LC_NUMERIC",
                       {
                           {.name = "decimal_point", .text = &out.decimal_point},
                           {.name = "thousands_sep", .text = &out.thousands_sep},
                           {.name = "grouping",      .grouping = &out.grouping }
    })) {
        return false;
    }
    if (out.decimal_point.empty()) out.decimal_point = plain(job.map, ".");
    return true;
}

bool compile_monetary(const text_job &job, monetary_section &out) {
    out = {};
    int *n = out.numbers.data();
    return read_category(
        job, "LC_MONETARY",
        {
            {.name = "int_curr_symbol",     .text = &out.int_curr_symbol},
            {.name = "currency_symbol",                             .text = &out.currency_symbol},
            {.name = "mon_decimal_point",.text = &out.decimal_point},
            {.name = "mon_thousands_sep",   .text = &out.thousands_sep},
            {.name = "mon_grouping",                             .grouping = &out.grouping},
            {.name = "positive_sign", .text = &out.positive_sign},
            {.name = "negative_sign",        .text = &out.negative_sign},
            {.name = "int_frac_digits",                             .number = n + 0},
            {.name = "frac_digits",   .number = n + 1},
            {.name = "p_cs_precedes",       .number = n + 2},
            {.name = "p_sep_by_space",                             .number = n + 3},
            {.name = "n_cs_precedes",.number = n + 4},
            {.name = "n_sep_by_space",         .number = n + 5},
            {.name = "p_sign_posn",                             .number = n + 6},
            {.name = "n_sign_posn",        .number = n + 7},
 // An object has one set of positions; those of the international form have no place.
            {.name = "int_p_cs_precedes"     },
            {.name = "int_p_sep_by_space"                            },
            {.name = "int_n_cs_precedes"                            },
            {.name = "int_n_sep_by_space"     },
            {.name = "int_p_sign_posn"                            },
            {.name = "int_n_sign_posn"},
            {.name = "duo_int_curr_symbol"        },
            {.name = "duo_currency_symbol"                            },
            {.name = "conversion_rate"                       }
    });
}

// Day names begin with the day of the source's "week" date; objects begin with Sunday.
static int first_day(const text_job &job, const std::vector<token> &week) {
    if (week.size() < 4 || week[3].kind != tok::number || week[3].value == 19971130) return 0;
    if (week[3].value == 19971201) return 1;
    warning(job.diag, week[3].pos, "the first day is 19971130 (a Sunday) or 19971201 (a Monday)");
    return 0;
}

static bool check_count(const text_job &job, const char *keyword, size_t count, size_t want) {
    if (count == want) return true;
    error(job.diag, {job.set.main, 0},
          format("LC_TIME: %s has %zu strings instead of %zu", keyword, count, want));
    return false;
}

bool compile_time(const text_job &job, time_section &out) {
    std::vector<token> week;
    out = {};
    if (!read_category(job, "LC_TIME",
                       {
                           {.name = "abday",          .list = &out.abday},
                           {.name = "day",                        .list = &out.day},
                           {.name = "abmon",.list = &out.abmon},
                           {.name = "mon",          .list = &out.mon},
                           {.name = "d_t_fmt",                        .text = &out.d_t_fmt},
                           {.name = "d_fmt",.text = &out.d_fmt},
                           {.name = "t_fmt",        .text = &out.t_fmt},
                           {.name = "am_pm",                        .list = &out.am_pm},
                           {.name = "t_fmt_ampm",        .text = &out.t_fmt_ampm},
                           {.name = "era",          .list = &out.era},
                           {.name = "era_d_fmt",                        .text = &out.era_d_fmt},
                           {.name = "era_t_fmt",.text = &out.era_t_fmt},
                           {.name = "era_d_t_fmt",     .text = &out.era_d_t_fmt},
                           {.name = "alt_digits",                        .list = &out.alt_digits},
 // One form of the month names and no calendar layout in an object.
                           {.name = "alt_mon"},
                           {.name = "ab_alt_mon"     },
                           {.name = "date_fmt"                       },
                           {.name = "week",                    .raw = &week},
                           {.name = "first_weekday"   },
                           {.name = "first_workday"                       },
                           {.name = "cal_direction"},
                           {.name = "era_year"       },
                           {.name = "timezone"    }
    })) {
        return false;
    }
    out.am_pm.resize(std::max<size_t>(out.am_pm.size(), 2));
    if (out.era.size() == 1 && out.era[0].empty()) out.era.clear();
    if (out.alt_digits.size() == 1 && out.alt_digits[0].empty()) out.alt_digits.clear();
    if (!check_count(job, "abday", out.abday.size(), 7) ||
        !check_count(job, "day", out.day.size(), 7) ||
        !check_count(job, "abmon", out.abmon.size(), 12) ||
        !check_count(job, "mon", out.mon.size(), 12) ||
        !check_count(job, "am_pm", out.am_pm.size(), 2)) {
        return false;
    }
    const int shift = first_day(job, week);
    for (std::vector<std::string> *names : {&out.abday, &out.day}) {
        std::rotate(names->begin(), names->begin() + (7 - shift) % 7, names->end());
    }
    return true;
}

bool compile_messages(const text_job &job, messages_section &out) {
    out = {};
    return read_category(job, "LC_MESSAGES",
                         {
                             {.name = "yesexpr", .text = &out.yesexpr},
                             {.name = "noexpr",  .text = &out.noexpr },
                             {.name = "yesstr",  .text = &out.yesstr },
                             {.name = "nostr",   .text = &out.nostr  }
    });
}

bool compile_locale(source_set &set, const charmap &map, diagnostics &diag, locale_object &out,
                    proof_report *report) {
    translit fallback{.set = set};
    const text_job job{set, map, diag, fallback};
    return compile_ctype(set, map, diag, out.ctype) &&
           compile_collation(set, map, diag, out.collate, report) &&
           compile_numeric(job, out.numeric) && compile_monetary(job, out.monetary) &&
           compile_time(job, out.time) && compile_messages(job, out.messages);
}

} // namespace kovac
