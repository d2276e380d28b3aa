// Writes the sections of a locale object, and text files in general.
#include "kovac/kovac_write.h"
#include "kovac/kovac_pack.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "common/tool_file.h"
#include "common/tool_path.h"
#include "kova_host.h"

namespace kovac {

namespace fs = std::filesystem;
using table = std::unique_ptr<void, void (*)(void *)>;

// ---- look-up tables ----

static int print_item(void *stream, const void *item) {
    uint16_t value;
    memcpy(&value, item, sizeof value);
    return fprintf(static_cast<FILE *>(stream), "%04x", unsigned(value)) == 4 ? 0 : -1;
}

// A compressed table of every character in the code set with its 16-bit item; null without memory.
template <class Item> static table make_table(const charmap &map, Item item_of) {
    const uint16_t none = 0;
    table multi(create_multi(sizeof none, 0, &none), free_multi);
    for (size_t i = 0; multi && i < map.chars.size(); ++i) {
        const charmap_char &c = map.chars[i];
        char_desc desc{.length = c.len, .bytes = {}};
        desc.bytes[0] = uint8_t(c.len == 2 ? c.wide >> 8 : c.wide);
        desc.bytes[1] = uint8_t(c.wide);
        const uint16_t item = item_of(i);
        if (insert_desc_multi(&desc, item ? &item : nullptr, multi.get()) != 0) multi.reset();
    }
    if (multi && compress_multi(multi.get()) != 0) multi.reset();
    return multi;
}

// ---- sections ----

// Writes the length, then the bytes as hexadecimal digits.
static void put_string(FILE *out, const std::string &bytes) {
    fprintf(out, "%zu", bytes.size());
    if (!bytes.empty()) fputc(' ', out);
    for (char c : bytes)
        fprintf(out, "%02x", unsigned(uint8_t(c)));
    fputc('\n', out);
}

static void put_strings(FILE *out, const std::vector<std::string> &strings) {
    for (const std::string &s : strings)
        put_string(out, s);
}

static void put_counted(FILE *out, const std::vector<std::string> &strings) {
    fprintf(out, "%zu\n", strings.size());
    put_strings(out, strings);
}

static void put_grouping(FILE *out, const std::vector<int> &sizes) {
    fprintf(out, "%zu", sizes.size());
    for (int size : sizes)
        fprintf(out, " %d", size);
    fputc('\n', out);
}

static void put_wide(FILE *out, const std::vector<uint16_t> &chars) {
    for (uint16_t c : chars)
        fprintf(out, " %08x", unsigned(c));
    fputc('\n', out);
}

static bool put_ctype(FILE *out, const ctype_section &s, const charmap &map) {
    const table masks = make_table(map, [&s](size_t i) { return s.masks[i]; });
    const table cases = make_table(map, [&s](size_t i) { return s.case_index[i]; });
    if (!masks || !cases) return false;
    fputs("### LC_CTYPE\n", out);
    fprintf_multi(out, masks.get(), print_item);
    fprintf(out, "%zu\n", s.classes.size());
    for (const user_class &c : s.classes)
        fprintf(out, "%d %s\n", c.bit, c.name.c_str());
    fprintf_multi(out, cases.get(), print_item);
    fprintf(out, "%zu", s.pairs.size() - 1);
    for (size_t i = 1; i < s.pairs.size(); ++i) {
        fprintf(out, "\n%08x %08x", unsigned(s.pairs[i].first), unsigned(s.pairs[i].second));
    }
    // The ratio of two lengths of one or two bytes: 1, or 2 if a character doubles.
    fprintf(out, " %.1f\n", std::ceil(s.case_ratio * 10) / 10);
    return true;
}

static bool put_collate(FILE *out, const collation &s, const charmap &map) {
    if (s.by_thai) return fputs("### LC_COLLATE\nthai_smo\n", out) >= 0;
    const table rows = make_table(map, [&s, &map](size_t i) {
        const auto found = s.rows.find(map.chars[i].wide);
        return found == s.rows.end() ? uint16_t(0) : found->second;
    });
    if (!rows) return false;
    fputs("### LC_COLLATE\nas_specified\n", out);
    fprintf_multi(out, rows.get(), print_item);
    fprintf(out, "%d %d %zu %zu %zu %d\n", s.codeset_order ? 1 : 0, s.num_rows, s.pass_types.size(),
            s.elements.size(), s.expansions.size(), s.num_weights);
    for (int type : s.pass_types)
        fprintf(out, "%04x", unsigned(type));
    fputc('\n', out);
    for (const collation_element &e : s.elements) {
        fprintf(out, "%zx%04x", e.chars.size(), unsigned(e.row));
        put_wide(out, e.chars);
    }
    for (const std::vector<uint16_t> &e : s.expansions) {
        fprintf(out, "%zx", e.size());
        put_wide(out, e);
    }
    for (const std::vector<uint16_t> &row : s.weights) {
        for (size_t pass = 0; pass < row.size(); ++pass) {
            fprintf(out, pass ? " %04x" : "%04x", unsigned(row[pass]));
        }
        fputc('\n', out);
    }
    return true;
}

static void put_numeric(FILE *out, const numeric_section &s) {
    fputs("### LC_NUMERIC\n", out);
    put_string(out, s.decimal_point);
    put_string(out, s.thousands_sep);
    put_grouping(out, s.grouping);
    put_string(out, s.positive_sign);
    put_string(out, s.negative_sign);
}

static void put_monetary(FILE *out, const monetary_section &s) {
    fputs("### LC_MONETARY\n", out);
    put_strings(out, {s.int_curr_symbol, s.currency_symbol, s.decimal_point, s.thousands_sep});
    put_grouping(out, s.grouping);
    put_string(out, s.positive_sign);
    put_string(out, s.negative_sign);
    for (int number : s.numbers)
        fprintf(out, "%d\n", number);
}

static void put_time(FILE *out, const time_section &s) {
    fprintf(out, "### LC_TIME\n%s\n", s.calendar.c_str());
    put_strings(out, s.abday);
    put_strings(out, s.day);
    put_counted(out, s.abmon);
    put_counted(out, s.mon);
    put_strings(out, {s.d_t_fmt, s.d_fmt, s.t_fmt, s.am_pm[0], s.am_pm[1], s.t_fmt_ampm});
    put_counted(out, s.era);
    put_strings(out, {s.era_d_fmt, s.era_t_fmt, s.era_d_t_fmt});
    put_counted(out, s.alt_digits);
}

static void put_messages(FILE *out, const messages_section &s) {
    fputs("### LC_MESSAGES\n", out);
    put_strings(out, {s.yesexpr, s.noexpr, s.yesstr, s.nostr});
}

static void put_header(FILE *out, const locale_object &object) {
    fputs("FILE_TYPE=locale_object\nCOMPILER_VERSION=11\n", out);
    fprintf(out, "HEADER_LINES=%zu\n", object.description.size() + 3);
    for (const std::string &line : object.description)
        fprintf(out, "%s\n", line.c_str());
    fprintf(out, "%s\n", object.codeset.c_str());
}

static bool put_object(FILE *out, const locale_object &object, const charmap &map) {
    put_header(out, object);
    if (!put_ctype(out, object.ctype, map) || !put_collate(out, object.collate, map)) return false;
    put_numeric(out, object.numeric);
    put_monetary(out, object.monetary);
    put_time(out, object.time);
    put_messages(out, object.messages);
    return true;
}

// ---- files ----

static bool read_back(const std::string &path, std::string &bytes) {
    std::error_code error;
    const uintmax_t size = fs::file_size(kovatool::to_path(path), error);
    if (error) return false;
    std::ifstream in(kovatool::to_path(path), std::ios::binary);
    bytes.resize(size_t(size));
    return bool(in.read(bytes.data(), std::streamsize(size)));
}

// Stores the hash of what has been written in its header.
static bool seal(FILE *stream, const std::string &path) {
    std::string bytes;
    uint64_t content = 0;
    if (fflush(stream) != 0 || !read_back(path, bytes)) return false;
    const size_t line = bytes.find(std::string("\n") + unsealed_content + "\n");
    ko_verify_object(bytes.data(), bytes.size(), &content);
    if (line == std::string::npos || content == 0) return true; // a file without a header
    const long digits = long(line + strlen("\nCONTENT="));
    if (fseek(stream, digits, SEEK_SET) != 0) return false;
    fprintf(stream, "%016llx", static_cast<unsigned long long>(content));
    return fflush(stream) == 0 && fseek(stream, 0, SEEK_END) == 0;
}

namespace {
// A file that is not finished when an exception comes must not stay.
struct discarded {
    kovatool::replacement file;
    discarded() = default;
    discarded(const discarded &) = delete;
    ~discarded() { discard_replacement(file); } // nothing is left of a finished one
};
} // namespace

write_result write_file(const std::string &path, std::string *why,
                        const std::function<bool(FILE *)> &put, const trial &prove) {
    std::error_code failed;
    const fs::path target(path);
    discarded guard;
    kovatool::replacement &file = guard.file;
    if (target.has_parent_path()) fs::create_directories(target.parent_path(), failed);
    if (failed || !open_replacement(path, kovatool::link_in_place::replaced, file)) {
        *why = failed ? failed.message() : strerror(errno);
        return write_result::io;
    }
    write_result result = write_result::done;
    errno = 0;
    const bool put_all = put(file.stream);
    const bool written =
        !ferror(file.stream) && seal(file.stream, file.beside) && sync_replacement(file);
    *why = strerror(errno ? errno : EIO);
    if (!put_all && !ferror(file.stream)) {
        result = write_result::no_memory;
    } else if (!put_all || !written) {
        result = write_result::io;
    } else if (prove && !prove(file.beside)) {
        result = write_result::unproved;
    }
    if (result != write_result::done) {
        discard_replacement(file);
        return result;
    }
    if (commit_replacement(file)) {
        note_file(path);
        return write_result::done;
    }
    *why = strerror(errno);
    return write_result::io;
}

write_result link_file(const std::string &existing, const std::string &path, std::string *why) {
    if (kovatool::link_in_one_step(existing, path)) {
        note_file(path);
        return write_result::done;
    }
    *why = strerror(errno);
    return write_result::io;
}

write_result write_locale(const std::string &path, const locale_object &object, const charmap &map,
                          std::string *why, const trial &prove) {
    return write_file(
        path, why, [&](FILE *out) { return put_object(out, object, map); }, prove);
}

write_result write_text(const std::string &path, const std::string &text, std::string *why,
                        const trial &prove) {
    return write_file(
        path, why,
        [&text](FILE *out) { return fwrite(text.data(), 1, text.size(), out) == text.size(); },
        prove);
}

} // namespace kovac
