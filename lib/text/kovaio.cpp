// Reads characters and lines from the host's streams.
#include "text/kovastr.h"

// ---- One character ----

// The error of a failed read; at_end for the end of the stream.
static int read_error(ko_lc_t loc, void *stream, int at_end) {
    if (ko_ext_feof(stream)) return fail(loc, at_end, -1);
    return fail(loc, ko_ext_ferror(stream) ? KO_EIO : KO_EREAD, -1);
}

namespace {
struct read_char {
    ko_mchar_t bytes[multi_max_depth];
    ko_wchar_t wide;
};
} // namespace

// Reads a character by the class table. Returns its bytes; -1 with the error word set.
static int next_char(ko_lc_t loc, void *stream, read_char *c) {
    const multi_arr *node = table_root(class_table(record(loc)));
    unsigned wide = 0;
    for (unsigned n = 0; n < multi_max_depth;) {
        const int got = ko_ext_fgetc(stream);
        if (got < 0) return read_error(loc, stream, n ? KO_EINVAL : KO_EEOF);
        const auto byte = ko_mchar_t(got);
        c->bytes[n++] = byte;
        wide = (wide << 8 | byte) & 0xFFFF;
        const unsigned flag = node_flag(node, byte);
        if (flag == mb_final) {
            c->wide = ko_wchar_t(wide);
            return int(n);
        }
        if (flag != mb_prefix) break;
        node = node_child(node, byte);
    }
    return fail(loc, KO_EILSEQ, -1);
}

int ko_full_fgetmb(ko_lc_t loc, ko_mchar_t *mb, void *stream) {
    if (!loc || !mb || !stream) return fail(loc, KO_ENULL, -1);
    read_char c;
    const int n = next_char(loc, stream, &c);
    if (n > 0) memcpy(mb, c.bytes, size_t(n));
    return n;
}

ko_wchar_t ko_full_fgetwc(ko_lc_t loc, void *stream) {
    constexpr ko_wchar_t none = 0xFFFF;
    if (!loc || !stream) return fail(loc, KO_ENULL, none);
    read_char c;
    return next_char(loc, stream, &c) < 0 ? none : c.wide;
}

// ---- Lines ----

// In single-byte locales a line may contain every byte.
static int next_line_char(ko_lc_t loc, void *stream, read_char *c) {
    if (!record(loc)->exp.single_byte) return next_char(loc, stream, c);
    const int got = ko_ext_fgetc(stream);
    if (got < 0) return read_error(loc, stream, KO_EEOF);
    c->bytes[0] = ko_mchar_t(got);
    c->wide = c->bytes[0];
    return 1;
}

// Are the bytes of a character the newline, which is as long as the terminator?
static bool ismbnl(const ko_mchar_t *bytes, int end_len, int len) {
    if (len != end_len) return false;
    for (int i = 0; i < len - 1; ++i) {
        if (bytes[i]) return false;
    }
    return bytes[len - 1] == '\n';
}

namespace {
// A character as units of the buffer.
struct line_char {
    const void *from;
    int units;
    bool newline;
};
} // namespace
static line_char line_form(const read_char &c, int len, int end_len, ko_mchar_t) {
    return {c.bytes, len, ismbnl(c.bytes, end_len, len)};
}
static line_char line_form(const read_char &c, int, int, ko_wchar_t) {
    return {&c.wide, 1, c.wide == '\n'};
}

template <class Unit>
static Unit *read_line(ko_lc_t loc, Unit *buf, int size, int end_units, void *stream) {
    Unit *const none = nullptr;
    if (!loc || !buf || !stream) return fail(loc, KO_ENULL, none);
    const int end_len = terminator_len(record(loc));
    for (int used = 0;;) {
        read_char c;
        const int len = next_line_char(loc, stream, &c);
        if (len < 0) return none;
        const line_char unit = line_form(c, len, end_len, Unit{});
        if (unit.units + (unit.newline ? end_units : 0) > size - used) {
            return fail(loc, KO_E2BIG, none);
        }
        memcpy(buf + used, unit.from, size_t(unit.units) * sizeof(Unit));
        used += unit.units;
        if (!unit.newline) continue;
        end_text(buf + used, end_units);
        return buf;
    }
}

ko_mchar_t *ko_fgetmbs(ko_lc_t loc, ko_mchar_t *buf, int size, void *stream) {
    return read_line(loc, buf, size, loc ? terminator_len(record(loc)) : 0, stream);
}

ko_wchar_t *ko_fgetwcs(ko_lc_t loc, ko_wchar_t *buf, int size, void *stream) {
    return read_line(loc, buf, size, 1, stream);
}
