// Reads locale objects: the header, and the sections of all categories into a record.
#include "chars/kovambwc.h"
#include "collate/kovacoll.h"
#include "load/kovasetlc_load.h"
#include "time/kovatmlib.h"

#include <math.h>
#include <string.h>

constexpr int line_bound = object_header_bound;
constexpr int marker_bound = 31;
constexpr int max_char_bytes = 2; // of the code sets that a locale can have
constexpr size_t string_end = 4;  // zero bytes after every string
constexpr int class_name_room = 72;

// ---- Strings ------------------------------------------------------------------------------------

static ko_mchar_t *new_string(size_t len) {
    ko_mchar_t *s = static_cast<ko_mchar_t *>(ko_ext_malloc(len + string_end));
    if (s) memset(s + len, 0, string_end);
    return s;
}

static ko_mchar_t *read_hex_memory(text_in *in, size_t len) {
    if (size_t(in->end - in->pos) / 2 < len) { // this ends the reading
        in->pos = in->end;
        in->ended = in->cut = true;
        return nullptr;
    }
    const unsigned char *hex = in->pos;
    in->pos += 2 * len;
    ko_mchar_t *s = new_string(len);
    for (size_t i = 0; s && i < len; i++) {
        s[i] = ko_mchar_t(hex_digit_or_0(hex[2 * i]) << 4 | hex_digit_or_0(hex[2 * i + 1]));
    }
    return s;
}

// Makes room for one more entry in an array whose stated size is not trusted: it grows with what
// the file actually holds. False without memory, with the array as it was.
template <class T> static bool make_room(T **array, size_t used, size_t count, size_t *room) {
    if (used < *room) return true;
    size_t more = *room ? *room * 2 : 64;
    if (more > count) more = count;
    T *block = static_cast<T *>(ko_ext_malloc(more * sizeof(T)));
    if (!block) return false;
    if (used) memcpy(block, *array, used * sizeof(T));
    free_ptr(*array);
    *array = block;
    *room = more;
    return true;
}

// A string is read even if there is no memory for it, so that the next field is found.
static ko_mchar_t *read_hex_stream(text_in *in, size_t len) {
    ko_mchar_t *s = nullptr;
    size_t room = 0;
    bool kept = true;
    for (size_t i = 0; i < len + string_end; i++) {
        const ko_mchar_t byte = i < len ? ko_mchar_t(get_hex_byte(in)) : 0;
        if (i < len && in->ended) in->cut = true;
        if (in->cut) kept = false;
        kept = kept && make_room(&s, i, len + string_end, &room);
        if (kept) s[i] = byte;
        if (in->cut) break;
    }
    if (kept) return s;
    free_ptr(s);
    return nullptr;
}

// Reads a length, a space and the bytes in hexadecimal. NULL where the file ends, where there is no
// space (the next field is then read from that place), or without memory.
static ko_mchar_t *read_string(text_in *in) {
    const int len = get_int(in);
    if (in->cut) return nullptr;
    if (len > 0 && in_getc(in) != ' ') {
        in->cut = in->ended;
        return nullptr;
    }
    const size_t bytes = len > 0 ? size_t(len) : 0;
    ko_mchar_t *s = in->stream ? read_hex_stream(in, bytes) : read_hex_memory(in, bytes);
    skip_whitespace(in);
    return s;
}

static int read_count(text_in *in) {
    const int count = get_int(in);
    return count < 0 ? 0 : count;
}

// Reads a count, white space and that many strings. *read gets the number of strings that the file
// actually holds. False without memory.
static bool read_strings(text_in *in, ko_mchar_t ***strings, int *read) {
    const int count = read_count(in);
    size_t room = 0;
    skip_whitespace(in);
    for (*read = 0; *read < count && !in->ended; ++*read) {
        const size_t used = size_t(*read);
        if (!make_room(strings, used, size_t(count), &room)) return false;
        (*strings)[used] = read_string(in);
    }
    if (*read < count) in->cut = true;
    return true;
}

// ---- Header -------------------------------------------------------------------------------------

int read_file_header(text_in *in, char *codeset, object_facts *facts, int *error) {
    char line[line_bound + 1];
    in_header_line(in, line, line_bound);
    if (strcmp(line, "FILE_TYPE=locale_object")) {
        *error = KO_EOBJECT;
        return 0;
    }
    in_header_line(in, line, line_bound);
    if (strcmp(line, "COMPILER_VERSION=11")) {
        *error = KO_EVERSION;
        return 0;
    }
    in_header_line(in, line, line_bound);
    const int lines = header_number(line);
    for (int i = 3; i < lines && in_header_line(in, line, line_bound); i++)
        note_object_line(facts, line);
    skip_whitespace(in);
    in_header_line(in, codeset, codeset_room - 1);
    return 1;
}

// ---- LC_CTYPE -----------------------------------------------------------------------------------

static int read_table(text_in *in, kovaloc *loc, void *table) {
    if (!read_multi_ub2(in, static_cast<mb_decode *>(table), max_char_bytes)) return 0;
    const int error = multi_err(table);
    return fail(loc, error ? error : KO_ENOMEM, -1);
}

static int read_user_bits(text_in *in, kovaloc *loc) {
    const int count = read_count(in);
    size_t room = 0;
    for (int i = 0; i < count && !in->ended; i++) {
        if (!make_room(&loc->user_bits, size_t(i), size_t(count), &room)) {
            return fail(loc, KO_ENOMEM, -1);
        }
        char name[class_name_room];
        skip_whitespace(in);
        const int bitpos = get_int(in);
        skip_whitespace(in);
        get_str(in, name, class_name_room - 1);
        loc->user_bits[i] = {unsigned(bitpos), copy_string(name)};
        loc->num_user_bits = i + 1;
        if (!loc->user_bits[i].name) return fail(loc, KO_ENOMEM, -1);
    }
    if (loc->num_user_bits < count) in->cut = true;
    return 0;
}

static int read_case_pairs(text_in *in, kovaloc *loc) {
    const size_t count = size_t(read_count(in));
    size_t room = 0;
    for (size_t i = 0; i <= count && !in->ended; i++) {
        if (!make_room(&loc->cconv_arr, i, count + 1, &room)) return fail(loc, KO_ENOMEM, -1);
        loc->cconv_arr[i] = {};
        if (!i) continue; // pairs are numbered from 1
        loc->cconv_arr[i].upper = read_ko_wchar(in);
        loc->cconv_arr[i].lower = read_ko_wchar(in);
        loc->num_conv_elems = int(i);
        if (in->ended) in->cut = true; // inside a partner
    }
    if (size_t(loc->num_conv_elems) < count) in->cut = true;
    return 0;
}

// Reads the rest of the line after the case pairs: the growth of a string under case mapping.
static double read_case_ratio(text_in *in) {
    char line[line_bound + 1];
    in_gets(in, line, line_bound);
    const char *text = line, *end;
    while (is_white(*text))
        text++;
    const double ratio = c_strtod(text, &end);
    return end == text || !isfinite(ratio) ? 2.0 : ratio;
}

// The growth that the pairs cause: 2 if a character of one byte has a partner of two.
static double growth_of_pairs(const kovaloc *loc) {
    const auto *cases = static_cast<const mb_decode *>(loc->cconv);
    const auto *classes = static_cast<const mb_decode *>(loc->ctype);
    if (classes->max_char_len < 2) return 1;
    for (unsigned byte = 0; byte < 256; byte++) {
        if (node_flag(cases->root, byte) != mb_final) continue;
        const uint16_t index = item16(node_item(cases, cases->root, byte));
        for (ko_wchar_t conv_elem::*side : {&conv_elem::upper, &conv_elem::lower}) {
            ko_mchar_t bytes[4];
            const ko_wchar_t partner = case_partner(loc, index, side);
            if (partner && wide_to_bytes(classes, bytes, partner) > 1) return 2;
        }
    }
    return 1;
}

// The case of one character is written into the room of the longest one in the class table.
static bool cases_exceed_classes(const kovaloc *loc) {
    const auto *cases = static_cast<const mb_decode *>(loc->cconv);
    const auto *classes = static_cast<const mb_decode *>(loc->ctype);
    const unsigned char *first_flags = cases->root->flag_arr;
    return classes->max_char_len < 2 && first_flags && memchr(first_flags, mb_prefix, 256);
}

int read_ctype(text_in *in, kovaloc *loc) {
    if (read_table(in, loc, loc->ctype) || read_user_bits(in, loc)) return -1;
    if (read_table(in, loc, loc->cconv)) return -1;
    if (cases_exceed_classes(loc)) return fail(loc, KO_ECHARLEN, -1);
    if (read_case_pairs(in, loc)) return -1;
    const double stated = read_case_ratio(in), needed = growth_of_pairs(loc);
    loc->exp.case_conv_ratio = stated > needed ? stated : needed;
    share_ctype(loc);
    return 0;
}

// ---- LC_NUMERIC, LC_MONETARY, LC_MESSAGES -------------------------------------------------------

// Reads all sizes and keeps the first 15.
static void read_group(text_in *in, int *group) {
    const int count = read_count(in);
    skip_whitespace(in);
    int kept = 0;
    for (int i = 0; i < count && !in->ended; i++) {
        const int size = get_int(in);
        if (kept < group_max - 1) group[++kept] = size;
        skip_whitespace(in);
    }
    group[0] = kept;
    skip_whitespace(in);
}

void read_numeric(text_in *in, monum *m) {
    m->decimal_point = read_string(in);
    m->thousands_sep = read_string(in);
    read_group(in, m->group_num);
    m->num_positive_sign = read_string(in);
    m->num_negative_sign = read_string(in);
}

void read_monetary(text_in *in, monum *m) {
    m->int_curr_symbol = read_string(in);
    m->currency_symbol = read_string(in);
    m->mon_decimal_point = read_string(in);
    m->mon_thousands_sep = read_string(in);
    read_group(in, m->group_mon);
    m->positive_sign = read_string(in);
    m->negative_sign = read_string(in);
    for (int monum::*value : monum_values) {
        m->*value = get_int(in);
        skip_whitespace(in);
    }
}

void read_messages(text_in *in, monum *m) {
    m->yesexpr = read_string(in);
    m->noexpr = read_string(in);
    m->yesstr = read_string(in);
    m->nostr = read_string(in);
}

// ---- LC_TIME ------------------------------------------------------------------------------------

static int find_calendar(text_in *in) {
    char line[marker_bound + 1];
    in_gets(in, line, marker_bound);
    for (const calendar_name &c : calendar_names) {
        if (!strcmp(line, c.name)) return c.number;
    }
    return 0;
}

int read_time(text_in *in, ltime *t, int *error) {
    t->calendar = find_calendar(in);
    *error = KO_ECALENDAR;
    if (!t->calendar) return -1;
    *error = KO_ENOMEM;
    for (ko_mchar_t *&name : t->abday)
        name = read_string(in);
    for (ko_mchar_t *&name : t->day)
        name = read_string(in);
    if (!read_strings(in, &t->abmon, &t->abmon_count)) return -1;
    if (!read_strings(in, &t->mon, &t->mon_count)) return -1;
    t->d_t_fmt = read_string(in);
    t->d_fmt = read_string(in);
    t->t_fmt = read_string(in);
    for (ko_mchar_t *&name : t->am_pm)
        name = read_string(in);
    t->t_fmt_ampm = read_string(in);
    if (!read_strings(in, &t->era, &t->era_count)) return -1;
    t->era_d_fmt = read_string(in);
    t->era_t_fmt = read_string(in);
    t->era_d_t_fmt = read_string(in);
    if (!read_strings(in, &t->alt_digits, &t->max_alt_digits)) return -1;
    skip_whitespace(in);
    return 0;
}

// ---- Sections -----------------------------------------------------------------------------------

static int section_numeric(text_in *in, kovaloc *loc) {
    read_numeric(in, &loc->monum_info);
    return 0;
}
static int section_monetary(text_in *in, kovaloc *loc) {
    read_monetary(in, &loc->monum_info);
    return 0;
}
static int section_messages(text_in *in, kovaloc *loc) {
    read_messages(in, &loc->monum_info);
    return 0;
}
static int section_time(text_in *in, kovaloc *loc) {
    int error = 0;
    return read_time(in, &loc->ltime_info, &error) ? fail(loc, error, -1) : 0;
}

static constexpr int (*section_readers[8])(text_in *in, kovaloc *loc) = {
    nullptr,         nullptr,          read_ctype,   read_collate,
    section_numeric, section_monetary, section_time, section_messages,
};

int read_category(text_in *in, kovaloc *loc, int category) {
    in->cut = false;
    if (section_readers[category](in, loc)) return -1;
    return in->cut ? fail(loc, KO_EOBJECT, -1) : 0;
}

void note_read_error(kovaloc *loc, void *stream) {
    // A host that opens streams but has no hook for their errors reports none.
    const bool told = hook_set(KO_EXT_FERROR) || !stream_hooks_set();
    if (told && ko_ext_ferror(stream)) note_trouble(loc, KO_EIO);
}

static int read_all_sections(text_in *in, kovaloc *loc) {
    char codeset[codeset_room] = {};
    int error = 0;
    if (!read_file_header(in, codeset, &loc->order_facts, &error))
        return fail(loc, error ? error : KO_EOBJECT, 1);
    for (auto &entry : loc->codeset)
        memcpy(entry, codeset, sizeof entry);
    for (int c = KO_LC_CTYPE; c <= KO_LC_MESSAGES; c++) {
        char line[marker_bound + 1];
        do {
            if (!in_gets(in, line, marker_bound)) return fail(loc, KO_EOBJECT, 1);
        } while (strcmp(line, category_markers[c]));
        if (read_category(in, loc, c)) {
            reset_category(loc, c);
            return 1;
        }
    }
    return 0;
}

int read_locale_file(text_in *in, kovaloc *loc) {
    const int result = read_all_sections(in, loc);
    if (!in->stream || result) return result; // the caller closes it
    note_read_error(loc, in->stream);
    ko_ext_fclose(in->stream);
    in->stream = nullptr;
    return 0;
}
