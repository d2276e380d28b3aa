// The conversion object of a pair of code sets: entries, tables, figures, proof and files.
#include "kovac/kovac_convert.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "common/tool_text.h"
#include "kova.h"
#include "kovac/kovac_license.h"
#include "kovac/kovac_write.h"

namespace kovac {

static std::string hex(char_bytes bytes) {
    return bytes.len ? format("%0*x", bytes.len * 2, unsigned(bytes.value)) : "-";
}

// ---- entries ----

// Do both byte sequences stand for the code point, and the code point for them, without any
// fallback?
static bool is_exact(const conv_set &from, const conv_set &to, const conv_entry &e) {
    return code_of(to, e.target) == e.code && bytes_of(from, e.code) == e.source;
}

static void add_entry(conv_object &object, char_bytes source, uint32_t code,
                      char_bytes substitute) {
    char_bytes target = bytes_of(*object.to, code);
    if (!target.len) {
        object.unmapped.emplace_back(source, code);
        target = substitute;
    }
    if (!target.len) return;
    conv_entry entry{source, target, 0, code};
    unsigned flags = is_exact(*object.from, *object.to, entry) ? 0 : entry_substitute;
    if (code == 0) flags |= entry_terminator;
    if (target.shifted) flags |= entry_shifted;
    if (!flags) flags = entry_plain;
    entry.flags = uint8_t(flags);
    object.entries.push_back(entry);
}

// Adds the shift codes, which convert to nothing. A shift-in byte in the unshifted state is
// skipped.
static void add_shift_codes(conv_object &object) {
    const conv_set &from = *object.from;
    object.entries.push_back({
        {false,           1, from.shift_out},
        {              },
        entry_shift_code, no_code
    });
    object.entries.push_back({
        {false,          1, from.shift_in},
        {             },
        entry_plain, no_code
    });
    object.entries.push_back({
        {true,           1, from.shift_in},
        {             },
        entry_shift_code, no_code
    });
}

// If all characters are single bytes, a byte without a character gets the substitute, too.
static void add_undefined_bytes(conv_object &object, char_bytes substitute) {
    const conv_set &from = *object.from;
    const bool bytes_only =
        from.form == set_form::listed && !from.stateful && from.codes.rbegin()->first.len == 1;
    for (uint32_t b = 0; bytes_only && b < 256; ++b) {
        const char_bytes source{false, 1, b};
        if (from.codes.count(source)) continue;
        unsigned flags = entry_substitute;
        if (substitute.shifted) flags |= entry_shifted;
        object.entries.push_back({source, substitute, uint8_t(flags), no_code});
    }
}

// ---- figures ----

static void widen(int &min, int &max, int len) {
    min = min ? std::min(min, len) : len;
    max = std::max(max, len);
}

// The most bytes that an entry writes in one call: a character of the shifted state may enter and
// leave that state; any other, and a shift code of the source, may leave it.
static int most_written(const conv_set &to, const conv_entry &e) {
    const int codes = !to.stateful ? 0 : e.target.shifted ? 2 : 1;
    return e.target.len + codes;
}

static float rounded_up(double ratio) {
    const float nearest = float(ratio);
    return double(nearest) < ratio ? std::nextafterf(nearest, 1e9f) : nearest;
}

static void count_figures(conv_object &object) {
    double ratio = 0;
    size_t plain_bytes = 0;
    for (const conv_entry &e : object.entries) {
        ratio = std::max(ratio, double(most_written(*object.to, e)) / e.source.len);
        if (!(e.flags & entry_substitute) && e.source.len == 1 && e.target.len == 1) ++plain_bytes;
        if (e.code == no_code && !e.target.len) continue; // a shift code is not a character
        widen(e.source.shifted ? object.shift_min : object.noshift_min,
              e.source.shifted ? object.shift_max : object.noshift_max, e.source.len);
        widen(object.target_min, object.target_max, e.target.len);
    }
    object.ratio = rounded_up(ratio);
    object.checks = object.from->stateful || object.to->stateful || object.noshift_max != 1 ||
                    object.target_max != 1 || plain_bytes != 256;
}

// ---- tables ----

static void fill_bytes(unsigned char *to, char_bytes bytes) {
    for (unsigned i = 0; i < bytes.len; ++i)
        to[i] = uint8_t(bytes.value >> 8 * (bytes.len - 1u - i));
}

static char_desc description(char_bytes bytes) {
    char_desc desc{.length = bytes.len, .bytes = {}};
    fill_bytes(desc.bytes, bytes);
    return desc;
}

// The character with which another one begins, so that no table can hold both; len 0 if none does.
static char_bytes beginning(const conv_set &set, char_bytes bytes) {
    while (bytes.len > 1) {
        --bytes.len;
        bytes.value >>= 8;
        if (set.codes.contains(bytes)) return bytes;
    }
    return {};
}

static bool add_to_table(const conv_object &object, const conv_entry &e, diagnostics &diag) {
    unsigned char item[1 + max_char_bytes] = {uint8_t(e.flags | e.target.len)};
    fill_bytes(item + 1, e.target);
    const char_desc desc = description(e.source);
    void *table = (e.source.shifted ? object.shift : object.noshift).get();
    if (insert_desc_multi(&desc, item, table) == 0) return true;
    const char_bytes start = beginning(*object.from, e.source);
    if (start.len) {
        error(diag, {},
              format("%s: the character %s begins with the character %s",
                     object.from->origin.c_str(), hex(e.source).c_str(), hex(start).c_str()));
    } else {
        error(diag, {}, "out of memory");
    }
    return false;
}

static bool make_tables(conv_object &object, diagnostics &diag) {
    static const unsigned char unmapped[1 + max_char_bytes] = {};
    const unsigned size = unsigned(object.target_max) + 1;
    object.noshift = conv_table(create_multi(size, 0, unmapped), free_multi);
    object.shift =
        conv_table(object.from->stateful ? create_multi(size, 0, unmapped) : nullptr, free_multi);
    bool made = object.noshift && (object.shift || !object.from->stateful);
    if (!made) error(diag, {}, "out of memory");
    for (const conv_entry &e : object.entries)
        made = made && add_to_table(object, e, diag);
    progress shown{"compressing the table of " + object.from->names.front() + " to " +
                   object.to->names.front()};
    constexpr size_t long_table = 100000; // entries, which take seconds
    if (object.entries.size() > long_table) begin_progress(shown);
    made = made && compress_multi(object.noshift.get()) == 0 &&
           compress_multi(object.shift.get()) == 0;
    end_progress(shown);
    return made;
}

bool make_object(const conv_set &from, const conv_set &to, char_bytes substitute, diagnostics &diag,
                 conv_object &object) {
    object.from = &from;
    object.to = &to;
    if (substitute.len && code_of(to, substitute) == no_code) {
        error(diag, {},
              format("the substitute %s is not a character of %s", hex(substitute).c_str(),
                     to.origin.c_str()));
        return false;
    }
    for (const auto &[bytes, code] : from.codes)
        add_entry(object, bytes, code, substitute);
    const auto &built_in = from.built_in;
    object.entries.reserve(size_t(std::count(built_in.begin(), built_in.end(), true)));
    for (uint32_t code = 0; code < built_in.size(); ++code)
        if (built_in[code]) add_entry(object, bytes_of(from, code), code, substitute);
    if (substitute.len) add_undefined_bytes(object, substitute);
    if (from.stateful) add_shift_codes(object);
    std::stable_sort(object.entries.begin(), object.entries.end(),
                     [](const conv_entry &a, const conv_entry &b) { return a.source < b.source; });
    count_figures(object);
    return make_tables(object, diag);
}

// ---- proof ----

static const unsigned char *find_item(const conv_object &object, char_bytes source) {
    void *table = (source.shifted ? object.shift : object.noshift).get();
    const char_desc desc = description(source);
    return table ? static_cast<const unsigned char *>(retrieve_desc_multi(&desc, table)) : nullptr;
}

char_bytes convert_char(const conv_object &object, char_bytes source) {
    const unsigned char *item = find_item(object, source);
    char_bytes out;
    if (!item) return out;
    out.len = item[0] & 7;
    out.shifted = (item[0] & entry_shifted) != 0;
    for (unsigned i = 0; i < out.len; ++i)
        out.value = out.value << 8 | item[1 + i];
    return out;
}

bool prove_round_trips(const conv_object &forth, const conv_object &back, diagnostics &diag,
                       std::vector<std::string> *lines) {
    for (const conv_entry &e : forth.entries) {
        if (e.code == no_code) continue;
        const unsigned char *item = find_item(forth, e.source);
        const char_bytes target = convert_char(forth, e.source);
        const char_bytes returned = convert_char(back, target);
        const bool flagged = item && (item[0] & entry_substitute) != 0;
        if (target != e.target || (!flagged && returned != e.source)) {
            error(diag, {},
                  format("%s to %s: %s gives %s and that gives %s, contrary to its flags %02x",
                         forth.from->origin.c_str(), forth.to->origin.c_str(),
                         hex(e.source).c_str(), hex(target).c_str(), hex(returned).c_str(),
                         unsigned(e.flags)));
            return false;
        }
        if (!flagged || !lines) continue;
        lines->push_back(format(
            "%s\t%s\tU+%04X\t%s\t%s", returned == e.source ? "substitution" : "irreversible",
            hex(e.source).c_str(), unsigned(e.code), hex(target).c_str(), hex(returned).c_str()));
    }
    return true;
}

// ---- files ----

static int print_entry(void *stream, const void *item) {
    const auto *bytes = static_cast<const unsigned char *>(item);
    FILE *out = static_cast<FILE *>(stream);
    for (unsigned i = 0; i <= (bytes[0] & 7u); ++i) {
        if (fprintf(out, "%02x", unsigned(bytes[i])) != 2) return -1;
    }
    return 0;
}

static void put_header(FILE *out, const conv_object &object) {
    std::vector<std::string> lines = {"FROM=" + object.from->origin, "TO=" + object.to->origin,
                                      "COMPILER=kovac 2.86", unsealed_content};
    for (const conv_set *set : {object.from, object.to}) {
        const std::string license = codeset_license(set->origin);
        if (!license.empty() && lines.back() != license) lines.push_back(license);
    }
    fprintf(out, "FILE_TYPE=codeset_conversion_object\nCOMPILER_VERSION=9\nHEADER_LENGTH=%zu\n",
            lines.size() + 3);
    for (const std::string &line : lines)
        fprintf(out, "%.*s\n", int(header_limit), kovatool::printable(line).c_str());
}

static void put_shift(FILE *out, bool stateful, unsigned code) {
    if (stateful) {
        fprintf(out, "1%02x", code);
    } else {
        fputc('0', out);
    }
}

static bool put_object(FILE *out, const conv_object &o) {
    const conv_set &from = *o.from, &to = *o.to;
    put_header(out, o);
    fprintf(out, "%d %d\n", from.stateful ? 1 : 0, to.stateful ? 1 : 0);
    put_shift(out, to.stateful, to.shift_out);
    put_shift(out, to.stateful, to.shift_in);
    put_shift(out, from.stateful, from.shift_out);
    put_shift(out, from.stateful, from.shift_in);
    fprintf(out, "\n%d %d %d %d %d %d %d\n%.9g\n", o.target_min, o.target_max, o.shift_min,
            o.shift_max, o.noshift_min, o.noshift_max, o.checks ? 1 : 0, double(o.ratio));
    if (fprintf_multi(out, o.noshift.get(), print_entry) != 0) return false;
    return !o.shift || fprintf_multi(out, o.shift.get(), print_entry) == 0;
}

convert_status write_object_files(const std::string &root, const conv_object &object,
                                  diagnostics &diag, std::string *path) {
    const std::string dir = root + "/kova/cv9/";
    std::vector<std::string> names;
    if (object.from->number != no_number && object.to->number != no_number) {
        names.push_back(
            format("%04x%04x", unsigned(object.from->number), unsigned(object.to->number)));
    }
    for (const std::string &from : object.from->names) {
        for (const std::string &to : object.to->names)
            names.push_back(from + "_" + to);
    }
    *path = dir + names.front() + ".cvo";
    std::string why;
    write_result result =
        write_file(*path, &why, [&object](FILE *out) { return put_object(out, object); });
    std::string failed = *path;
    for (size_t i = 1; i < names.size() && result == write_result::done; ++i) {
        failed = dir + names[i] + ".cvo";
        result = link_file(*path, failed, &why);
    }
    if (result == write_result::done) return convert_status::done;
    if (result == write_result::no_memory) why = "out of memory";
    error(diag, {}, format("cannot write %s: %s", failed.c_str(), why.c_str()));
    return convert_status::file;
}

} // namespace kovac
