// The characters of a code set: built in, from a charmap, a file, or the C library's converter.
#include "kovac/kovac_convert.h"

#include <algorithm>
#include <cstring>

#include <unistd.h>

#include "common/tool_text.h"

namespace kovac {

// ---- both directions ----

// A tie both ways ranks above a one-way tie, and that above a line that only fills gaps.
static int rank_of(tie kind) { return kind == tie::both ? 3 : kind == tie::either ? 1 : 2; }

template <class Map, class Ranks, class Key, class Value>
static void put(Map &map, Ranks &ranks, const Key &key, const Value &value, int rank) {
    int &known = ranks[key];
    if (rank <= known) return;
    map[key] = value;
    known = rank;
}

void set_builder::add(char_bytes bytes, uint32_t code, tie kind) {
    const bool to_code = kind != tie::to_bytes && kind != tie::substitute;
    if (to_code) put(set->codes, code_ranks, bytes, code, rank_of(kind));
    if (kind != tie::to_code) put(set->bytes, bytes_ranks, code, bytes, rank_of(kind));
}

void complete_set(conv_set &set) {
    if (set.bytes.count(0)) return;
    const bool pairs_only =
        !set.codes.empty() && std::all_of(set.codes.begin(), set.codes.end(), [](const auto &c) {
            return c.first.len == 2 && !c.first.shifted;
        });
    const char_bytes nul{false, uint8_t(pairs_only ? 2 : 1), 0};
    if (!set.codes.emplace(nul, 0u).second) return;
    set.bytes.emplace(0u, nul);
}

// ---- built-in forms ----

char_bytes unicode_bytes(uint32_t code) {
    if (code <= last_bmp_code) return {false, 2, code};
    const uint32_t rest = code - 0x10000;
    return {false, 4, (0xD800 | rest >> 10) << 16 | 0xDC00 | (rest & 0x3FF)};
}

char_bytes utf8_bytes(uint32_t code) {
    if (code < 0x80) return {false, 1, code};
    const uint32_t low = 0x80 | (code & 0x3F), mid = 0x80 | (code >> 6 & 0x3F);
    if (code < 0x800) return {false, 2, (0xC0 | code >> 6) << 8 | low};
    if (code < 0x10000) return {false, 3, (0xE0 | code >> 12) << 16 | mid << 8 | low};
    const uint32_t high = 0x80 | (code >> 12 & 0x3F);
    return {false, 4, (0xF0 | code >> 18) << 24 | high << 16 | mid << 8 | low};
}

char_bytes bytes_of(const conv_set &set, uint32_t code) {
    if (set.form == set_form::listed) {
        const auto found = set.bytes.find(code);
        return found == set.bytes.end() ? char_bytes{} : found->second;
    }
    if (code > last_code || !set.built_in[code]) return {};
    return set.form == set_form::utf8 ? utf8_bytes(code) : unicode_bytes(code);
}

// Of bytes that may be none of the form; the caller compares.
static uint32_t read_utf8(char_bytes bytes) {
    if (bytes.len < 2) return bytes.value;
    uint32_t code = bytes.value >> 8 * (bytes.len - 1) & (0x7Fu >> bytes.len);
    for (int at = 8 * (bytes.len - 2); at >= 0; at -= 8)
        code = code << 6 | (bytes.value >> at & 0x3F);
    return code;
}
static uint32_t read_unicode(char_bytes bytes) {
    if (bytes.len < 4) return bytes.value;
    return 0x10000 + ((bytes.value >> 16 & 0x3FF) << 10 | (bytes.value & 0x3FF));
}

uint32_t code_of(const conv_set &set, char_bytes bytes) {
    if (set.form == set_form::listed) {
        const auto found = set.codes.find(bytes);
        return found == set.codes.end() ? no_code : found->second;
    }
    const uint32_t code = set.form == set_form::utf8 ? read_utf8(bytes) : read_unicode(bytes);
    return bytes_of(set, code) == bytes ? code : no_code;
}

void fill_builtin(conv_set &set, const conv_set &peer, uint32_t last, bool everything) {
    set.built_in.resize(last_code + 1);
    const auto add = [&set](uint32_t code) {
        if (is_scalar(code)) set.built_in[code] = true;
    };
    for (const auto &[bytes, code] : peer.codes)
        add(code);
    for (const auto &[code, bytes] : peer.bytes)
        add(code);
    for (uint32_t code = 0; everything && code <= last; ++code)
        add(code);
}

// ---- finding ----

static constexpr uint16_t number_of_unicode = 57349;
static constexpr uint16_t number_of_utf8 = 57372;
bool add_name(conv_set &set, const std::string &name) {
    if (name.empty() || name.find_first_of("/\\: ") != std::string::npos ||
        kovatool::printable(name) != name) {
        return false;
    }
    if (std::find(set.names.begin(), set.names.end(), name) == set.names.end()) {
        set.names.push_back(name);
    }
    return true;
}

// The established name, or the one that was asked for. Other names open the object through the
// registry, so that it needs no links for them.
static void name_set(conv_set &set, const std::string &asked) {
    if (const code_set *known = registered(set.number)) {
        const std::string_view names = known->names;
        if (add_name(set, std::string(names.substr(0, names.find(' '))))) return;
        if (add_name(set, known->charmap)) return;
    }
    if (add_name(set, asked)) return;
    std::string usable = asked.empty() ? "codeset" : asked;
    for (char &c : usable) {
        if (uint8_t(c) <= ' ' || c == 0x7F || strchr("/\\:", c)) c = '_';
    }
    add_name(set, usable);
}

static constexpr struct {
    const char *charmap;
    uint32_t code;
    uint8_t len;
    uint32_t value;
} fallbacks[] = {
#define KOVAC_FALLBACK(charmap, code, len, value) {charmap, code, len, value},
#include "../../data/fallbacks.inc"
#undef KOVAC_FALLBACK
};

static bool load_from_charmap(const std::vector<std::string> &dirs, const std::string &name,
                              diagnostics &diag, conv_set &set, std::string *code_set_name) {
    charmap map;
    std::vector<charmap_line> lines;
    if (!load_charmap(dirs, name, diag, map, &lines)) return false;
    set_builder builder{&set, {}, {}};
    for (const charmap_line &line : lines) {
        if (line.code >= private_code || !is_scalar(line.code)) continue;
        builder.add({false, line.len, line.bytes}, line.code,
                    line.one_way ? tie::either : tie::both);
    }
    for (const auto &f : fallbacks) {
        if (map.name == f.charmap) builder.add({false, f.len, f.value}, f.code, tie::to_bytes);
    }
    set.origin = "charmap " + map.name;
    *code_set_name = map.name;
    return true;
}

bool read_charmap_set(const std::vector<std::string> &dirs, const std::string &name,
                      diagnostics &diag, conv_set &set) {
    std::string own_name;
    return load_from_charmap(dirs, name, diag, set, &own_name);
}
static convert_status load_from_file(const std::string &path, diagnostics &diag, conv_set &set,
                                     std::string *code_set_name) {
    source_file file;
    file.path = path;
    file.name = path.substr(path.rfind('/') + 1);
    if (!read_whole(path, file.text)) {
        error(diag, {}, format("cannot read %s", path.c_str()));
        return convert_status::file;
    }
    std::string base = file.name;
    if (base.ends_with(".gz")) base.resize(base.size() - 3);
    *code_set_name = base.substr(0, base.rfind('.'));
    set.origin = "mapping " + base;
    const bool is_charmap =
        file.text.starts_with("CHARMAP\n") || file.text.find("\nCHARMAP") != std::string::npos;
    const bool read = is_ucm(file.text) ? read_ucm(file, diag, set)
                      : is_charmap      ? load_from_charmap({}, path, diag, set, code_set_name)
                                        : read_mapping(file, diag, set);
    return read ? convert_status::done : convert_status::source;
}

static convert_status refuse(diagnostics &diag, convert_status status, const std::string &text) {
    error(diag, {}, text);
    return status;
}

// The code sets of data/registry.inc that the library converts by rule.
static bool is_ruled(int number) {
    constexpr int first = 57499, last = 57508, windows_first = 50220, windows_last = 50221;
    return (number >= first && number <= last) ||
           (number >= windows_first && number <= windows_last);
}

// A converter by number or name, as the C library and ICU spell them.
static convert_status load_from_converters(const std::string &name, diagnostics &diag,
                                           conv_set &set) {
    std::vector<std::string> tried;
    if (set.number != no_number && set.number < first_private_number)
        tried.push_back(format("IBM%03d", set.number));
    tried.push_back(name);
    for (const source_kind kind : {source_kind::libc, source_kind::icu}) {
        for (const std::string &one : tried) {
            std::string why;
            const bool is_libc = kind == source_kind::libc;
            const bool read =
                is_libc ? read_libc_set(one, set, &why) : read_icu_set(one, set, &why);
            set.origin = (is_libc ? "C library " : "ICU ") + one;
            if (read) return convert_status::done;
            if (why.empty() || (!is_libc && !has_icu())) continue;
            return refuse(
                diag, convert_status::source,
                name + " cannot be compiled: " + why +
                    (is_ruled(set.number) ? "; kova convert needs no object for it" : ""));
        }
    }
    if (is_ruled(set.number))
        return refuse(diag, convert_status::source,
                      name + " converts by rule: kova convert needs no object for it");
    return refuse(diag, convert_status::file,
                  "no code set \"" + name +
                      "\": neither a charmap, nor a file, nor a converter of the C library" +
                      (has_icu() ? " or of ICU" : ""));
}

// Loads a set from the source that data/mappings.list names.
static convert_status load_from_source(const std::vector<std::string> &dirs,
                                       const std::string &name, const set_source &source,
                                       diagnostics &diag, conv_set &set) {
    static constexpr const char *labels[] = {"charmap ", "C library ", "ICU "};
    static constexpr const char *parts[] = {"", ", single bytes", ", double bytes"};
    set.origin = labels[int(source.kind)] + source.name;
    std::string why;
    bool read = false;
    if (source.all) set.last = last_sip_code;
    if (source.kind == source_kind::charmap) {
        const std::string found = find_file(dirs, source.name);
        read = !found.empty() && found != source.name; // not just a file of the working directory
        why = "it is not in $I18NPATH or /usr/share/i18n; install the package \"locales\"";
        if (read && !read_charmap_set(dirs, source.name, diag, set)) return convert_status::source;
    } else {
        read = source.kind == source_kind::libc ? read_libc_set(source.name, set, &why)
                                                : read_icu_set(source.name, set, &why);
        if (why.empty()) why = "this system has no such converter";
    }
    if (!read)
        return refuse(diag, convert_status::file, name + " comes from " + set.origin + ": " + why);
    change_set(set, source);
    set.origin += parts[int(source.part)];
    if (source.euro) set.origin += ", with the euro sign";
    if (source.all && set.bytes.size() < scalars)
        warning(
            diag, {},
            format(
                "%s: %zu code points are left out; the table has those of the first three planes",
                name.c_str(), scalars - set.bytes.size()));
    return convert_status::done;
}

static int number_of(const registry *numbers, const std::string &name) {
    const int number = numbers ? find_name(*numbers, name) : no_number;
    return number != no_number ? number : find_code_set(name);
}

static convert_status load_listed(const std::vector<std::string> &dirs, const std::string &name,
                                  diagnostics &diag, conv_set &set, std::string *own_name) {
    const code_set *known = registered(set.number);
    const std::string charmap_name =
        known && known->charmap != std::string_view("-") ? known->charmap : name;
    const bool is_path = name.find('/') != std::string::npos;
    if (const set_source *source = is_path ? nullptr : source_of(set.number))
        return load_from_source(dirs, name, *source, diag, set);
    const std::string found = is_path ? std::string() : find_file(dirs, charmap_name);
    if (!found.empty() && found != charmap_name) { // not just a file of the working directory
        return load_from_charmap(dirs, charmap_name, diag, set, own_name) ? convert_status::done
                                                                          : convert_status::source;
    }
    if ((is_path || !known) && access(name.c_str(), R_OK) == 0) {
        return load_from_file(name, diag, set, own_name);
    }
    if (!is_path) return load_from_converters(name, diag, set);
    return refuse(diag, convert_status::file,
                  "no code set \"" + name + "\": there is no such file");
}

convert_status load_set(const std::vector<std::string> &charmap_dirs, const std::string &name,
                        const registry *numbers, diagnostics &diag, conv_set &set) {
    const bool is_path = name.find('/') != std::string::npos;
    set.number = is_path ? no_number : number_of(numbers, name);
    if (set.number == number_of_unicode || set.number == number_of_utf8) {
        set.form = set.number == number_of_utf8 ? set_form::utf8 : set_form::unicode;
        set.origin = set.form == set_form::utf8 ? "utf8" : "unicode";
        name_set(set, name);
        return convert_status::done;
    }
    std::string own_name = name;
    const convert_status status = load_listed(charmap_dirs, name, diag, set, &own_name);
    if (status != convert_status::done) return status;
    if (set.number == no_number) set.number = number_of(numbers, own_name);
    name_set(set, own_name);
    complete_set(set);
    if (set.sequences) {
        warning(diag, {},
                format("%s: %d characters that stand for several code points are left out",
                       name.c_str(), set.sequences));
    }
    return convert_status::done;
}

} // namespace kovac
