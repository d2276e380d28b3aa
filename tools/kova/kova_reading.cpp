// The walk over a format and a text that tries every length of a name.
#include "kova/kova_reading.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "kova/kova_char.h"
#include "kova/kova_decimal.h"

namespace kovacli {
namespace {

// A directive, or one character that stands for itself.
struct piece {
    wide_text format;    // with its terminator
    size_t place = 0;    // in the format argument
    char letter = 0;     // 0 for a character
    std::string before;  // modifiers, with "E" or "O" only where the locale knows them
    int digits = 0;      // of a number, the most that it has beside others; 0: not a number
    bool of_era = false; // after "E"
};

struct candidate {
    size_t end; // in the text
    time_info info;
};

// Which digits a number takes where several follow: any of the counts that it may have, all there
// are, or as many as it usually has, which tells best what is wrong.
enum class number_reading { split, whole, usual };

// A finished walk whose fields were resolved, or the furthest place of the others.
struct walk {
    const date_setting &setting;
    const format_text &format;
    const wide_text &text;
    wide_text lower;
    std::vector<piece> pieces;
    number_reading numbers = number_reading::usual;
    size_t steps = 0;
    size_t failed_piece = 0, failed_at = 0;
    int error = 0;
    size_t rest = 0; // the furthest that a whole format reached
    bool whole = false;
    std::vector<read_date> dates, faults;
};

constexpr size_t most_pieces = 10000, most_steps = 200000, most_dates = 500;
constexpr int most_depth = 8;

// ---- the format, with the locale's own formats spread out ----

struct nested_format {
    char letter;
    unsigned item, era_item;
};
constexpr nested_format nested_formats[] = {
    {'c', KO_D_T_FMT,    KO_ERA_D_T_FMT},
    {'x', KO_D_FMT,      KO_ERA_D_FMT  },
    {'X', KO_T_FMT,      KO_ERA_T_FMT  },
    {'r', KO_T_FMT_AMPM, KO_T_FMT_AMPM },
};

bool has_letter(const std::string &text, char letter) { return text.find(letter) != text.npos; }

// The digits that a number usually has, or its width; 0 for what is not a number.
int most_digits(const piece &p) {
    const size_t size = p.before.find_first_of("123456789");
    const std::string_view two = "CdeHImMSygVuw";
    const bool number = two.find(p.letter) != two.npos || p.letter == 'F';
    const int usual = p.letter == 'Y' || p.letter == 'G' ? 4 : p.letter == 'j' ? 3 : number ? 2 : 0;
    if (p.letter == 'F') return 6;
    if (has_letter(p.before, 'O')) return usual ? 4 : 0; // characters of a digit
    if (usual && size < p.before.find('.')) return number_up_to(p.before.c_str() + size, 9);
    return usual;
}

piece directive_piece(const walk &w, const wide_text &format, const format_directive &d) {
    const auto &lists = w.setting.names.of;
    piece p;
    p.letter = d.conversion;
    p.format.assign(format.begin() + long(d.start), format.begin() + long(d.end));
    p.format.push_back(0);
    for (const char c : d.modifiers) {
        const bool dropped =
            (c == 'E' && lists[full_eras].empty()) || (c == 'O' && lists[own_digits].size() < 2);
        if (!dropped) p.before += c;
    }
    p.of_era = has_letter(p.before, 'E');
    p.digits = p.of_era ? 0 : most_digits(p);
    return p;
}

void add_pieces(walk &w, const format_text &format, size_t place, int depth) {
    const auto where = [&](size_t at) { return depth ? place : at; };
    size_t at = 0;
    const auto add_characters = [&](size_t end) {
        for (; at < end; ++at) {
            piece p;
            // Of "%%", the second character belongs to the first.
            const ko_wchar_t percent = native(w.setting.code, "%")[0];
            p.format = {format.wide[at]};
            if (format.wide[at] == percent && at + 1 < end) p.format.push_back(format.wide[++at]);
            p.format.push_back(0);
            p.place = where(at + 2 - p.format.size());
            w.pieces.push_back(p);
        }
    };
    for (const format_directive &d : format.directives) {
        add_characters(d.start);
        at = d.end;
        piece p = directive_piece(w, format.wide, d);
        p.place = where(d.start);
        const auto *found = std::find_if(std::begin(nested_formats), std::end(nested_formats),
                                         [&p](const auto &n) { return n.letter == p.letter; });
        if (found != std::end(nested_formats) && !has_letter(p.before, 'O') && depth < most_depth)
            add_pieces(
                w,
                split_format(w.setting.code,
                             item_text(w.setting.code, p.of_era ? found->era_item : found->item),
                             time_grammar()),
                p.place, depth + 1);
        else
            w.pieces.push_back(p);
        if (w.pieces.size() > most_pieces)
            throw failure(bad_usage, "the format is too long with the locale's formats in it");
    }
    add_characters(format.wide.size() - 1);
}

// ---- fields ----

struct read_field {
    unsigned bit;
    int time_info::*field;
    const char *name;
};
constexpr read_field read_field_rows[] = {
    {seen_usec,      &time_info::usec,      "fraction of a second"},
    {seen_second,    &time_info::second,    "second"              },
    {seen_minute,    &time_info::minute,    "minute"              },
    {seen_hour12,    &time_info::hour12,    "hour"                },
    {seen_ampm,      &time_info::ampm,      "half of the day"     },
    {seen_hour24,    &time_info::hour24,    "hour"                },
    {seen_month_day, &time_info::month_day, "day"                 },
    {seen_week_day,  &time_info::week_day,  "day of the week"     },
    {seen_year_day,  &time_info::year_day,  "day of the year"     },
    {seen_mon,       &time_info::mon,       "month"               },
    {seen_monidx,    &time_info::monidx,    "month"               },
    {seen_era,       &time_info::era,       "era"                 },
    {seen_era_off,   &time_info::era_off,   "year of the era"     },
    {seen_century,   &time_info::century,   "century"             },
    {seen_year_off,  &time_info::year_off,  "year"                },
    {seen_full_year, &time_info::full_year, "year"                },
};

void merge(const walk &w, const time_info &more, read_fields &all) {
    const std::vector<wide_text> &eras = w.setting.names.of[full_eras];
    for (const read_field &row : read_field_rows) {
        if (!(more.set & row.bit)) continue;
        const int value = more.*row.field, before = all.info.*row.field;
        bool same = value == before;
        if (row.bit == seen_era) same = eras.at(size_t(value)) == eras.at(size_t(before));
        if (all.info.set & row.bit && !same)
            all.fault = std::string("the ") + row.name + " is given twice, in different ways";
        all.info.*row.field = value;
        all.info.set |= row.bit;
    }
}

// ---- what a piece can read at a place ----

// Reads by the library. False with the error number in the locale's error word.
bool read_piece(const walk &w, const wide_text &format, size_t at, candidate &c) {
    c.info = {};
    *ko_ext_errno(w.setting.code.loc) = 0;
    const ko_wchar_t *const start = w.text.data();
    const ko_wchar_t *const end =
        ko_wcsptime1(w.setting.code.loc, start + at, format.data(), &c.info, w.setting.century);
    if (end) c.end = size_t(end - start);
    return end != nullptr;
}

size_t after_blanks(const walk &w, size_t at) {
    wide_text blank = native(w.setting.code, " ");
    blank.push_back(0);
    candidate c;
    return read_piece(w, blank, at, c) ? c.end : at;
}

struct named_field {
    const char *letters;
    bool of_era;
    unsigned bit;
    int time_info::*field;
    name_group full, brief;
    int error;
};
constexpr named_field named_fields[] = {
    {"aA",  false, seen_week_day, &time_info::week_day, full_days,   short_days,   KO_EWDAY     },
    {"bBh", false, seen_monidx,   &time_info::monidx,   full_months, short_months, KO_EMONTHNAME},
    {"p",   false, seen_ampm,     &time_info::ampm,     day_halves,  day_halves,   KO_EMISMATCH },
    {"Cg",  true,  seen_era,      &time_info::era,      full_eras,   short_eras,   KO_EERA      },
};

const named_field *names_read_by(const piece &p) {
    for (const named_field &row : named_fields)
        if (row.of_era == p.of_era && p.letter &&
            std::string_view(row.letters).find(p.letter) != std::string_view::npos)
            return has_letter(p.before, 'O') && row.full != full_months ? nullptr : &row;
    return nullptr;
}

bool stands_at(const walk &w, const wide_text &lower_name, size_t at) {
    return lower_name.size() < w.lower.size() - at &&
           std::equal(lower_name.begin(), lower_name.end(), w.lower.begin() + long(at));
}

// Adds the names of a list that stand at a place, as they are and without blanks around them.
void add_names(const walk &w, const named_field &row, const std::vector<wide_text> &list, size_t at,
               std::vector<candidate> &found) {
    const wide_text blank = native(w.setting.code, " ");
    for (size_t i = 0; i < list.size(); ++i) {
        wide_text name = lower_text(w.setting.code, list[i]);
        time_info info = {};
        info.*row.field = int(i);
        info.set = row.bit;
        if (!name.empty() && stands_at(w, name, at)) found.push_back({at + name.size(), info});
        while (!name.empty() && name.front() == blank[0])
            name.erase(name.begin());
        const size_t start = after_blanks(w, at);
        const bool other = start != at || name.size() != list[i].size();
        if (!name.empty() && other && stands_at(w, name, start))
            found.push_back({start + name.size(), info});
    }
}

std::vector<candidate> name_candidates(const walk &w, const named_field &row, size_t at) {
    std::vector<candidate> found;
    const auto &lists = w.setting.names.of;
    if (row.full == full_months) {
        add_names(w, row, w.setting.names.lone_months, at, found);
        add_names(w, row, w.setting.names.lone_short_months, at, found);
    }
    for (const name_group group : {row.full, row.brief}) {
        add_names(w, row, lists[group], at, found);
        if (row.full == row.brief) break;
    }
    const auto order = [&row](const candidate &c) {
        return std::pair(-int64_t(c.end), c.info.*row.field);
    };
    std::sort(found.begin(), found.end(),
              [&order](const candidate &a, const candidate &b) { return order(a) < order(b); });
    // Many names are full and short ones at once.
    found.erase(std::unique(found.begin(), found.end(),
                            [&order](const candidate &a, const candidate &b) {
                                return order(a) == order(b);
                            }),
                found.end());
    if (row.field != &time_info::ampm) return found;
    // Half a day without a name is written as nothing, and decides only if the other one has one.
    int nameless = 0;
    time_info info = {};
    const ko_wchar_t blank = native(w.setting.code, " ")[0];
    for (size_t i = 0; i < lists[day_halves].size(); ++i) {
        const wide_text &name = lists[day_halves][i];
        if (size_t(std::count(name.begin(), name.end(), blank)) == name.size())
            ++nameless, info.ampm = int(i);
    }
    if (nameless == 1) info.set = seen_ampm;
    if (nameless) found.push_back({at, info});
    return found;
}

bool is_iso(const piece &p) { return p.before.empty() && (p.letter == 'G' || p.letter == 'V'); }

// Reads a number of at most so many digits; all there are with 0.
bool read_number(const walk &w, const piece &p, int digits, size_t at, candidate &c) {
    const size_t form = std::min(p.before.find_first_of(".EOi"), p.before.size());
    const size_t size = std::min(p.before.find_first_of("123456789"), form);
    const char letter = !is_iso(p) ? p.letter : p.letter == 'G' ? 'Y' : 'j';
    if (!digits && is_iso(p)) digits = p.digits;
    if (!digits) return read_piece(w, p.format, at, c);
    wide_text format =
        native(w.setting.code, "%" + p.before.substr(0, size) + std::to_string(digits) +
                                   p.before.substr(form) + letter);
    format.push_back(0);
    return read_piece(w, format, at, c);
}

bool joined(const walk &w, size_t number) {
    return number + 1 < w.pieces.size() && w.pieces[number + 1].digits;
}

// The readings of a number, the longest first.
std::vector<candidate> number_candidates(const walk &w, size_t number, size_t at) {
    const piece &p = w.pieces[number];
    const size_t start = after_blanks(w, at);
    std::vector<candidate> found;
    candidate c;
    const bool usual = w.numbers == number_reading::usual && joined(w, number) && p.letter != 'F';
    if (read_number(w, p, usual ? p.digits : 0, at, c)) found.push_back(c);
    if (w.numbers != number_reading::split) return found;
    const int error = *ko_ext_errno(w.setting.code.loc);
    const bool fraction = p.letter == 'F';
    const size_t most = size_t(p.digits) + (fraction && has_letter(p.before, 'i'));
    // The digits of a locale may be of several characters each.
    if (!found.empty() && c.end > start + most && !has_letter(p.before, 'O')) found.clear();
    for (int digits = fraction ? 0 : p.digits; digits > 0; --digits) {
        if (!read_number(w, p, digits, start, c) || c.end != start + size_t(digits)) continue;
        if (found.empty() || found.back().end != c.end) found.push_back(c);
    }
    *ko_ext_errno(w.setting.code.loc) = error;
    return found;
}

std::vector<candidate> candidates_of(const walk &w, size_t number, size_t at) {
    const piece &p = w.pieces[number];
    if (p.digits) return number_candidates(w, number, at);
    std::vector<candidate> found;
    if (const named_field *row = names_read_by(p)) {
        found = name_candidates(w, *row, at);
        if (found.empty()) *ko_ext_errno(w.setting.code.loc) = row->error;
        return found;
    }
    candidate c;
    if (read_piece(w, p.format, at, c)) found.push_back(c);
    return found;
}

// ---- the walk ----

void end_walk(walk &w, size_t at, const read_fields &fields) {
    if (after_blanks(w, at) + 1 < w.text.size()) {
        if (!w.whole || at > w.rest) w.rest = at;
        w.whole = true;
        return;
    }
    const read_date date = resolve_date(w.setting, fields);
    (date.fault.empty() ? w.dates : w.faults).push_back(date);
}

void note_failure(walk &w, size_t number, size_t at) {
    if (number < w.failed_piece || (number == w.failed_piece && at < w.failed_at)) return;
    w.failed_piece = number;
    w.failed_at = at;
    w.error = *ko_ext_errno(w.setting.code.loc);
}

// Takes a year or a week of ISO 8601, which was read as a year or as a day of the year.
void take_iso(const piece &p, const time_info &info, read_fields &fields) {
    int &field = p.letter == 'G' ? fields.iso_year : fields.iso_week;
    const int value = p.letter == 'G' ? info.full_year + 1900 : info.year_day + 1;
    if (field >= 0 && field != value) fields.fault = "the week or its year is given twice";
    field = value;
}

void take(const walk &w, const piece &p, size_t at, const candidate &c, read_fields &fields) {
    if (c.info.set & seen_full_year && p.digits)
        fields.year_digits = std::min(fields.year_digits, int(c.end - after_blanks(w, at)));
    if (is_iso(p)) return take_iso(p, c.info, fields);
    merge(w, c.info, fields);
    const bool whole_era = p.of_era && p.letter == 'Y';
    if (whole_era) fields.era_text.assign(w.text.begin() + long(at), w.text.begin() + long(c.end));
}

void go_on(walk &w, size_t number, size_t at, read_fields fields) {
    for (; number < w.pieces.size(); ++number) {
        if (++w.steps > most_steps || w.dates.size() + w.faults.size() > most_dates)
            throw failure(bad_text, "the text can be read in too many ways by this format");
        const piece &p = w.pieces[number];
        const std::vector<candidate> found = candidates_of(w, number, at);
        if (found.empty()) return note_failure(w, number, at);
        for (size_t i = 0; i + 1 < found.size(); ++i) {
            read_fields with = fields;
            take(w, p, at, found[i], with);
            go_on(w, number + 1, found[i].end, with);
        }
        take(w, p, at, found.back(), fields);
        at = found.back().end;
    }
    end_walk(w, at, fields);
}

// ---- messages ----

// What the library's error numbers mean for a text.
std::string reason(int error, char letter) {
    const bool only_written = letter == 'Z' || letter == 'z' || letter == 's';
    switch (error) {
    case KO_EDIRECTIVE:
        if (only_written) return "kova date writes it, but it is not read";
        return letter ? "no such directive" : "the text differs here"; // from "%%"
    case KO_EFORMAT:
        return "the format ends inside a directive";
    case KO_EPRECISION:
        return "a \".\" without digits";
    case KO_EMISMATCH:
        return "the text differs here";
    case KO_ESECRANGE:
    case KO_EMINRANGE:
    case KO_EHOURRANGE:
    case KO_EDAYRANGE:
    case KO_EWDAYRANGE:
    case KO_EYDAYRANGE:
    case KO_EMONTHRANGE:
    case KO_EYEARRANGE:
    case KO_ERANGE:
        return "the number is out of range";
    case KO_EFRACTION:
        return "no fraction of a second, or one with fewer digits";
    case KO_EERA:
        return "no era, or none that contains the date";
    case KO_EMONTHNAME:
        return "no name of a month";
    case KO_EWDAY:
        return "no day of the week";
    default:
        return "not a number";
    }
}

// %F reads the start of a date such as 2026-11-21 as a fraction.
std::string hint_at_dates(const walk &w) {
    for (const piece &p : w.pieces)
        if (p.letter == 'F' && !has_letter(p.before, 'i'))
            return "; %F is the fraction of a second here, and %Y-%m-%d reads a date such as "
                   "2026-11-21";
    return "";
}

std::string marked_text(const walk &w, size_t at) {
    const codec &code = w.setting.code;
    std::string shown;
    encode(code, w.text.data(), w.text.size() - 1, shown);
    const size_t columns = columns_of_text(code, w.text.data(), at);
    return "  " + shown + "\n  " + std::string(columns, ' ') + '^';
}

[[noreturn]] void bad_directive(const walk &w) {
    const bool of_format = w.error == KO_EFORMAT || w.error == KO_EPRECISION;
    const piece &p = w.pieces[w.failed_piece];
    try {
        fail_in_format(w.setting.code, w.format, p.place, of_format ? bad_usage : bad_text,
                       reason(w.error, p.letter) + hint_at_dates(w));
    } catch (const failure &e) {
        throw failure(e.status, e.what(),
                      e.excerpt + "\nand at character " + std::to_string(w.failed_at + 1) +
                          " of the text\n" + marked_text(w, w.failed_at));
    }
}

[[noreturn]] void fail_walk(const walk &w) {
    std::string shown;
    encode(w.setting.code, w.text.data(), w.text.size() - 1, shown);
    if (!w.faults.empty()) throw failure(bad_text, shown + ": " + w.faults[0].fault);
    if (!w.whole) bad_directive(w);
    throw failure(bad_text,
                  "the format ends before the text, at character " + std::to_string(w.rest + 1) +
                      hint_at_dates(w),
                  marked_text(w, w.rest));
}

// The first field in which two readings differ; "" if they are the same.
std::string differing_field(const ko_tm_t &a, const ko_tm_t &b) {
    const struct {
        bool differs;
        const char *name;
    } rows[] = {
        {a.tm_year != b.tm_year, "year"                },
        {a.tm_mon != b.tm_mon,   "month"               },
        {a.tm_mday != b.tm_mday, "day"                 },
        {a.tm_hour != b.tm_hour, "hour"                },
        {a.tm_min != b.tm_min,   "minute"              },
        {a.tm_sec != b.tm_sec,   "second"              },
        {a.tm_usec != b.tm_usec, "fraction of a second"},
    };
    for (const auto &row : rows)
        if (row.differs) return row.name;
    return "";
}

// Every reading must give the same time.
void check_readings(const walk &w) {
    const ko_tm_t &first = w.dates[0].tm;
    for (const read_date &other : w.dates) {
        const std::string field = differing_field(first, other.tm);
        if (field.empty()) continue;
        const bool of_day = day_of(first) != day_of(other.tm);
        const auto shown = [of_day](const ko_tm_t &tm) {
            return of_day ? day_text(day_of(tm)) : clock_text(tm);
        };
        throw failure(bad_text, outer_text(w.setting.code, {w.text.begin(), w.text.end() - 1}) +
                                    ": the " + field + " is undecided: the text is both " +
                                    shown(first) + " and " + shown(other.tm));
    }
}

} // namespace

std::string clock_text(const ko_tm_t &tm) {
    char text[40];
    int size = std::snprintf(text, sizeof text, "%02d:%02d:%02d", tm.tm_hour, tm.tm_min, tm.tm_sec);
    if (tm.tm_usec)
        size += std::snprintf(text + size, sizeof text - size_t(size), ".%06d", int(tm.tm_usec));
    return std::string(text, size_t(size));
}

read_date read_whole_date(const date_setting &setting, const format_text &format,
                          const wide_text &text) {
    walk w{.setting = setting, .format = format, .text = text};
    w.lower = lower_text(setting.code, wide_text(text.begin(), text.end() - 1));
    w.lower.push_back(0);
    add_pieces(w, format, 0, 0);
    for (const number_reading numbers :
         {number_reading::split, number_reading::whole, number_reading::usual}) {
        w.numbers = numbers;
        w.failed_piece = w.failed_at = w.rest = 0;
        w.whole = false;
        w.faults.clear();
        go_on(w, 0, 0, {});
        if (w.dates.empty()) continue;
        check_readings(w);
        return w.dates[0];
    }
    fail_walk(w);
}

} // namespace kovacli
