// Locale specifications in the X/Open form, simple or compound, and the names made from them.
#include "record/kovaspec.h"

#include "locale/kovautils.h"

#include <string.h>

static const char hex_digits[] = "0123456789abcdef";

static char *put_hex4(char *out, unsigned number) {
    for (int shift = 12; shift >= 0; shift -= 4)
        *out++ = hex_digits[number >> shift & 15];
    return out;
}

static char *put_text(char *out, const char *text) {
    const size_t len = strlen(text);
    memcpy(out, text, len + 1);
    return out + len;
}

static char *put_dir(char *out, const char *dir) {
    if (!dir || !*dir) return out;
    out = put_text(out, dir);
    *out++ = char(path_mark);
    *out = 0;
    return out;
}

void pathcat_mark(char *out, const char *dir) { put_dir(out, dir); }

// "ll_TT", in upper or lower case.
static bool is_lang_terr(const char *s) {
    return is_spec_letter(s[0]) && is_spec_letter(s[1]) && s[2] == '_' && is_spec_letter(s[3]) &&
           is_spec_letter(s[4]);
}

namespace {
struct xopen_spec {
    uint16_t cs_num;
    char fname[5 + 1 + 4 + 4 + 4 + 1]; // language and territory, "\", number, modifier, ".lco"
};
} // namespace

// The length of the code-set name at s, which may contain any printable characters up to "@"; 0 for
// a bad one.
static int cs_name_len(const char *s) {
    int len = 0;
    if (*s == '#') return 0;
    while (is_spec_char(s[len]) && (!len || s[len] != '@'))
        if (++len > cs_name_max) return 0;
    return len;
}

static int modifier_len(const char *s) { // at most 4 letters and digits; 0 for a bad one
    int len = 0;
    while (is_spec_letter(s[len]) || is_spec_digit(s[len]))
        if (++len > 4) return 0;
    return len;
}

// Reads one specification and moves the cursor past it. False, with the cursor undefined, for any
// other text or an unknown code set.
static bool is_xopen_spec(const char **cursor, const registry_choice &registry, xopen_spec *spec) {
    const char *s = *cursor;
    if (!is_lang_terr(s) || s[5] != '.') return false;
    char *out = spec->fname;
    for (int i = 0; i < 5; ++i)
        *out++ = spec_lower(s[i]);
    s += 6;
    char name[cs_name_max + 1] = {};
    const int name_len = cs_name_len(s);
    if (!name_len) return false;
    memcpy(name, s, size_t(name_len));
    s += name_len;
    int mod_len = 0;
    if (*s == '@' && !(mod_len = modifier_len(++s))) return false;
    int error = KO_OK;
    spec->cs_num = find_cs_num(name, registry, &error);
    if (error || spec->cs_num == KO_NO_CODESET) return false;
    *out++ = '\\';
    out = put_hex4(out, spec->cs_num);
    memcpy(out, s, size_t(mod_len));
    put_text(out + mod_len, ".lco");
    *cursor = s + mod_len;
    return true;
}

static bool is_single_spec(const char *text, const registry_choice &registry, xopen_spec *spec) {
    return is_xopen_spec(&text, registry, spec) && !*text;
}

static const char *const category_names[] = {"KO_CTYPE",    "KO_COLLATE", "KO_TIME",
                                             "KO_MONETARY", "KO_NUMERIC", "KO_MESSAGES"};
static constexpr char assign[] = " = ", separator[] = " ; ";

static bool skip_text(const char **cursor, const char *text) {
    const size_t len = strlen(text);
    if (strncmp(*cursor, text, len)) return false;
    *cursor += len;
    return true;
}

namespace {
// A walk over the entries of a compound specification.
struct compound_walk {
    const char *cursor;
    unsigned seen; // a bit per category
    int category;  // of the entry just read
    xopen_spec spec;
    bool separated; // a separator followed the entry
};
} // namespace

// Reads the next entry; false if it breaks the grammar, repeats a category or names a code set
// other than that of earlier entries.
static bool next_entry(compound_walk *walk, const registry_choice &registry) {
    const unsigned seen = walk->seen;
    const uint16_t cs_num = walk->spec.cs_num;
    walk->category = 0;
    for (const char *name : category_names) {
        if (skip_text(&walk->cursor, name)) break;
        ++walk->category;
    }
    if (walk->category == 6 || seen >> walk->category & 1) return false;
    walk->seen |= 1u << walk->category;
    if (!skip_text(&walk->cursor, assign)) return false;
    if (!is_xopen_spec(&walk->cursor, registry, &walk->spec)) return false;
    walk->separated = skip_text(&walk->cursor, separator);
    return !seen || walk->spec.cs_num == cs_num;
}

// The code set of a compound specification with a separator after every entry.
static bool compound_cs_num(const char *text, const registry_choice &registry, uint16_t *number) {
    compound_walk walk = {.cursor = text};
    do
        if (!next_entry(&walk, registry) || !walk.separated) return false;
    while (*walk.cursor);
    *number = walk.spec.cs_num;
    return true;
}

uint16_t ko_lc_spec2cs_num(void *handle, const char *spec, const char *registry) {
    uint16_t number;
    xopen_spec single;
    if (!spec) return fail(handle, KO_EINVAL, uint16_t{KO_NO_CODESET});
    if (compound_cs_num(spec, {registry, false}, &number)) return number;
    if (is_single_spec(spec, {registry, false}, &single)) return single.cs_num;
    return ko_cs_name2cs_num(handle, spec, registry);
}

// Is a specification certainly looked up as the name of a code set?
static bool is_cs_name(const char *spec) {
    return strncmp(spec, "KO_", 3) != 0 && !(is_lang_terr(spec) && spec[5] == '.');
}

void find_two_cs_nums(const char *const (&specs)[2], const char *registry, uint16_t (&numbers)[2],
                      registry_stamp *read) {
    *read = {};
    if (is_cs_name(specs[0]) && is_cs_name(specs[1]) &&
        find_by_one_reading(specs, registry, numbers, &read->file))
        return;
    gen_exports scratch = {};
    for (int i = 0; i < 2; ++i)
        numbers[i] = ko_lc_spec2cs_num(&scratch, specs[i], registry);
    if (registry || !stamp_registry(read)) read->in_memory = UINT64_MAX;
}

// Adds one entry's file name to a compound one. Returns the new end, or NULL if it does not fit.
static char *put_entry(char *out, const char *end, const compound_walk *walk, const char *dir) {
    const char *const name = category_names[walk->category];
    const size_t dir_len = dir && *dir ? strlen(dir) + 1 : 0; // with a mark
    const size_t len = strlen(name) + strlen(assign) + strlen(walk->spec.fname) +
                       (walk->separated ? strlen(separator) : 0);
    const auto room = size_t(end - out);
    if (len >= room || dir_len >= room - len) return nullptr;
    out = put_dir(put_text(put_text(out, name), assign), dir);
    out = put_text(out, walk->spec.fname);
    return walk->separated ? put_text(out, separator) : out;
}

static bool compound_fname(const char *text, const registry_choice &registry, const char *dir,
                           char *out) {
    compound_walk walk = {.cursor = text};
    const char *const end = out + spec_room;
    do {
        if (!next_entry(&walk, registry)) return false;
        if (!walk.separated && *walk.cursor) return false;
        out = put_entry(out, end, &walk, dir);
    } while (out && *walk.cursor);
    return out != nullptr;
}

bool spec_to_fname(const char *spec, const registry_choice &registry, const char *dir, char *out) {
    xopen_spec single;
    if (!spec) return false;
    if (!is_single_spec(spec, registry, &single)) return compound_fname(spec, registry, dir, out);
    put_text(out, single.fname);
    return true;
}

int ko_lc_spec2lc_fname(void *handle, const char *spec, char *out, const char *registry,
                        const char *dir) {
    char fname[spec_room];
    if (!spec_to_fname(spec, {registry, false}, dir, fname)) return fail(handle, KO_EINVAL, -1);
    put_text(out, fname);
    return 0;
}

int ko_lc_spec2msg_dname(void *handle, const char *spec, char *out, const char *registry,
                         const char *) {
    constexpr size_t dname_len = sizeof "ll_TT/E000" - 1;
    static constexpr char messages[] = "KO_MESSAGES = ";
    char fname[spec_room];
    // Without the directory: the message directory starts with language and territory.
    if (!spec_to_fname(spec, {registry, false}, nullptr, fname)) return fail(handle, KO_EINVAL, -1);
    const char *from = fname;
    if (!strncmp(fname, "KO_", 3)) {
        from = strstr(fname, messages);
        if (!from) return fail(handle, KO_EINVAL, -1);
        from += sizeof messages - 1;
    }
    memcpy(out, from, dname_len);
    out[dname_len] = 0;
    return 0;
}

void ko_cs_nums2cv_fname(void *, uint16_t from, uint16_t to, char *out, const char *dir) {
    put_text(put_hex4(put_hex4(put_dir(out, dir), from), to), ".cvo");
}

static bool all_hex(const char *text) {
    if (!*text) return false;
    for (; *text; ++text)
        if (!is_hex(*text)) return false;
    return true;
}

static char *put_at_most(char *out, const char *text, size_t max) {
    const size_t len = strnlen(text, max);
    memcpy(out, text, len);
    out[len] = 0;
    return out + len;
}

int ko_lc_pieces2lc_spec(void *handle, const char *lang_terr, const char *cs_num,
                         const char *modifier, char *out) {
    if (!lang_terr || !is_lang_terr(lang_terr) || lang_terr[5] || !cs_num || !all_hex(cs_num))
        return handle ? fail(handle, KO_EINVAL, -1) : -1;
    out = put_text(put_text(out, lang_terr), ".");
    out = put_at_most(out, cs_num, 5);
    if (modifier && *modifier) put_at_most(put_text(out, "@"), modifier, 4);
    return 0;
}

static void put_decimal(char *out, unsigned number) {
    int place = udigits(number, 10);
    out[place] = 0;
    while (place) {
        out[--place] = char('0' + number % 10);
        number /= 10;
    }
}

static char spec_upper(char c) { return c >= 'a' && c <= 'z' ? char(c & ~0x20) : c; }

int ko_lc_fname2lc_pieces(void *handle, const char *fname, char *lang_terr, char *cs_num,
                          char *modifier) {
    const auto violation = [handle] { return handle ? fail(handle, KO_EINVAL, -1) : -1; };
    if (!fname || !is_lang_terr(fname)) return violation();
    if (fname[5] != '\\') return -1; // deliberately without a number
    const char *s = fname + 6;
    unsigned number = 0;
    int hex_len = 0;
    for (; hex_len < 4 && is_hex(*s); ++hex_len)
        number = number * 16 + get_hex_digit(*s++);
    const size_t mod_len = strcspn(s, ".");
    if (!hex_len || mod_len > 4) return violation();
    for (int i = 0; i < 5; ++i)
        lang_terr[i] = i < 2 ? spec_lower(fname[i]) : spec_upper(fname[i]);
    lang_terr[5] = 0;
    put_decimal(cs_num, number);
    put_at_most(modifier, s, mod_len);
    return 0;
}
