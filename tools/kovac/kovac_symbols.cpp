// Makes charmap objects: orders the names, writes the records, and proves the object.
#include "kovac/kovac_symbols.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <unordered_set>

#include "common/tool_text.h"
#include "kova.h"
#include "kovac/kovac_license.h"
#include "kovac/kovac_write.h"

namespace kovac {

static constexpr size_t symbol_name_limit = 70; // bytes of a name in a charmap object
static constexpr size_t codeset_name_limit = 21;
static constexpr uint32_t last_name_code = 0x1FFFF;

namespace {
struct portable_name {
    uint32_t code;
    const char *name;
};
} // namespace
static constexpr portable_name portable_names[] = {
#include "../../data/portable_names.inc"
};

namespace {

// A name of a character; text is written with the first name of each character.
struct symbol_line {
    char_bytes bytes;
    std::string name;
    bool preferred; // the name stands only for these bytes, in both directions
};

struct symbol_set {
    std::string name, origin, license;
    int number = no_number;
    std::vector<symbol_line> lines;
};

} // namespace

// ---- the names of a code set ----

static std::string code_name(uint32_t code) {
    return format(code > 0xFFFF ? "U%08X" : "U%04X", unsigned(code));
}

static bool from_charmap(const std::vector<std::string> &dirs, const std::string &name,
                         diagnostics &diag, symbol_set &set) {
    charmap map;
    std::vector<charmap_line> lines;
    if (!load_charmap(dirs, name, diag, map, &lines)) return false;
    set.name = map.name;
    set.origin = name.substr(name.rfind('/') + 1);
    set.license = codeset_license("charmap " + set.origin);
    for (const charmap_line &line : lines)
        set.lines.push_back({
            {false, line.len, line.bytes},
            line.name, !line.one_way
        });
    if (!map.unicode) return true;
    for (const charmap_char &c : map.chars)
        set.lines.push_back({
            {false, 2, c.wide},
            code_name(c.code), true
        });
    return true;
}

static convert_status from_set(const std::vector<std::string> &dirs, const std::string &name,
                               const registry *numbers, diagnostics &diag, symbol_set &set) {
    conv_set chars;
    const convert_status status = load_set(dirs, name, numbers, diag, chars);
    if (status != convert_status::done) return status;
    if (chars.stateful) {
        error(diag, {},
              format("%s has shift codes: one sequence of bytes stands for different "
                     "characters; compile its parts",
                     name.c_str()));
        return convert_status::source;
    }
    if (chars.form == set_form::utf8) {
        for (uint32_t code = 0; code <= last_name_code; ++code) {
            if (is_scalar(code)) set.lines.push_back({utf8_bytes(code), code_name(code), true});
        }
    }
    set.name = chars.names.empty() ? name : chars.names[0];
    set.origin = chars.origin;
    set.license = codeset_license(chars.origin);
    set.number = chars.number;
    for (const auto &[bytes, code] : chars.codes)
        set.lines.push_back({bytes, code_name(code), true});
    return convert_status::done;
}

// Adds the traditional name of each portable character before its others.
static void add_portable_names(symbol_set &set) {
    std::vector<symbol_line> added;
    for (const symbol_line &line : set.lines) {
        unsigned code = 0;
        if (line.name[0] != 'U' || sscanf(line.name.c_str() + 1, "%x", &code) != 1 ||
            line.name != code_name(code) || !line.preferred) {
            continue;
        }
        const bool letter = code < 0x80 && ((code | 0x20) - 'a' < 26);
        if (letter) added.push_back({line.bytes, std::string(1, char(code)), true});
        for (const portable_name &known : portable_names) {
            if (known.code == code) added.push_back({line.bytes, known.name, true});
        }
    }
    set.lines.insert(set.lines.begin(), added.begin(), added.end());
}

static bool usable_name(const std::string &name) {
    return !name.empty() && name.size() <= symbol_name_limit &&
           std::none_of(name.begin(), name.end(), [](char c) {
               return c == ' ' || c == '>' || (c >= '\t' && c <= '\r') || !c;
           });
}

// Orders the names so that text written with a character's first name comes back as that character:
// names that also stand for other bytes come last, and a character that has no other name gets one
// made of its bytes.
static void order_names(symbol_set &set, diagnostics &diag) {
    std::unordered_map<std::string, char_bytes> owner;
    std::erase_if(set.lines, [&diag](const symbol_line &line) {
        if (usable_name(line.name)) return false;
        warning(diag, {},
                format("the name \"%s\" cannot be stored in an object and is left out",
                       line.name.c_str()));
        return true;
    });
    std::stable_sort(
        set.lines.begin(), set.lines.end(),
        [](const symbol_line &a, const symbol_line &b) { return a.preferred && !b.preferred; });
    std::erase_if(set.lines, [&owner](const symbol_line &line) {
        const auto [known, added] = owner.emplace(line.name, line.bytes);
        return !added && known->second == line.bytes;
    });
    std::vector<symbol_line> named;
    std::map<char_bytes, bool> has_own;
    for (symbol_line &line : set.lines) {
        bool &own = has_own[line.bytes];
        const bool owns = owner.at(line.name) == line.bytes;
        own = own || owns;
        if (owns) named.push_back(std::move(line));
    }
    for (const auto &[bytes, own] : has_own) {
        if (!own) named.push_back({bytes, format("x%0*x", 2 * bytes.len, bytes.value), true});
    }
    std::stable_sort(named.begin(), named.end(),
                     [](const symbol_line &a, const symbol_line &b) { return a.bytes < b.bytes; });
    set.lines = std::move(named);
}

// ---- records ----

static void put_bytes(std::string &text, char_bytes bytes) {
    text += format(" %d", int(bytes.len));
    for (int i = bytes.len; i-- > 0;)
        text += format(" %02x", unsigned(bytes.value >> 8 * i & 0xFF));
    text += '\n';
}

namespace {
struct numbered_name {
    size_t stem = 0;
    int64_t number = -1; // -1: no digits, or more than an int holds
};
} // namespace
static numbered_name split_digits(const std::string &name) {
    numbered_name split{.stem = name.size()};
    while (split.stem > 0 && name[split.stem - 1] >= '0' && name[split.stem - 1] <= '9')
        --split.stem;
    if (split.stem == name.size() || name.size() - split.stem > 9) return split;
    split.number = std::stoll(name.substr(split.stem));
    return split;
}

// The number of characters from lines[first] on whose names and bytes both count up. A character
// with several names stays single, since single names take precedence over those of ranges.
static size_t run_length(const std::vector<symbol_line> &lines, size_t first) {
    const numbered_name start = split_digits(lines[first].name);
    const auto alone = [&lines](size_t i) {
        return (i == 0 || lines[i - 1].bytes != lines[i].bytes) &&
               (i + 1 == lines.size() || lines[i + 1].bytes != lines[i].bytes);
    };
    if (start.number < 0 || !alone(first)) return 1;
    size_t n = 1;
    for (; first + n < lines.size() && alone(first + n); ++n) {
        const symbol_line &line = lines[first + n];
        const numbered_name next = split_digits(line.name);
        if (next.number != start.number + int64_t(n) || next.stem != start.stem ||
            line.name.size() != lines[first].name.size() ||
            line.name.compare(0, next.stem, lines[first].name, 0, start.stem) != 0 ||
            line.bytes.len != lines[first].bytes.len ||
            line.bytes.value != lines[first].bytes.value + n) {
            break;
        }
    }
    return n;
}

static std::string record_text(const symbol_set &set) {
    std::string text;
    for (size_t i = 0; i < set.lines.size();) {
        const symbol_line &line = set.lines[i];
        const size_t n = run_length(set.lines, i);
        text += n > 1 ? format("r 0 %s %lld %zu", line.name.c_str(),
                               static_cast<long long>(split_digits(line.name).number), n)
                      : "s 0 " + line.name;
        put_bytes(text, line.bytes);
        i += n;
    }
    return text;
}

static std::string object_text(const symbol_set &set) {
    const std::string records = record_text(set);
    std::vector<std::string> header = {"FILE_TYPE=charmap_object",
                                       "COMPILER_VERSION=3",
                                       set.license.empty() ? "HEADER_LENGTH=8" : "HEADER_LENGTH=9",
                                       "CODESET=" + set.name.substr(0, codeset_name_limit),
                                       "SOURCE_VERSION=1",
                                       "SOURCE=" + set.origin.substr(0, 100),
                                       "COMPILER=kovac 2.86",
                                       unsealed_content};
    if (!set.license.empty()) header.push_back(set.license);
    std::string text;
    for (const std::string &line : header)
        text += kovatool::printable(line) + '\n';
    return text + "END_HEADER\n" + records;
}

// ---- proof ----

static std::string escaped(const std::string &name) {
    std::string symbol = "<";
    for (char c : name) {
        if (c == '<' || c == '\\') symbol += '\\';
        symbol += c;
    }
    return symbol + '>';
}

// Proves that a name gives its bytes, and the bytes one of their own names.
static bool prove_line(ko_cm_t cm, const symbol_line &line) {
    ko_mchar_t bytes[8], back[8];
    for (int i = 0; i < line.bytes.len; ++i)
        bytes[i] = ko_mchar_t(line.bytes.value >> 8 * (line.bytes.len - 1 - i));
    const auto reads_as_bytes = [&](const std::string &symbol) {
        const char *from = symbol.c_str();
        return ko_symstombs(cm, back, sizeof back, &from) > line.bytes.len &&
               memcmp(back, bytes, line.bytes.len) == 0;
    };
    char symbol[256];
    const ko_mchar_t *at = bytes;
    return reads_as_bytes(escaped(line.name)) &&
           ko_mbstosyms(cm, symbol, sizeof symbol, &at, line.bytes.len) > 1 &&
           reads_as_bytes(symbol);
}

static bool prove(const symbol_set &set, const std::string &path, diagnostics &diag) {
    const size_t slash = path.rfind('/');
    ko_cm_t cm = nullptr;
    bool proved = ko_cm_load(&cm, path.substr(slash + 1).c_str(), nullptr,
                             path.substr(0, slash).c_str()) == 0;
    if (!proved) error(diag, {}, "the object does not load");
    for (size_t i = 0; proved && i < set.lines.size(); ++i) {
        proved = prove_line(cm, set.lines[i]);
        if (!proved) {
            error(diag, {},
                  format("the name \"%s\" does not come back", set.lines[i].name.c_str()));
        }
    }
    ko_cm_unload(cm);
    return proved;
}

// Writes the object beside its place, where it stays until it is proved.
static convert_status write_proved(const symbol_set &set, const std::string &path,
                                   diagnostics &diag) {
    std::string why;
    const write_result result =
        write_text(path, object_text(set), &why,
                   [&](const std::string &beside) { return prove(set, beside, diag); });
    if (result == write_result::done) return convert_status::done;
    if (result == write_result::unproved) return convert_status::source;
    error(diag, {}, "cannot write " + path + ": " + why);
    return convert_status::file;
}

// ---- one code set ----

static convert_status read_numbers(const std::string &path, registry &numbers, diagnostics &diag) {
    std::string text, why;
    int line = 0;
    if (!read_whole(path, text)) {
        error(diag, {}, "cannot read registry " + path);
        return convert_status::file;
    }
    if (parse_registry(text, numbers, &line, &why)) return convert_status::done;
    error(diag, {}, path + ":" + std::to_string(line) + ": " + why);
    return convert_status::source;
}

static convert_status collect(const symbols_options &opt,
                              const std::vector<std::string> &charmap_dirs, diagnostics &diag,
                              symbol_set &set) {
    registry numbers;
    if (!opt.registry_file.empty()) {
        const convert_status status = read_numbers(opt.registry_file, numbers, diag);
        if (status != convert_status::done) return status;
    }
    const bool has_charmap =
        opt.charmap == "unicode" || !find_file(charmap_dirs, opt.charmap).empty();
    if (has_charmap) {
        if (!from_charmap(charmap_dirs, opt.charmap, diag, set)) return convert_status::source;
    } else {
        const convert_status status = from_set(charmap_dirs, opt.charmap, &numbers, diag, set);
        if (status != convert_status::done) return status;
    }
    for (const std::string &name : {set.name, opt.charmap}) {
        if (set.number == no_number) set.number = find_name(numbers, name);
        if (set.number == no_number) set.number = find_code_set(name);
    }
    if (set.number != no_number) return convert_status::done;
    error(diag, {}, "code set \"" + set.name + "\" has no number; give a registry with --registry");
    return convert_status::usage;
}

convert_status compile_symbols(const symbols_options &opt,
                               const std::vector<std::string> &charmap_dirs, diagnostics &diag) {
    symbol_set set;
    const convert_status status = collect(opt, charmap_dirs, diag, set);
    if (status != convert_status::done) return status;
    if (opt.names == "posix") add_portable_names(set);
    order_names(set, diag);
    const std::string path = opt.root + format("/kova/cm3/%04x.cmo", unsigned(set.number));
    const convert_status written = write_proved(set, path, diag);
    if (written == convert_status::done && opt.verbose) {
        fprintf(stderr, "%s: %zu names\n", kovatool::printable(path).c_str(), set.lines.size());
    }
    return written;
}

} // namespace kovac
