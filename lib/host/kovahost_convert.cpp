// Conversion between UTF-8 and wide characters.
#include "host/kovahost_made.h"
#include "host/kovahost_map.h"
#include "host/kovahost_simd.h"
#include "host/kovahost_text.h"
#include "host/kovahost_wide.h"

static int64_t refuse(ko_bad_text *bad, int error, size_t at, size_t length, size_t done) {
    if (bad) *bad = {at, length, done};
    return -error;
}

// ---- The character at s ----

static utf8_step next_char(const unsigned char *s, const unsigned char *end) {
    return utf8_char(s, end);
}

static utf8_step next_char(const ko_wchar_t *s, const ko_wchar_t *end) {
    const unsigned unit = *s;
    if ((unit & 0xF800) != 0xD800) return {unit, 1};
    if (is_low_unit(unit) || end - s < 2 || !is_low_unit(s[1])) return {no_code, 1};
    return {(unit - 0xD7C0) << 10 | (s[1] & 0x3FFu), 2};
}

// Converts a text of which a run has been converted.
template <class Out, class In>
[[gnu::noinline]] static int64_t convert_rest(Out *dst, size_t room, const In *text, size_t len,
                                              run_of run, ko_bad_text *bad) {
    made_text<Out> out;
    start_text(&out, dst, room);
    const In *s = text, *const end = text + len;
    const run_way way = best_way();
    for (;;) {
        s += run.taken;
        took(&out, run.made);
        // One at a time: the characters that stopped the run, or the last few.
        for (int few = run.taken ? 4 : 16; few && s != end; --few) {
            const utf8_step step = next_char(s, end);
            if (step.code == no_code)
                return refuse(bad, KO_EILSEQ, size_t(s - text), step.bytes, out.total);
            Out units[longest_char];
            put(&out, units, units_of(units, step.code));
            s += step.bytes;
        }
        if (s == end) return int64_t(out.total);
        run = convert_run(way, out.at, out.left, s, size_t(end - s));
    }
}

// Most texts are one run.
template <class Out, class In>
static inline int64_t convert(Out *dst, size_t room, const In *text, size_t len, ko_bad_text *bad) {
    if (!len) return 0;
    const run_of run = has_wide_runs() ? wide_run(dst, room, text, len)
                                       : convert_run(best_way(), dst, room, text, len);
    return run.taken == len ? int64_t(run.made) : convert_rest(dst, room, text, len, run, bad);
}

// ---- Other code sets ----

static int64_t to_codeset(const host_map *map, ko_wchar_t *dst, size_t room, const char *text,
                          size_t len, ko_bad_text *bad) {
    made_text<ko_wchar_t> out;
    start_text(&out, dst, room);
    const unsigned char *const start = bytes_of(text), *const end = start + len;
    for (const unsigned char *s = start; s != end;) {
        const utf8_step step = utf8_char(s, end);
        const unsigned wide = step.code == no_code ? no_code : wide_of(map, step.code);
        if (wide == no_code) {
            const int error = step.code == no_code ? int{KO_EILSEQ} : int{KO_ENOCHAR};
            return refuse(bad, error, size_t(s - start), step.bytes, out.total);
        }
        const auto unit = ko_wchar_t(wide);
        put(&out, &unit, 1);
        s += step.bytes;
    }
    return int64_t(out.total);
}

static int64_t from_codeset(const host_map *map, unsigned char *dst, size_t room,
                            const ko_wchar_t *text, size_t len, ko_bad_text *bad) {
    made_text<unsigned char> out;
    start_text(&out, dst, room);
    for (size_t i = 0; i < len; ++i) {
        const unsigned code = code_of(map, text[i]);
        if (code == no_code) return refuse(bad, KO_EILSEQ, i, 1, out.total);
        unsigned char bytes[longest_char];
        put(&out, bytes, units_of(bytes, code));
    }
    return int64_t(out.total);
}

// ---- Calls ----

// Are the wide characters of a record the units of UTF-16?
static inline bool has_units(ko_lc_t loc) { return loc && is_unicode(record(loc), KO_LC_CTYPE); }

// Why a call without these, or without a text or room, fails; KO_OK: it needs the record's map.
static int refused(ko_lc_t loc, const void *dst, size_t room, const void *text, size_t len) {
    if (const int error = unfit(loc, KO_LC_CTYPE)) return error;
    return (!text && len) || (!dst && room) ? int{KO_ENULL} : int{KO_OK};
}

[[gnu::noinline]] static int64_t any_to_wide(ko_lc_t loc, ko_wchar_t *dst, size_t room,
                                             const char *text, size_t len, ko_bad_text *bad) {
    if (const int error = refused(loc, dst, room, text, len)) return -error;
    if (const host_map *const map = map_for(record(loc), KO_LC_CTYPE))
        return to_codeset(map, dst, room, text, len, bad);
    return convert(dst, room, bytes_of(text), len, bad);
}

[[gnu::noinline]] static int64_t any_to_utf8(ko_lc_t loc, unsigned char *dst, size_t room,
                                             const ko_wchar_t *text, size_t len, ko_bad_text *bad) {
    if (const int error = refused(loc, dst, room, text, len)) return -error;
    if (const host_map *const map = map_for(record(loc), KO_LC_CTYPE))
        return from_codeset(map, dst, room, text, len, bad);
    return convert(dst, room, text, len, bad);
}

int64_t ko_utf8stowcs(ko_lc_t loc, ko_wchar_t *dst, size_t room, const char *text, size_t len,
                      ko_bad_text *bad) {
    if (!has_units(loc) || !dst || !text) return any_to_wide(loc, dst, room, text, len, bad);
    return convert(dst, room, bytes_of(text), len, bad);
}

int64_t ko_wcstoutf8s(ko_lc_t loc, char *dst, size_t room, const ko_wchar_t *text, size_t len,
                      ko_bad_text *bad) {
    void *const bytes = dst;
    auto *const to = static_cast<unsigned char *>(bytes);
    if (!has_units(loc) || !dst || !text) return any_to_utf8(loc, to, room, text, len, bad);
    return convert(to, room, text, len, bad);
}

int ko_locale_utf8(ko_lc_t loc) { return unfit(loc, KO_LC_CTYPE); }
