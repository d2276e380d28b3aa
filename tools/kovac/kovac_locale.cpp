// Category lines with their copies, and the categories that consist of strings and numbers.
#include "kovac/kovac_locale.h"
#include "kovac/kovac_times.h"

#include <algorithm>
#include <variant>

namespace kovac {
namespace {

constexpr size_t most_tokens = size_t{1} << 22; // of a category with all that it copies
constexpr int most_number = 127;

struct line_reader {
    source_set &set;
    diagnostics &diag;
    std::string_view category;
    std::vector<std::vector<token>> &lines;
    copy_budget copies;
    size_t tokens = 0;
};

// One keyword of a category and where its value goes.
struct keyword {
    const char *name;
    std::variant<std::string *, std::vector<std::string> *, std::vector<int> *, int *,
                 std::vector<token> *>
        target;
};

// Keywords for which an object has no place.
using ignored = std::vector<std::string_view>;

} // namespace

static bool read_lines(line_reader &rd, lexer lex, int depth) {
    diagnostics &diag = rd.diag;
    const std::string_view category = rd.category;
    const int errors = diag.errors;
    std::vector<token> line;
    bool ended = false, in_translit = false;
    while (next_line(lex, category, line, &ended)) {
        rd.tokens += line.size() + 2; // 2: the bookkeeping of a line
        if (rd.tokens > most_tokens) {
            error(diag, line[0].pos,
                  format("%s with all that it copies is too long; it has more than %zu words",
                         std::string(category).c_str(), most_tokens));
            return false;
        }
        if (is_word(line[0], "translit_start") || is_word(line[0], "translit_end")) {
            in_translit = line[0].text == "translit_start";
        } else if (!in_translit && is_word(line[0], "copy")) {
            lexer copied;
            const token &what = line.size() > 1 ? line[1] : line[0];
            if (!may_copy(rd.copies, depth, diag, line[0].pos) ||
                !open_copy(rd.set, diag, what, category, copied) ||
                !read_lines(rd, copied, depth + 1)) {
                return false;
            }
        } else if (!in_translit) {
            rd.lines.push_back(std::move(line));
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
    const int errors = diag.errors;
    lexer lex = open_lexer(*set.main, diag);
    if (!seek_category(lex, category)) {
        if (diag.errors > errors) return false;
        error(diag, {set.main, 0},
              format("the source has no %s category", std::string(category).c_str()));
        return false;
    }
    line_reader rd{set, diag, category, lines};
    return read_lines(rd, lex, 0);
}

// ---- values ------------------------------------------------------------------------------------

static bool append_code(const charmap &map, uint32_t code, std::string &bytes) {
    const charmap_char *c = find_code(map, code);
    if (!c) return false;
    if (c->len == 2) bytes += char(c->wide >> 8);
    bytes += char(c->wide & 0xFF);
    return true;
}

static std::vector<uint32_t> source_codes(const text_job &job, const token &t,
                                          std::vector<std::string> &unknown) {
    const std::vector<uint32_t> codes = string_codes(job.map, t, &unknown);
    if (!job.formats) return codes;
    std::vector<std::string> dropped;
    std::vector<uint32_t> format = library_format(codes, dropped);
    library_era(format);
    for (const std::string &directive : dropped) {
        warning(job.diag, t.pos, "nothing says \"" + directive + "\" in a time format: dropped");
    }
    return format;
}

// A string's bytes in the code set. A character that the code set lacks is replaced by the source's
// transliteration; without one it is dropped with a warning.
static std::string string_bytes(const text_job &job, const token &t) {
    std::string bytes;
    std::vector<std::string> unknown;
    for (uint32_t code : source_codes(job, t, unknown)) {
        if (append_code(job.map, code, bytes)) continue;
        const std::vector<uint32_t> *spelled = spell(job.fallback, job.map, code);
        if (!spelled) {
            warning(job.diag, t.pos,
                    format("code set %s lacks <U%04X>, and there is no spelling for it: dropped",
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

static void read_value(const text_job &job, const std::vector<token> &line, std::string &out) {
    if (line.size() != 2 || line[1].kind != tok::string) {
        return misplaced(job, line[line.size() > 2 ? 2 : line.size() - 1],
                         line.size() > 2 ? "the end of the line" : "a string");
    }
    out = string_bytes(job, line[1]);
}

static void read_value(const text_job &job, const std::vector<token> &line,
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
    if (out.empty()) misplaced(job, line[0], "a string after this keyword");
}

static void read_value(const text_job &job, const std::vector<token> &line, int &out) {
    if (line.size() != 2 || line[1].kind != tok::number) {
        return misplaced(job, line[line.size() - 1], "one number");
    }
    const int value = int(line[1].value);
    if (value < -1 || value > most_number) {
        return error(job.diag, line[1].pos, "a number from -1 (not stated) to 127 is expected");
    }
    out = value == -1 ? absent_number : value;
}

// Reads group sizes. -1 remains as the end of grouping, and a first size of 0 or -1 means no
// grouping.
static void read_value(const text_job &job, const std::vector<token> &line, std::vector<int> &out) {
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

// Keeps a line that can be interpreted only once the whole category is known.
static void read_value(const text_job &, const std::vector<token> &line, std::vector<token> &out) {
    out = line;
}

static bool read_category(const text_job &job, const char *category,
                          const std::vector<keyword> &keywords, const ignored &others) {
    const int errors = job.diag.errors;
    std::vector<std::vector<token>> lines;
    if (!category_lines(job.set, job.diag, category, lines)) return false;
    for (const std::vector<token> &line : lines) {
        const token &key = line[0];
        if (key.kind == tok::bad) continue;
        const auto found = std::find_if(keywords.begin(), keywords.end(),
                                        [&key](const keyword &k) { return is_word(key, k.name); });
        if (found != keywords.end()) {
            std::visit([&](auto *target) { read_value(job, line, *target); }, found->target);
        } else if (std::find(others.begin(), others.end(), key.text) != others.end()) {
            continue;
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
    out.positive_sign = plain(job.map, "+");
    out.negative_sign = plain(job.map, "-");
    const std::vector<keyword> keywords = {
        {"decimal_point", &out.decimal_point},
        {"thousands_sep", &out.thousands_sep},
        {"grouping",      &out.grouping     },
        {"positive_sign", &out.positive_sign},
        {"negative_sign", &out.negative_sign},
    };
    if (!read_category(job, "LC_NUMERIC", keywords, {})) return false;
    if (out.decimal_point.empty()) out.decimal_point = plain(job.map, ".");
    return true;
}

bool compile_monetary(const text_job &job, monetary_section &out) {
    out = {};
    int *n = out.numbers.data();
    const std::vector<keyword> keywords = {
        {"int_curr_symbol",   &out.int_curr_symbol},
        {"currency_symbol",   &out.currency_symbol},
        {"mon_decimal_point", &out.decimal_point  },
        {"mon_thousands_sep", &out.thousands_sep  },
        {"mon_grouping",      &out.grouping       },
        {"positive_sign",     &out.positive_sign  },
        {"negative_sign",     &out.negative_sign  },
        {"int_frac_digits",   n + 0               },
        {"frac_digits",       n + 1               },
        {"p_cs_precedes",     n + 2               },
        {"p_sep_by_space",    n + 3               },
        {"n_cs_precedes",     n + 4               },
        {"n_sep_by_space",    n + 5               },
        {"p_sign_posn",       n + 6               },
        {"n_sign_posn",       n + 7               },
    };
    // An object has one set of positions and no place for those of the international form.
    const ignored others = {
        "int_p_cs_precedes",   "int_p_sep_by_space",  "int_n_cs_precedes",
        "int_n_sep_by_space",  "int_p_sign_posn",     "int_n_sign_posn",
        "duo_currency_symbol", "duo_int_curr_symbol", "conversion_rate",
    };
    return read_category(job, "LC_MONETARY", keywords, others);
}

// The lines of LC_TIME that can be interpreted only once the whole category is known.
struct time_lines {
    std::vector<token> calendar, week, first_weekday;
};

// Finds the first of the day names, which is the day of the source's "week" date; objects begin
// with Sunday.
static int first_day(const text_job &job, const std::vector<token> &week) {
    if (week.size() < 4 || week[3].kind != tok::number || week[3].value == 19971130) return 0;
    if (week[3].value == 19971201) return 1;
    warning(job.diag, week[3].pos, "the first day is 19971130 (a Sunday) or 19971201 (a Monday)");
    return 0;
}

// The first weekday, which the source counts from 1, the first of its day names.
static int first_weekday(const text_job &job, const std::vector<token> &line, int first_name) {
    if (line.size() < 2) return first_name;
    const token &t = line[1];
    if (t.kind == tok::number && t.value >= 1 && t.value <= 7)
        return (first_name + int(t.value) - 1) % 7;
    warning(job.diag, t.pos, "first_weekday is a number from 1 to 7");
    return first_name;
}

static void read_calendar(const text_job &job, const std::vector<token> &line, std::string &out) {
    if (line.empty()) return;
    const token &t = line.back();
    for (const char *name : {"gregorian", "hebrew", "islamic", "arabic"}) {
        if (line.size() != 2 || t.kind != tok::string || t.text != name) continue;
        out = name;
        return;
    }
    misplaced(job, t, "one of \"gregorian\", \"hebrew\", \"islamic\" and \"arabic\"");
}

static bool check_count(const text_job &job, const char *keyword, size_t count, size_t want,
                        size_t most) {
    if (count >= want && count <= most) return true;
    const std::string wanted = std::to_string(want);
    error(job.diag, {job.set.main, 0},
          format("LC_TIME: %s has %zu strings instead of %s", keyword, count,
                 (want == most ? wanted : wanted + " to " + std::to_string(most)).c_str()));
    return false;
}

static bool check_counts(const text_job &job, const time_section &out) {
    // Names 13 and 14 are the first and the second Adar in leap years of the Hebrew calendar.
    const size_t months = out.calendar == "hebrew" ? months_max : months_min;
    return check_count(job, "abday", out.abday.size(), 7, 7) &&
           check_count(job, "day", out.day.size(), 7, 7) &&
           check_count(job, "abmon", out.abmon.size(), months, months_max) &&
           check_count(job, "mon", out.mon.size(), months, months_max) &&
           check_count(job, "am_pm", out.am_pm.size(), 2, 2);
}

static bool is_blank(const text_job &job, const std::string &text) {
    return text.find_first_not_of(plain(job.map, " ")) == text.npos;
}

// Gives formats that the source leaves empty their plain form, which for a time is that of 24 hours
// where nothing tells the halves of the day apart.
static void fill_formats(const text_job &job, time_section &out) {
    const auto fill = [&job](std::string &format, const std::string &with) {
        if (is_blank(job, format)) format = with;
    };
    const bool halves = !is_blank(job, out.am_pm[0]) || !is_blank(job, out.am_pm[1]);
    fill(out.t_fmt_ampm, plain(job.map, halves ? "%I:%M:%S %p" : "%T"));
    fill(out.t_fmt, plain(job.map, "%T"));
    fill(out.d_fmt, plain(job.map, "%m/%d/%y"));
    fill(out.d_t_fmt, plain(job.map, "%a %b %e %H:%M:%S %Y"));
    if (out.era.empty()) return;
    fill(out.era_d_fmt, out.d_fmt);
    fill(out.era_t_fmt, out.t_fmt);
    fill(out.era_d_t_fmt, out.d_t_fmt);
}

// A century directly before the year in it is read to its end only if it has a width. All digits
// must be as long as each other for that.
static void bound_centuries(const text_job &job, time_section &out) {
    if (out.alt_digits.empty()) return;
    const size_t bytes = out.alt_digits[0].size(), unit = plain(job.map, "%").size();
    for (const std::string &digit : out.alt_digits)
        if (digit.size() != bytes) return;
    const std::string century = plain(job.map, "%.1OC"), with_year = plain(job.map, "%.1OC%.1Oy");
    const std::string bound = plain(job.map, "%" + std::to_string(bytes / unit) + ".1OC");
    for (std::string *format : {&out.d_t_fmt, &out.d_fmt, &out.era_d_fmt, &out.era_d_t_fmt}) {
        const size_t at = format->find(with_year);
        if (at != format->npos) format->replace(at, century.size(), bound);
    }
}

bool compile_time(const text_job &any, time_section &out) {
    text_job job = any;
    job.formats = true;
    const int errors = job.diag.errors;
    time_lines lines;
    out = {};
    const std::vector<keyword> keywords = {
        {"abday",         &out.abday          },
        {"day",           &out.day            },
        {"abmon",         &out.abmon          },
        {"mon",           &out.mon            },
        {"ab_alt_mon",    &out.ab_alt_mon     },
        {"alt_mon",       &out.alt_mon        },
        {"d_t_fmt",       &out.d_t_fmt        },
        {"d_fmt",         &out.d_fmt          },
        {"t_fmt",         &out.t_fmt          },
        {"am_pm",         &out.am_pm          },
        {"t_fmt_ampm",    &out.t_fmt_ampm     },
        {"era",           &out.era            },
        {"era_d_fmt",     &out.era_d_fmt      },
        {"era_t_fmt",     &out.era_t_fmt      },
        {"era_d_t_fmt",   &out.era_d_t_fmt    },
        {"alt_digits",    &out.alt_digits     },
        {"calendar",      &lines.calendar     },
        {"week",          &lines.week         },
        {"first_weekday", &lines.first_weekday},
    };
    // An object has no layout of calendars.
    const ignored others = {"date_fmt", "first_workday", "cal_direction", "era_year", "timezone"};
    if (!read_category(job, "LC_TIME", keywords, others)) return false;
    out.am_pm.resize(std::max<size_t>(out.am_pm.size(), 2));
    if (out.era.size() == 1 && out.era[0].empty()) out.era.clear();
    if (out.alt_digits.size() == 1 && out.alt_digits[0].empty()) out.alt_digits.clear();
    read_calendar(job, lines.calendar, out.calendar);
    if (job.diag.errors > errors || !check_counts(job, out)) return false;
    fill_formats(job, out);
    bound_centuries(job, out);
    const int shift = first_day(job, lines.week);
    out.first_weekday = first_weekday(job, lines.first_weekday, shift);
    for (std::vector<std::string> *names : {&out.abday, &out.day}) {
        std::rotate(names->begin(), names->begin() + (7 - shift) % 7, names->end());
    }
    return true;
}

bool compile_messages(const text_job &job, messages_section &out) {
    out = {};
    const std::vector<keyword> keywords = {
        {"yesexpr", &out.yesexpr},
        {"noexpr",  &out.noexpr },
        {"yesstr",  &out.yesstr },
        {"nostr",   &out.nostr  },
    };
    return read_category(job, "LC_MESSAGES", keywords, {});
}

std::vector<letter_pair> case_pairs(const ctype_section &ctype, const charmap &map) {
    std::vector<letter_pair> pairs;
    for (size_t i = 0; i < map.chars.size(); ++i) // the pair of a capital has 0 for itself
        if (const uint16_t lower = ctype.pairs[ctype.case_index[i]].second)
            pairs.emplace_back(map.chars[i].wide, lower);
    constexpr uint32_t hiragana = 0x3041, hiragana_end = 0x3097, to_katakana = 0x60;
    for (uint32_t code = hiragana; code < hiragana_end; ++code) {
        const charmap_char *small = find_code(map, code);
        const charmap_char *capital = find_code(map, code + to_katakana);
        if (small && capital) pairs.emplace_back(capital->wide, small->wide);
    }
    return pairs;
}

bool compile_locale(source_set &set, const charmap &map, diagnostics &diag, locale_object &out,
                    proof_report *report, const collation_options &options) {
    translit fallback{.set = set};
    const text_job job{set, map, diag, fallback};
    if (!compile_ctype(set, map, diag, out.ctype)) return false;
    collation_options order = options;
    if (order.keeps != strength::all) order.pairs = case_pairs(out.ctype, map);
    return compile_collation(set, map, diag, out.collate, report, order) &&
           compile_numeric(job, out.numeric) && compile_monetary(job, out.monetary) &&
           compile_time(job, out.time) && compile_messages(job, out.messages);
}

} // namespace kovac
