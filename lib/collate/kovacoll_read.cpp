// Reads the LC_COLLATE section: rows, weights, elements and expansions, each checked against what
// it refers to, and derives the tables by byte value.
#include "collate/kovacoll.h"
#include "collate/kovacoll_flat.h"
#include "locale/kovablocks.h"

#include <string.h>

// What an object may make the comparison of a character cost: elements that are tried, and
// characters that an expansion yields in a pass, with those that replace its rest.
constexpr size_t max_elements = 16384;
constexpr int max_yielded = 255;

// ---- Pieces of the section ----

static size_t count_of(int n) { return n > 0 ? size_t(n) : 0; }

// False if count items of at least item_bytes characters cannot follow: then the file is damaged,
// and its count must not size anything.
static bool may_hold(const text_in *in, size_t count, size_t item_bytes) {
    if (in->ended) return false;
    if (in->stream) return count <= 1u << 20; // the size is unknown; rows and weights are 16-bit
    return count <= size_t(in->end - in->pos) / item_bytes;
}

template <class T> static bool make_array(kovaloc *loc, size_t n, T **array) {
    *array = n <= PTRDIFF_MAX / sizeof(T) ? static_cast<T *>(ko_ext_malloc(n ? n * sizeof(T) : 1))
                                          : nullptr;
    return *array || fail(loc, KO_ENOMEM, false);
}

// Reads four hex digits after white space for each pass.
static void read_row(text_in *in, int passes, unsigned *weights) {
    for (int p = 0; p < passes; ++p) {
        skip_whitespace(in);
        weights[p] = get_hex(in, 4);
    }
}

// The same from memory. Rows are the bulk of a section. False, with nothing read, near the end of
// the file and where there is more than one white character.
static bool read_plain_row(text_in *in, int passes, unsigned *weights) {
    if (in->stream || in->end - in->pos <= ptrdiff_t{5} * passes) return false;
    const unsigned char *s = in->pos;
    for (int p = 0; p < passes; ++p, s += 4) {
        s += is_white(*s);
        if (*s <= ' ') return false;
        weights[p] = get_hex4(s);
    }
    in->pos = s;
    return true;
}

static bool read_chars(text_in *in, kovaloc *loc, unsigned n, ko_wchar_t **chars) {
    if (!make_array(loc, n, chars)) return false;
    for (unsigned i = 0; i < n && !in->ended; ++i)
        (*chars)[i] = read_ko_wchar(in);
    if (in->ended) return fail(loc, KO_EOBJECT, false);
    if (n > loc->exp.coll_char_ratio) loc->exp.coll_char_ratio = n;
    return true;
}

static bool read_counts(text_in *in, kovaloc *loc, int *elems, int *expansions) {
    coll_data *coll = &loc->coll_info;
    int *const fields[] = {
        &coll->codeset_order_flg, &coll->num_rows, &coll->num_passes, elems, expansions,
        &coll->num_weights};
    for (int *field : fields)
        *field = get_int(in);
    skip_whitespace(in);
    if (in->ended || coll->num_passes < 0 || coll->num_passes > coll_max_passes ||
        coll->num_rows < 0 || *elems < 0 || *expansions < 0) {
        coll->num_passes = 0;
        return fail(loc, KO_EOBJECT, false);
    }
    if (coll->num_weights < 0) coll->num_weights = 0;
    if (coll->num_weights > 0xFFFF) coll->num_weights = 0xFFFF;
    return true;
}

static bool read_passes(text_in *in, kovaloc *loc) {
    coll_data *coll = &loc->coll_info;
    const size_t rows = count_of(coll->num_rows) + 1;
    for (int p = 0; p < coll->num_passes; ++p)
        coll->pass_type[p] = int(get_hex(in, 4) & 0xFFFF);
    if (coll->num_passes > 0 && !may_hold(in, rows, 4 * count_of(coll->num_passes)))
        return fail(loc, KO_EOBJECT, false);
    for (int p = 0; p < coll->num_passes; ++p)
        if (!make_array(loc, rows, &coll->pass_arr[p])) return false;
    return true;
}

static bool read_elems(text_in *in, kovaloc *loc, size_t count) {
    coll_data *coll = &loc->coll_info;
    if (!count) return true;
    if (count > max_elements || !may_hold(in, count, 5)) return fail(loc, KO_EOBJECT, false);
    if (!make_array(loc, count, &coll->elem_arr)) return false;
    for (size_t i = 0; i < count; ++i) {
        coll_elem *elem = &coll->elem_arr[i];
        skip_whitespace(in);
        elem->nchars = get_hex(in, 1);
        elem->elem_data = nullptr;
        const unsigned row = get_hex(in, 4);
        if (in->ended || row > unsigned(coll->num_rows)) return fail(loc, KO_EOBJECT, false);
        elem->row = uint16_t(row);
        coll->num_coll_elems = int(i) + 1;
        if (!read_chars(in, loc, elem->nchars, &elem->elem_data)) return false;
    }
    return true;
}

static bool read_expansions(text_in *in, kovaloc *loc, size_t count) {
    coll_data *coll = &loc->coll_info;
    if (!count) return true;
    if (!may_hold(in, count, 1)) return fail(loc, KO_EOBJECT, false);
    if (!make_array(loc, count, &coll->exp_arr)) return false;
    for (size_t i = 0; i < count; ++i) {
        coll_exp *exp = &coll->exp_arr[i];
        skip_whitespace(in);
        exp->nchars = get_hex(in, 1);
        exp->exp_data = nullptr;
        if (in->ended) return fail(loc, KO_EOBJECT, false);
        coll->num_expansions = int(i) + 1;
        if (!read_chars(in, loc, exp->nchars, &exp->exp_data)) return false;
    }
    return true;
}

#ifdef KOVA_BYTE_BLOCKS

// Does every expansion that these weights refer to exist?
static bool expansions_exist(const uint16_t *weights, size_t count, unsigned expansions) {
    uint16_t any = 0;
    for (size_t i = 0; i < count; ++i)
        any |= weights[i];
    if (!(any & coll_expansion)) return true;
    for (size_t i = 0; i < count; ++i)
        if ((weights[i] & coll_expansion) && (weights[i] & coll_low_bits) >= expansions)
            return false;
    return true;
}

// Reads weights in the usual form, four digits and a white character each, by blocks; returns how
// many, at most count.
static size_t read_plain_weights(const text_in *in, uint16_t *weights, size_t count) {
    const unsigned char *p = in->pos;
    size_t done = 0;
    for (; count - done >= 4 && in->end - p >= spaced_numbers; done += 4, p += spaced_numbers)
        if (!spaced_hex(p, weights + done)) break;
    return done;
}

// Reads rows in the usual form, many at a time, from the given one on; *row gets the first one that
// is left. False for an expansion that does not exist.
static bool read_plain_rows(text_in *in, coll_data *coll, size_t *row) {
    constexpr size_t weights_max = 256;
    const size_t passes = count_of(coll->num_passes), last = size_t(coll->num_rows);
    const size_t rows_max = weights_max / passes / 4 * 4; // whole blocks
    if (in->stream) return true;
    skip_whitespace(in);
    for (size_t rows = rows_max; rows == rows_max && *row <= last; *row += rows) {
        uint16_t weights[weights_max];
        const size_t left = last + 1 - *row;
        rows = read_plain_weights(in, weights, (left < rows ? left : rows) * passes) / passes;
        if (!expansions_exist(weights, rows * passes, unsigned(coll->num_expansions))) return false;
        if (passes == 1) memcpy(coll->pass_arr[0] + *row, weights, rows * sizeof *weights);
        for (size_t p = 0; p < passes && passes > 1; ++p)
            for (size_t i = 0; i < rows; ++i)
                coll->pass_arr[p][*row + i] = weights[i * passes + p];
        in->pos += 5 * rows * passes;
    }
    return true;
}

#else

static bool read_plain_rows(text_in *, coll_data *, size_t *) { return true; }

#endif

static bool read_weights(text_in *in, kovaloc *loc) {
    coll_data *coll = &loc->coll_info;
    if (!coll->num_passes) return true;
    const int passes = coll->num_passes;
    const unsigned expansions = unsigned(coll->num_expansions);
    for (size_t row = 0; row <= size_t(coll->num_rows); ++row) {
        if (!read_plain_rows(in, coll, &row)) return fail(loc, KO_EOBJECT, false);
        if (row > size_t(coll->num_rows)) break;
        unsigned weights[coll_max_passes];
        if (!read_plain_row(in, passes, weights)) read_row(in, passes, weights);
        for (int p = 0; p < passes; ++p) {
            const unsigned weight = weights[p] & 0xFFFF;
            if ((weight & coll_expansion) && (weight & coll_low_bits) >= expansions)
                return fail(loc, KO_EOBJECT, false);
            coll->pass_arr[p][row] = uint16_t(weight);
        }
        if (in->ended) return fail(loc, KO_EOBJECT, false);
    }
    return true;
}

// ---- Checks across the section ----

namespace {
// A bit for each row that a character or an element has.
struct row_set {
    uint8_t bits[0x10000 / 8] = {};
    void add(unsigned row) { bits[row / 8] = uint8_t(bits[row / 8] | 1u << row % 8); }
    bool has(unsigned row) const { return bits[row / 8] >> row % 8 & 1; }
};
} // namespace

// Visits the rows of the characters below a node until one is refused.
template <class Visit>
static bool each_row(const mb_decode *table, const multi_arr *node, unsigned depth, Visit visit) {
    if (depth >= multi_max_depth) return true;
    for (unsigned c = 0; c < 256; ++c) {
        const unsigned flag = node_flag(node, c);
        if (flag == mb_final && !visit(item16(node_item(table, node, c)))) return false;
        if (flag == mb_prefix && !each_row(table, node_child(node, c), depth + 1, visit))
            return false;
    }
    return true;
}

static unsigned largest_item(const multi_arr *node) {
    uint16_t largest = 0;
    if (!node->data_arr) return largest;
    for (unsigned c = 0; c < 256; ++c) {
        const uint16_t item = item16(node->data_arr + 2 * c);
        largest = largest < item ? item : largest;
    }
    return largest;
}

// No item of the node or its children exceeds the largest row, whether or not it is a character's.
static bool all_items_exist(const mb_decode *table, unsigned largest) {
    const multi_arr *root = table->root;
    if (item16(table->default_data) > largest || largest_item(root) > largest) return false;
    for (int i = 0; root->next_arr && i < root->num_offsets; ++i)
        if (largest_item(root->next_arr[i]) > largest) return false;
    return true;
}

// Do all characters have rows that exist? Their rows are looked at one by one only where the items
// of the nodes, taken together, leave it open.
static bool rows_exist(const mb_decode *table, int largest) {
    return all_items_exist(table, unsigned(largest)) ||
           each_row(table, table->root, 0, [=](int row) { return row <= largest; });
}

static bool is_ordinary(unsigned weight) {
    return weight != coll_ignored_weight && !(weight & coll_expansion);
}

// Is the order of strings the same whichever comes first? Only the first string's tie-break counts,
// so weights that differ in nothing else would order two strings in one direction only. Rows
// outside used do not matter (NULL: all rows do).
static bool pass_is_order(const coll_data *coll, const uint16_t *weights, const row_set *used) {
    enum : uint8_t { plain = 1, tie = 2 };
    uint8_t seen[coll_low_bits + 1] = {};
    for (unsigned row = 0; row <= unsigned(coll->num_rows) && row <= 0xFFFF; ++row) {
        const unsigned weight = weights[row], low = weight & coll_low_bits;
        if (!is_ordinary(weight) || (used && !used->has(row))) continue;
        seen[low] |= weight & coll_code_tie ? tie : plain;
        if (seen[low] == (plain | tie)) return false;
    }
    return true;
}

// True if no weight asks for the tie-break, which is usual and makes the pass an order.
static bool has_no_ties(const uint16_t *weights, size_t rows) {
    uint16_t any = 0;
    for (size_t row = 0; row < rows; ++row)
        any |= weights[row];
    return !(any & coll_code_tie);
}

// True if the pass is certainly an order: the tie-break is asked for by no weight, by all, or by
// only one value.
static bool plainly_order(const coll_data *coll, const uint16_t *weights) {
    const size_t rows = count_of(coll->num_rows) + 1;
    if (has_no_ties(weights, rows)) return true;
    uint16_t ties = 0, plains = 0, all_ties = 0xFFFF;
    for (size_t row = 0; row < rows; ++row) {
        const uint16_t weight = weights[row];
        const uint16_t ordinary = is_ordinary(weight) ? 0xFFFF : 0;
        const uint16_t tie = weight & coll_code_tie ? ordinary : uint16_t{0};
        ties |= tie & weight;
        all_ties &= uint16_t(weight | ~tie);
        plains |= uint16_t(ordinary & ~tie);
    }
    if (!ties || !plains) return true;
    if (ties != all_ties) return false;
    bool met = false; // a weight equal to that one except for the tie-break
    for (size_t row = 0; row < rows; ++row)
        met |= weights[row] == (ties & coll_low_bits);
    return !met;
}

// Kept out of line, as few passes need its tables.
[[gnu::noinline]] static bool used_rows_are_order(const kovaloc *loc, const uint16_t *weights) {
    const coll_data *coll = &loc->coll_info;
    if (pass_is_order(coll, weights, nullptr)) return true;
    row_set used;
    used.add(0); // the row of characters that the map lacks
    for (int i = 0; i < coll->num_coll_elems; ++i)
        used.add(coll->elem_arr[i].row);
    const auto *rows = static_cast<const mb_decode *>(loc->coll);
    each_row(rows, rows->root, 0, [&](unsigned row) {
        used.add(row);
        return true;
    });
    return pass_is_order(coll, weights, &used);
}

static bool is_order(const kovaloc *loc) {
    const coll_data *coll = &loc->coll_info;
    if (coll->codeset_order_flg) return true; // codes decide; weights are only stored
    for (int p = 0; p < coll->num_passes; ++p) {
        const uint16_t *weights = coll->pass_arr[p];
        if (!plainly_order(coll, weights) && !used_rows_are_order(loc, weights)) return false;
    }
    return true;
}

// The expansion that replaces the rest of this one in a pass, -1 for none; *chars gets the number
// of characters up to there.
static int nested(const kovaloc *loc, int pass, int expansion, int *chars) {
    const coll_data *coll = &loc->coll_info;
    const coll_exp *exp = &coll->exp_arr[expansion];
    const bool forward = coll->pass_type[pass] & coll_forward;
    *chars = 0;
    for (unsigned i = 0; i < exp->nchars; ++i) {
        const ko_wchar_t ch = exp->exp_data[forward ? i : exp->nchars - 1 - i];
        const unsigned weight = coll->pass_arr[pass][coll_row(loc->coll, ch)];
        ++*chars;
        if (weight & coll_expansion) return int(weight & coll_low_bits);
    }
    return -1;
}

// False if an expansion yields too many characters in a pass, as expansions do that lead back to
// themselves. Notes how many each expansion on the way yields; 0: not yet known.
static bool yields_few(const kovaloc *loc, int pass, int start, int *known) {
    int total = 0, chars, e = start, links = 0;
    for (; e >= 0 && !known[e] && total <= max_yielded; ++links) {
        e = nested(loc, pass, e, &chars);
        total += chars;
    }
    if (e >= 0) total += known[e];
    if (total > max_yielded) return false;
    if (links == 1) { // as mostly
        known[start] = total;
        return true;
    }
    for (e = start; e >= 0 && !known[e]; total -= chars) {
        known[e] = total;
        if (!total) break; // of no characters
        e = nested(loc, pass, e, &chars);
    }
    return true;
}

// Bounds what a comparison may cost for each character.
static bool expansions_end(kovaloc *loc) {
    const coll_data *coll = &loc->coll_info;
    const size_t n = count_of(coll->num_expansions);
    if (!n) return true;
    ext_block<int> known(n);
    if (!known.p) return fail(loc, KO_ENOMEM, false);
    for (int p = 0; p < coll->num_passes; ++p) {
        memset(known.p, 0, n * sizeof *known.p);
        for (int e = 0; e < coll->num_expansions; ++e)
            if (!yields_few(loc, p, e, known.p)) return fail(loc, KO_EOBJECT, false);
    }
    return true;
}

// ---- Tables by byte value ----

static bool derive_exp_direct(kovaloc *loc, const uint16_t *byte_rows) {
    coll_data *coll = &loc->coll_info;
    for (int p = 0; p < coll->num_passes; ++p) {
        if (!make_array(loc, 256, &coll->exp_direct[p])) return false;
        memset(coll->exp_direct[p], 0, 256 * sizeof *coll->exp_direct[p]);
    }
    const multi_arr *root = table_root(static_cast<const mb_decode *>(loc->coll));
    for (int p = 0; coll->num_expansions && p < coll->num_passes; ++p) {
        for (unsigned c = 0; c < 256; ++c) {
            const unsigned weight = coll->pass_arr[p][byte_rows[c]];
            if ((weight & coll_expansion) && node_flag(root, c) == mb_final)
                coll->exp_direct[p][c] = &coll->exp_arr[weight & coll_low_bits];
        }
    }
    return true;
}

static bool derive_byte_weights(kovaloc *loc, const uint16_t *byte_rows) {
    coll_data *coll = &loc->coll_info;
    for (int p = 0; p < coll->num_passes; ++p) {
        if (!make_array(loc, coll_end_byte + 1, &coll->byte_weights[p])) return false;
        for (unsigned c = 1; c < 256; ++c)
            coll->byte_weights[p][c] = coll->pass_arr[p][byte_rows[c]];
        coll->byte_weights[p][coll_end_byte] = coll->pass_arr[p][byte_rows[0]];
        coll->byte_weights[p][0] = 0;
    }
    return true;
}

static bool derive_candidates(kovaloc *loc) {
    coll_data *coll = &loc->coll_info;
    if (!coll->num_coll_elems) return true;
    if (!make_array(loc, 256, &coll->elem_candidate)) return false;
    memset(coll->elem_candidate, 0, 256 * sizeof *coll->elem_candidate);
    for (int i = 0; i < coll->num_coll_elems; ++i) {
        const coll_elem *elem = &coll->elem_arr[i];
        if (elem->nchars && elem->elem_data[0] < 256) coll->elem_candidate[elem->elem_data[0]] = 1;
    }
    return true;
}

static bool derive_byte_tables(kovaloc *loc) {
    const auto *table = static_cast<const mb_decode *>(loc->coll);
    uint16_t byte_rows[256];
    coll_node_rows(table, table->root, byte_rows);
    return derive_exp_direct(loc, byte_rows) && derive_byte_weights(loc, byte_rows) &&
           derive_candidates(loc);
}

// ---- The section ----

static bool read_tables(text_in *in, kovaloc *loc) {
    mb_decode *rows = static_cast<mb_decode *>(loc->coll);
    if (!rows) return fail(loc, KO_ENOMEM, false);
    if (read_multi_ub2(in, rows, 2) < 0) return fail(loc, multi_err(rows), false);
    int elems = 0, expansions = 0;
    if (!read_counts(in, loc, &elems, &expansions) || !read_passes(in, loc) ||
        !read_elems(in, loc, count_of(elems)) || !read_expansions(in, loc, count_of(expansions)) ||
        !read_weights(in, loc))
        return false;
    return !in->ended || fail(loc, KO_EOBJECT, false);
}

static bool is_sound(const kovaloc *loc) {
    const auto *rows = static_cast<const mb_decode *>(loc->coll);
    return rows_exist(rows, loc->coll_info.num_rows) && is_order(loc);
}

static bool derive_lists(kovaloc *loc) {
    if (loc->coll_info.codeset_order_flg == 1) return true;
    return derive_coll_lists(loc) >= 0 || fail(loc, KO_E2BIG, false);
}

// What equal data of another record have passed need not be checked again.
static bool read_section(text_in *in, kovaloc *loc) {
    if (!read_tables(in, loc)) return false;
    const bool shared = share_collation(loc);
    if (!shared && !is_sound(loc)) return fail(loc, KO_EOBJECT, false);
    skip_whitespace(in);
    if (!shared && !(expansions_end(loc) && derive_lists(loc) && derive_byte_tables(loc)))
        return false;
    set_error(loc, KO_OK); // deliberately drops what looking up characters has stored
    return true;
}

int read_collate(text_in *in, kovaloc *loc) {
    coll_data *coll = &loc->coll_info;
    *coll = {};
    char line[128];
    if (!in_gets(in, line, 127)) return fail(loc, KO_EOBJECT, -1);
    if (!strcmp(line, "thai_smo\n")) {
        coll->collate = collate_thai;
        return 0;
    }
    if (strcmp(line, "as_specified\n")) {
        const bool cut = in->ended || (!strchr(line, '\n') && in_getc(in) < 0);
        return cut ? fail(loc, KO_EOBJECT, -1) : -1;
    }
    coll->collate = collate_specified;
    if (read_section(in, loc)) return 0;
    free_coll_data(loc); // nothing incomplete is used
    return -1;
}

// ---- Freeing ----

static void free_equiv_map(ko_coll_equiv_class_map *map) {
    if (!map) return;
    for (const ko_coll_equiv_class_map *pair = map; pair->from; ++pair) {
        free_ptr(pair->from);
        if (pair[1].to != pair->to) free_ptr(pair->to); // the pairs of a class share it
    }
    free_ptr(map);
}

void free_coll_data(kovaloc *loc) {
    coll_data *coll = &loc->coll_info;
    for (int i = 0; i < coll->num_coll_elems; ++i)
        free_ptr(coll->elem_arr[i].elem_data);
    for (int i = 0; i < coll->num_expansions; ++i)
        free_ptr(coll->exp_arr[i].exp_data);
    free_ptr(coll->elem_arr);
    free_ptr(coll->exp_arr);
    for (int p = 0; p < coll_max_passes; ++p) {
        free_ptr(coll->pass_arr[p]);
        free_ptr(coll->exp_direct[p]);
        free_ptr(coll->byte_weights[p]);
    }
    free_ptr(coll->elem_candidate);
    *coll = {};
    if (loc->exp.coll_ignored) {
        for (const ko_mchar_t **text = loc->exp.coll_ignored; *text; ++text)
            free_ptr(*text);
        free_ptr(loc->exp.coll_ignored);
        loc->exp.coll_ignored = nullptr;
    }
    free_equiv_map(loc->exp.coll_equiv_class_map);
    loc->exp.coll_equiv_class_map = nullptr;
}
