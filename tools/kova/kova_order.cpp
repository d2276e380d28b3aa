// kova order: the alphabet of a locale with its levels, and the weights of a text.
#include "kova/kova_order.h"

#include <algorithm>
#include <set>

#include "kova/kova_char.h"
#include "kova/kova_cli.h"
#include "kova/kova_page.h"
#include "kova/kova_script.h"

namespace kovacli {
namespace {

struct order_job {
    locale_handle handle;
    codec code;
    weight_table table;
    std::vector<const script *> scripts;
    std::set<uint32_t> named; // letters of the locale's names, which its alphabet has
    bool all = false;         // not letters alone
    bool usual = true;        // only what most languages of the scripts use
    std::string from, to;     // first parts of the bounds' keys
    bool has_from = false, has_to = false;
};

// ---- Keys ----

// The library's key, without its end, divided into levels.
std::vector<std::string> key_of(const order_job &job, wide_text text) {
    text.push_back(0);
    std::string key(64 + 8 * text.size(), '\0');
    for (bool fits = false; !fits;) {
        const int len = ko_wcsxfrm(job.code.loc, reinterpret_cast<ko_mchar_t *>(key.data()),
                                   text.data(), int(key.size()));
        if (len < 0) throw failure(bad_text, "the key cannot be made: memory is exhausted");
        fits = size_t(len) < key.size();
        key.resize(size_t(len) + (fits ? 0 : 1));
    }
    if (job.table.by != weight_table::method::weights) return {key};
    std::vector<std::string> parts(1);
    for (const char c : key) {
        if (c != 1)
            parts.back() += c;
        else
            parts.emplace_back();
    }
    parts.resize(std::max(job.table.forward.size(), size_t{1}));
    return parts;
}

// ---- Letters as people read them ----

// Combining characters stand on a circle, and what has no shape is named by its code.
std::string shown_text(const order_job &job, const wide_text &text) {
    std::string shown;
    for (size_t i = 0, units; i < text.size(); i += units) {
        units = units_of(job.code, &text[i], text.size() - i);
        const uint32_t point = point_of(job.code, &text[i], units);
        const int columns = columns_of(job.code, &text[i], units);
        std::string c;
        encode(job.code, &text[i], units, c);
        if (columns == 0 && i == 0 && job.code.utf8) append_utf8(0x25CC, shown);
        const bool blank = point == 0x20 || point == 0xA0 || point == 0x3000;
        shown += columns < 0 || blank || point == no_code_point ? code_point_text(point) : c;
    }
    return visible(job.code, shown);
}

// What stands for weights that no character has: U+FDD0 and those after it, and U+FFFF.
bool is_carrier(uint32_t point) {
    return (point >= 0xFDD0 && point <= 0xFDEF) || (point & 0xFFFE) == 0xFFFE;
}

// What a row expands to at the first level; "" where that has nothing that can be read.
std::string spelling_of(const order_job &job, size_t row) {
    if (job.table.by != weight_table::method::weights) return "";
    const unsigned weight = job.table.weight(row, 0);
    if (!(weight & weight_table::expands)) return "";
    const wide_text &text = job.table.expansions[weight & weight_table::low_bits];
    for (size_t i = 0; i < text.size(); ++i)
        if (is_carrier(code_point(job.code, text[i]))) return "";
    const wide_text lower = lower_text(job.code, text);
    return shown_text(job, key_of(job, lower)[0] == key_of(job, text)[0] ? lower : text);
}

// ---- Which letters ----

bool is_letter(const order_job &job, ko_wchar_t c) {
    return im_iswctype(job.code.loc, c, KO_CT_ALPHA) != 0;
}

// Combining vowels and marks count where they are of the script.
bool is_wanted(const order_job &job, ko_wchar_t c) {
    const uint32_t point = code_point(job.code, c);
    if (point == no_code_point || point == 0 || is_carrier(point)) return false;
    if (job.all) return true;
    const bool mark = columns_of(job.code, &c, 1) == 0;
    if (!is_letter(job, c) && !mark) return false;
    if (job.named.count(point)) return true;
    return std::any_of(job.scripts.begin(), job.scripts.end(), [&](const script *s) {
        return job.usual ? has_usual_character(*s, point) : has_character(*s, point);
    });
}

bool is_wanted(const order_job &job, const weight_table::element &e) {
    if (e.text.size() < 2) return false;
    size_t letters = 0;
    for (const ko_wchar_t c : e.text) {
        const uint32_t point = code_point(job.code, c);
        if (point == no_code_point || is_carrier(point)) return false;
        letters += is_wanted(job, c);
    }
    return letters == e.text.size();
}

// Letters of the names of days and months, with their partners.
void add_names(order_job &job, std::set<const script *> &scripts) {
    for (const auto &[first, count] : {
             std::pair{KO_DAY_1, 7 },
             {KO_MON_1, 12}
    }) {
        for (int i = 0; i < count; ++i) {
            for (const ko_wchar_t c : item_text(job.code, unsigned(first) + unsigned(i))) {
                if (!is_letter(job, c)) continue;
                for (const ko_wchar_t partner :
                     {c, im_towupper(job.code.loc, c), im_towlower(job.code.loc, c)})
                    job.named.insert(code_point(job.code, partner));
                if (const script *s = script_at(code_point(job.code, c))) scripts.insert(s);
            }
        }
    }
    job.named.erase(no_code_point);
}

void choose_scripts(order_job &job, const order_options &options) {
    bool every = false;
    for (const std::string &code : options.scripts) {
        const script *found = find_script(code);
        if (!found && code != "all")
            throw failure(bad_usage, "order: there is no script \"" + code +
                                         "\"; scripts are all, " + script_codes());
        job.usual = false;
        if (found) job.scripts.push_back(found);
        every |= !found;
    }
    job.all = every;
    if (!options.scripts.empty()) return;
    std::set<const script *> scripts;
    add_names(job, scripts);
    const std::string language = job.handle.object.language.substr(0, 3);
    if (language == "ja_")
        scripts = {find_script("hira"), find_script("kana"), find_script("hani")};
    if (language == "ko_") scripts.insert(find_script("hang"));
    if (scripts.empty()) scripts.insert(find_script("latn"));
    job.scripts.assign(scripts.begin(), scripts.end());
    std::sort(job.scripts.begin(), job.scripts.end());
}

// A bound that is no letter of the scripts shows every character, unless scripts are named.
bool read_bound(order_job &job, const order_options &options, const std::string &argument,
                const char *name, std::string &bound) {
    if (argument.empty()) return false;
    const wide_text text = decode_argument(job.code, argument, name);
    if (options.scripts.empty() && !is_wanted(job, text[0])) job.all = true;
    bound = key_of(job, text)[0];
    return true;
}

// Is a letter between --from and --to, by the first level?
bool is_between(const order_job &job, const order_letter &letter) {
    return (!job.has_from || letter.key[0] >= job.from) && (!job.has_to || letter.key[0] <= job.to);
}

void add_letter(const order_job &job, wide_text text, size_t row,
                std::vector<order_letter> &letters) {
    order_letter letter{std::move(text), "", row, {}, 0};
    letter.key = key_of(job, letter.text);
    if (!is_between(job, letter)) return;
    letter.shown = shown_text(job, letter.text);
    letters.push_back(std::move(letter));
}

std::vector<order_letter> sorted_letters(const order_job &job) {
    std::vector<order_letter> letters;
    for (unsigned wide = 1; wide < 0x10000; ++wide) {
        const auto c = ko_wchar_t(wide);
        if (is_wanted(job, c))
            add_letter(job, {c}, job.table.rows ? row_of(job.table, job.code.loc, c) : 0, letters);
    }
    for (const weight_table::element &e : job.table.elements)
        if (is_wanted(job, e)) add_letter(job, e.text, e.row, letters);
    std::stable_sort(letters.begin(), letters.end(),
                     [](const order_letter &a, const order_letter &b) { return a.key < b.key; });
    for (size_t i = 1; i < letters.size(); ++i) {
        const auto &key = letters[i].key, &before = letters[i - 1].key;
        const auto at = std::mismatch(key.begin(), key.end(), before.begin(), before.end()).first;
        letters[i].level = at == key.end() ? 0 : int(at - key.begin()) + 1;
    }
    return letters;
}

// ---- The view ----

std::vector<level_facts> levels_of(const order_job &job) {
    std::vector<level_facts> levels;
    for (const bool forward : job.table.forward)
        levels.push_back({forward, "", ""});
    if (job.table.by != weight_table::method::weights) levels.assign(1, {});
    return levels;
}

void add_groups(const order_job &job, size_t most, order_view &view) {
    std::vector<order_letter> letters = sorted_letters(job);
    for (size_t i = 0; i < letters.size(); ++i) {
        order_letter &letter = letters[i];
        if (i && letter.level > 0 && !letters[i - 1].key[0].empty()) {
            level_facts &facts = view.levels[size_t(letter.level) - 1];
            size_t before = i - 1; // the first of those that this level does not tell apart
            while (before && (letters[before].level == 0 || letters[before].level > letter.level))
                --before;
            if (facts.first.empty()) facts = {facts.forward, letters[before].shown, letter.shown};
        }
        if (i && letter.level != 1)
            view.groups.back().letters.push_back(letter);
        else
            view.groups.push_back({{letter}, spelling_of(job, letter.row), letter.key[0].empty()});
    }
    if (!most || view.groups.size() <= most) return;
    view.more = view.groups.size() - most;
    view.groups.resize(most);
}

void add_ignored(const order_job &job, order_view &view) {
    constexpr size_t shown = 24;
    const ko_mchar_t **list = static_cast<const loc_exports *>(job.code.loc)->coll_ignored;
    while (list && list[view.weightless])
        ++view.weightless;
    if (job.table.by != weight_table::method::weights) return;
    for (unsigned wide = 1; wide < 0x10000; ++wide) {
        const auto c = ko_wchar_t(wide);
        const uint32_t point = code_point(job.code, c);
        if (point == no_code_point || is_carrier(point)) continue;
        if (job.table.weight(row_of(job.table, job.code.loc, c), 0) != weight_table::ignored)
            continue;
        ++view.ignored;
        const bool control = point < 0x20 || (point >= 0x7F && point < 0xA0);
        if (!control && view.sample.size() < shown) view.sample.push_back(shown_text(job, {c}));
    }
}

order_view view_of(const order_job &job, const order_options &options) {
    static constexpr const char *methods[] = {"by weights", "in code-set order",
                                              "by the Thai method"};
    order_view view;
    view.locale = job.handle.name;
    view.by = methods[size_t(job.table.by)];
    view.levels = levels_of(job);
    for (const script *s : job.scripts)
        view.letters += (view.letters.empty() ? "" : ", ") + std::string(code_of(*s));
    view.letters = job.all ? "all characters" : "letters of " + view.letters;
    view.usual = job.usual && !job.all;
    add_groups(job, options.most, view);
    add_ignored(job, view);
    return view;
}

// ---- The weights of a text ----

// An element, or a character, with what the library's key has for it alone.
order_part part_at(const order_job &job, const wide_text &text, size_t &at) {
    const size_t rest = text.size() - at;
    const weight_table::element *element = element_at(job.table, &text[at], rest);
    const size_t units = element ? element->text.size() : units_of(job.code, &text[at], rest);
    const wide_text own(text.begin() + ptrdiff_t(at), text.begin() + ptrdiff_t(at + units));
    const size_t row = element ? element->row : row_of(job.table, job.code.loc, own[0]);
    order_part part{shown_text(job, own), spelling_of(job, row), {}};
    for (const std::string &weight : key_of(job, own))
        part.weights.push_back(weight.empty() ? "-" : hex(weight, " "));
    at += units;
    return part;
}

order_of_text weigh(const order_job &job, const std::string &argument) {
    const wide_text text = decode_argument(job.code, argument, "--of");
    order_of_text view{job.handle.name, visible(job.code, argument), levels_of(job), {}, {}};
    if (job.table.by == weight_table::method::weights)
        for (size_t at = 0; at < text.size();)
            view.parts.push_back(part_at(job, text, at));
    for (const std::string &part : key_of(job, text))
        view.key.push_back(hex(part, " "));
    return view;
}

// ---- Text ----

cell shown_cell(const order_job &job, const std::string &shown) {
    if (!job.code.utf8) return {shown};
    bad_character bad;
    wide_text wide;
    decode_text(job.code, shown, true, wide, bad, nullptr);
    return {shown, int(columns_of_text(job.code, wide.data(), wide.size()))};
}

void write_levels(const order_job &job, const order_view &view, output &out) {
    std::vector<std::vector<cell>> rows;
    for (size_t i = 0; i < view.levels.size(); ++i) {
        const level_facts &l = view.levels[i];
        const std::string sign = level_sign(int(i) + 1);
        const std::string example = l.first.empty() ? "" : l.first + " " + sign + " " + l.second;
        rows.push_back({{"level " + std::to_string(i + 1)},
                        {l.forward ? "forward" : "backward"},
                        {sign},
                        shown_cell(job, example)});
    }
    if (view.levels.size() > 1) write_table(out, rows);
    if (view.ignored) {
        std::string sample;
        for (const std::string &shown : view.sample)
            sample += " " + shown;
        write(out, "ignored at level 1: " + std::to_string(view.ignored) + " characters, such as" +
                       sample + "\n");
    }
    if (view.weightless)
        write(out, "ignored at every level: " + std::to_string(view.weightless) + "\n");
    write(out, "\n");
}

void write_text(const order_job &job, const order_view &view, output &out) {
    write(out, view.locale + " " + view.by + ": " + view.letters +
                   (view.usual ? ", the usual ones" : "") + "\n");
    write_levels(job, view, out);
    std::vector<std::vector<cell>> rows;
    for (const order_group &group : view.groups) {
        std::string rest;
        for (size_t i = 1; i < group.letters.size(); ++i)
            rest += (i > 1 ? " " : "") + level_sign(group.letters[i].level) + " " +
                    group.letters[i].shown;
        if (group.ignored) rest += (rest.empty() ? "" : " ") + std::string("(ignored at level 1)");
        if (!group.spelled.empty()) rest += (rest.empty() ? "(as " : " (as ") + group.spelled + ")";
        rows.push_back({shown_cell(job, group.letters[0].shown), {rest}});
    }
    write_table(out, rows);
    if (view.groups.empty()) write(out, "no such letter in the code set\n");
    if (view.more) write(out, std::to_string(view.more) + " more lines; -n 0 shows all\n");
}

void write_text(const order_job &job, const order_of_text &view, output &out) {
    std::vector<std::vector<cell>> rows;
    if (!view.parts.empty()) {
        rows.push_back({{"text"}});
        for (size_t p = 0; p < view.levels.size(); ++p)
            rows[0].push_back(
                {"level " + std::to_string(p + 1) + (view.levels[p].forward ? "" : ", backward")});
    }
    for (const order_part &part : view.parts) {
        rows.push_back({shown_cell(
            job, part.shown + (part.spelled.empty() ? "" : " (as " + part.spelled + ")"))});
        for (const std::string &weight : part.weights)
            rows.back().push_back({weight});
    }
    write_table(out, rows);
    std::string key;
    for (const std::string &part : view.key)
        key += (&part == view.key.data() ? "key " : " 01 ") + part;
    write(out, key + "\n");
}

template <class View>
void write_view(const order_job &job, const View &view, const order_options &options) {
    output out;
    open(out, options.out);
    if (options.json)
        write_json(view, out);
    else if (options.html)
        write_html(view, language_of(job.code, job.handle.object), out);
    else
        write_text(job, view, out);
    finish(out);
}

} // namespace

std::string level_sign(int level) { return level ? std::string(size_t(level), '<') : "="; }

int run_order(const common_options &common, const order_options &options) {
    order_job job;
    common_options asked = common;
    if (options.json || options.html) asked.form = text_form::utf8;
    const data_place place = open_with_codec(asked, options.locale, job.handle, job.code);
    if (!add_mapping(job.handle, place, job.code))
        throw failure(bad_locale,
                      "which letters the characters are is unknown: " + job.code.mapping_fault);
    read_weights(job.handle.object, job.table);
    if (options.shows_text) {
        write_view(job, weigh(job, options.of), options);
        return done;
    }
    choose_scripts(job, options);
    job.has_from = read_bound(job, options, options.from, "--from", job.from);
    job.has_to = read_bound(job, options, options.to, "--to", job.to);
    write_view(job, view_of(job, options), options);
    return done;
}

} // namespace kovacli
