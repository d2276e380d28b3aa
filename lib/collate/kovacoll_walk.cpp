// The row walk: weights of a string one after the other, directly from the record's rows. It
// supports every feature and needs no derived tables; the faster paths give the same results.
#include "collate/kovacoll_key.h"
#include "collate/kovacoll_pass.h"

void coll_node_rows(const mb_decode *table, const multi_arr *node, uint16_t *rows) {
    const unsigned char *flags = node ? node->flag_arr : nullptr;
    const uint16_t missing = item16(table->default_data);
    for (unsigned c = 0; c < 256; ++c)
        rows[c] = flags ? missing : uint16_t{0};
    if (!flags) return;
    if (node->data_arr) memcpy(rows, node->data_arr, 256 * sizeof *rows);
    for (unsigned c = 0; c < 256; ++c)
        rows[c] = flags[c] == mb_final ? rows[c] : uint16_t{0};
}

uint16_t coll_row(const void *table, ko_wchar_t wc) {
    const unsigned char *item = wide_item(static_cast<const mb_decode *>(table), wc);
    return item ? item16(item) : uint16_t{0};
}

namespace {
struct elem_runtime {
    const coll_elem *elem; // the element that covers this character, or NULL
    int char_num;          // the character's index inside it
};

template <class Unit> struct coll_state {
    const kovaloc *loc;
    const Unit *text;
    ptrdiff_t string_pos, end; // the current and the last character in walking order
    const coll_exp *exp;       // the expansion being walked
    ptrdiff_t exp_index;
    const uint16_t *pass_arr;
    ptrdiff_t increment;
    bool string_end;
    const elem_runtime *elems; // one per character, NULL without elements
};
} // namespace

template <class Unit> static bool begins_with(const Unit *text, size_t len, const coll_elem *elem) {
    if (!elem->nchars || elem->nchars > len) return false;
    for (unsigned i = 0; i < elem->nchars; ++i)
        if (text[i] != elem->elem_data[i]) return false;
    return true;
}

// Marks each character, left to right, with the first matching element in file order.
template <class Unit>
static void make_parallel_arr(const coll_data *coll, const Unit *text, size_t len,
                              elem_runtime *marks) {
    for (size_t i = 0; i < len;) {
        const coll_elem *found = nullptr;
        for (int e = 0; e < coll->num_coll_elems && !found; ++e)
            if (begins_with(text + i, len - i, &coll->elem_arr[e])) found = &coll->elem_arr[e];
        const unsigned n = found ? found->nchars : 1;
        for (unsigned k = 0; k < n; ++k)
            marks[i + k] = {found, int(k)};
        i += n;
    }
}

namespace {
// The marks of one string; p stays NULL when there is nothing to mark.
struct elem_marks {
    elem_runtime *p = nullptr;
    ~elem_marks() {
        if (p) ko_ext_free(p);
    }
};
} // namespace
template <class Unit>
static bool mark(kovaloc *loc, const Unit *text, size_t len, elem_marks *marks) {
    const coll_data *coll = &loc->coll_info;
    if (coll->num_coll_elems <= 0 || !len) return true;
    if (len <= PTRDIFF_MAX / sizeof *marks->p)
        marks->p = static_cast<elem_runtime *>(ko_ext_malloc(len * sizeof *marks->p));
    if (!marks->p) return fail(loc, KO_ENOMEM, false);
    make_parallel_arr(coll, text, len, marks->p);
    return true;
}

template <class Unit>
static coll_state<Unit> init_coll_state(const kovaloc *loc, int pass, const Unit *text, size_t len,
                                        const elem_marks *marks) {
    const coll_data *coll = &loc->coll_info;
    const ptrdiff_t last = ptrdiff_t(len) - 1;
    const bool forward = coll->pass_type[pass] & coll_forward;
    return {.loc = loc,
            .text = text,
            .string_pos = forward ? 0 : last,
            .end = forward ? last : 0,
            .exp = nullptr,
            .exp_index = 0,
            .pass_arr = coll->pass_arr[pass],
            .increment = forward ? 1 : -1,
            .string_end = !len,
            .elems = marks->p};
}

template <class Unit> static coll_item next_weight(coll_state<Unit> &s) {
    if (s.string_end) return {0, 0};
    unsigned weight = 0;
    ko_wchar_t ch = 0;
    do {
        ptrdiff_t consumed = 1;
        uint16_t row;
        if (s.exp) {
            ch = s.exp->exp_data[s.exp_index];
            s.exp_index += s.increment;
            if (s.exp_index < 0 || s.exp_index >= ptrdiff_t(s.exp->nchars)) s.exp = nullptr;
            row = coll_row(s.loc->coll, ch);
        } else if (s.elems && s.elems[s.string_pos].elem) {
            ch = coll_element_char;
            row = s.elems[s.string_pos].elem->row;
            consumed = ptrdiff_t(s.elems[s.string_pos].elem->nchars);
        } else {
            ch = s.text[s.string_pos];
            row = coll_row(s.loc->coll, ch);
        }
        weight = s.pass_arr[row];
        if (weight & coll_expansion) { // also replaces the rest of an outer expansion
            const coll_exp *exp = &s.loc->coll_info.exp_arr[weight & coll_low_bits];
            s.exp = exp->nchars ? exp : nullptr;
            s.exp_index = s.increment > 0 ? 0 : ptrdiff_t(exp->nchars) - 1;
            weight = coll_ignored_weight;
        }
        // Deliberately, after an expansion the position moves by one character even inside an
        // element: the expansion counts once for each character of the element.
        if (!s.exp) {
            s.string_pos += s.increment * consumed;
            if (s.increment > 0 ? s.string_pos > s.end : s.string_pos < s.end) {
                s.string_end = true;
                break;
            }
        }
    } while (weight == coll_ignored_weight);
    if (weight == coll_ignored_weight) return {0, 0};
    return {uint16_t(weight), ch};
}

template <class Unit>
int walk_compare(kovaloc *loc, const Unit *a, size_t len_a, const Unit *b, size_t len_b) {
    elem_marks marks_a, marks_b;
    if (!mark(loc, a, len_a, &marks_a) || !mark(loc, b, len_b, &marks_b)) return 0;
    const coll_data *coll = &loc->coll_info;
    int order = 0;
    for (int pass = 0; pass < coll->num_passes && !order; ++pass) {
        auto s1 = init_coll_state(loc, pass, a, len_a, &marks_a);
        auto s2 = init_coll_state(loc, pass, b, len_b, &marks_b);
        order = items_order<next_weight<Unit>>(s1, s2);
    }
    return order;
}

template <class Unit> int walk_key(kovaloc *loc, const Unit *text, size_t len, coll_sink *sink) {
    elem_marks marks;
    if (!mark(loc, text, len, &marks)) return -1;
    const coll_data *coll = &loc->coll_info;
    const coll_widths widths = key_widths(loc);
    for (int pass = 0; pass < coll->num_passes; ++pass) {
        if (pass) sink_byte(sink, 1);
        auto state = init_coll_state(loc, pass, text, len, &marks);
        for (coll_item item; (item = next_weight(state)).ch;)
            write_item(item, widths, sink);
    }
    return 0;
}

template int walk_compare(kovaloc *, const ko_wchar_t *, size_t, const ko_wchar_t *, size_t);
template int walk_compare(kovaloc *, const ko_mchar_t *, size_t, const ko_mchar_t *, size_t);
template int walk_key(kovaloc *, const ko_wchar_t *, size_t, coll_sink *);
template int walk_key(kovaloc *, const ko_mchar_t *, size_t, coll_sink *);
