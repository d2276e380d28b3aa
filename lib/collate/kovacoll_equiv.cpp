// What collation tells callers about characters: which ones every pass ignores, and which ones
// every pass treats as the same.
#include "collate/kovacoll.h"

#include <string.h>

#include <algorithm>

namespace {

enum { class_none = -1, class_ignored = -2 }; // else the first row of the class

struct member {
    int row_class;
    ko_mchar_t *text; // ends with four zero bytes
};

struct member_list {
    member *p;
    size_t count, room;
    ~member_list() {
        for (size_t i = 0; i < count; ++i)
            free_ptr(p[i].text);
        free_ptr(p);
    }
};

struct row_classes {
    int *of_row;       // by row
    int *of_expansion; // first row of the class by expansion
    int rows;          // rows that a character can have
    bool any;
};

} // namespace

// ---- Classes of rows ----

namespace {
// What the weights of each row have in common, pass by pass, so that the loops run over rows.
struct row_traits {
    const uint16_t *first;           // weights of the first pass; NULL without passes
    ext_block<uint32_t> hash;        // of the weights
    ext_block<uint16_t> all, differ; // their bits; the bits in which one differs from the first

    explicit row_traits(size_t rows) : first(), hash(rows), all(rows), differ(rows) {}
};
} // namespace

static bool find_traits(const coll_data *coll, size_t rows, row_traits *traits) {
    uint32_t *hash = traits->hash.p;
    uint16_t *all = traits->all.p, *differ = traits->differ.p;
    if (!hash || !all || !differ) return false;
    memset(hash, 0, rows * sizeof *hash);
    memset(all, 0, rows * sizeof *all);
    memset(differ, 0, rows * sizeof *differ);
    if (coll->num_passes) traits->first = coll->pass_arr[0];
    for (int p = 0; p < coll->num_passes; ++p) {
        const uint16_t *weights = coll->pass_arr[p];
        for (size_t row = 0; row < rows; ++row) {
            all[row] |= weights[row];
            differ[row] |= weights[row] ^ traits->first[row];
        }
        for (size_t row = 0; row < rows; ++row) {
            const uint32_t mixed = (hash[row] ^ weights[row]) * 0x9E3779B1u;
            hash[row] = mixed ^ mixed >> 15;
        }
    }
    return true;
}

static bool is_ignorable(const row_traits &traits, int row) {
    return !traits.first || (traits.first[row] == coll_ignored_weight && !traits.differ.p[row]);
}

// The expansion for which a row stands in every pass, -1 for none.
static int pure_expansion(const row_traits &traits, int row) {
    const unsigned weight = traits.differ.p[row] ? 0u : traits.first[row];
    return weight & coll_expansion ? int(weight & coll_low_bits) : -1;
}

static bool rows_equal(const coll_data *coll, int a, int b) {
    for (int p = 0; p < coll->num_passes; ++p)
        if (coll->pass_arr[p][a] != coll->pass_arr[p][b]) return false;
    return true;
}

// Joins rows with the same weights to the class of the first, by a hash table of rows + 1. False if
// many rows share hashes, as in an object made for that.
static bool join_by_hash(const coll_data *coll, const uint32_t *hash, const int *rows, size_t count,
                         int *slots, size_t mask, row_classes *classes) {
    size_t steps = 4 * (mask + 1);
    memset(slots, 0, (mask + 1) * sizeof *slots);
    for (size_t i = 0; i < count; ++i) {
        const int row = rows[i];
        size_t at = hash[row] & mask;
        while (slots[at] && !rows_equal(coll, slots[at] - 1, row)) {
            if (!--steps) return false;
            at = (at + 1) & mask;
        }
        if (!slots[at]) {
            slots[at] = row + 1;
            continue;
        }
        const int first = slots[at] - 1;
        classes->of_row[first] = classes->of_row[row] = first;
        classes->any = true;
    }
    return true;
}

static void join_by_sorting(const coll_data *coll, int *rows, size_t count, row_classes *classes) {
    std::sort(rows, rows + count, [coll](int a, int b) {
        for (int p = 0; p < coll->num_passes; ++p) {
            const unsigned x = coll->pass_arr[p][a], y = coll->pass_arr[p][b];
            if (x != y) return x < y;
        }
        return a < b;
    });
    for (size_t i = 1, first = 0; i < count; ++i) {
        if (!rows_equal(coll, rows[first], rows[i])) {
            first = i;
            continue;
        }
        classes->of_row[rows[first]] = classes->of_row[rows[i]] = rows[first];
        classes->any = true;
    }
}

static bool classify_rows(const coll_data *coll, row_classes *classes) {
    size_t size = 16, count = 0;
    while (size < 2 * size_t(classes->rows))
        size *= 2;
    ext_block<int> slots(size), rows(size_t(classes->rows)); // that may be alike
    row_traits traits(size_t(classes->rows));
    if (!slots.p || !rows.p || !find_traits(coll, size_t(classes->rows), &traits)) return false;
    int *of_row = classes->of_row;
    for (int row = 0; row < classes->rows; ++row) {
        of_row[row] = class_none;
        if (is_ignorable(traits, row)) {
            of_row[row] = class_ignored;
            classes->any = true;
            continue;
        }
        const int expansion = pure_expansion(traits, row);
        if (expansion >= 0) {
            if (classes->of_expansion[expansion] < 0) classes->of_expansion[expansion] = row;
            of_row[row] = classes->of_expansion[expansion];
            classes->any = true;
        } else if (!(traits.all.p[row] & coll_code_tie)) {
            rows.p[count++] = row;
        }
    }
    if (!join_by_hash(coll, traits.hash.p, rows.p, count, slots.p, size - 1, classes))
        join_by_sorting(coll, rows.p, count, classes);
    return true;
}

// ---- Members ----

static bool add_member(member_list *list, int row_class, const ko_mchar_t *bytes, size_t len) {
    if (list->count == list->room) {
        const size_t room = list->room + list->room / 2 + 100;
        member *grown = static_cast<member *>(ko_ext_malloc(room * sizeof *grown));
        if (!grown) return false;
        if (list->count) memcpy(grown, list->p, list->count * sizeof *grown);
        free_ptr(list->p);
        list->p = grown;
        list->room = room;
    }
    ko_mchar_t *text = static_cast<ko_mchar_t *>(ko_ext_malloc(len + 4));
    if (!text) return false;
    memcpy(text, bytes, len);
    memset(text + len, 0, 4);
    list->p[list->count++] = {row_class, text};
    return true;
}

// Adds a string of wide characters, unless the code set lacks one of them.
static bool add_wide(kovaloc *loc, member_list *list, int row_class, const ko_wchar_t *chars,
                     unsigned nchars) {
    ext_block<ko_mchar_t> bytes(4 * size_t(nchars));
    if (!bytes.p) return false;
    size_t len = 0;
    for (unsigned i = 0; i < nchars; ++i) {
        if (!chars[i]) return true;
        const int n = sl_wctomb(loc, bytes.p + len, chars[i]);
        if (n < 0) return true;
        len += size_t(n);
    }
    return !len || add_member(list, row_class, bytes.p, len);
}

static bool add_elements(kovaloc *loc, const row_classes *classes, member_list *list) {
    const coll_data *coll = &loc->coll_info;
    for (int i = 0; i < coll->num_coll_elems; ++i) {
        const coll_elem *elem = &coll->elem_arr[i];
        const int row_class = classes->of_row[elem->row];
        if (row_class == class_none) continue;
        if (!add_wide(loc, list, row_class, elem->elem_data, elem->nchars)) return false;
    }
    return true;
}

static bool add_characters(const mb_decode *table, const multi_arr *node, ko_mchar_t *bytes,
                           unsigned depth, const row_classes *classes, member_list *list) {
    if (depth >= multi_max_depth) return true;
    for (unsigned c = 0; c < 256; ++c) {
        bytes[depth] = ko_mchar_t(c);
        const unsigned flag = node_flag(node, c);
        if (flag == mb_prefix &&
            !add_characters(table, node_child(node, c), bytes, depth + 1, classes, list))
            return false;
        if (flag != mb_final) continue;
        const uint16_t row = item16(node_item(table, node, c));
        if (row >= classes->rows || classes->of_row[row] == class_none) continue;
        static constexpr ko_mchar_t null_char[multi_max_depth] = {};
        const size_t len = size_t(depth) + 1;
        if (!memcmp(bytes, null_char, len)) continue;
        if (!add_member(list, classes->of_row[row], bytes, len)) return false;
    }
    return true;
}

// Adds the strings of pure expansions, each as the last member of its class.
static bool add_expansions(kovaloc *loc, const row_classes *classes, member_list *list) {
    const coll_data *coll = &loc->coll_info;
    for (int e = 0; e < coll->num_expansions; ++e) {
        const int row_class = classes->of_expansion[e];
        const coll_exp *exp = &coll->exp_arr[e];
        if (row_class >= 0 && !add_wide(loc, list, row_class, exp->exp_data, exp->nchars))
            return false;
    }
    return true;
}

// ---- Lists ----

static ko_mchar_t *take_text(member *m) {
    ko_mchar_t *text = m->text;
    m->text = nullptr;
    return text;
}

static bool make_ignored(kovaloc *loc, member_list *list) {
    size_t n = 0;
    for (size_t i = 0; i < list->count; ++i)
        n += list->p[i].row_class == class_ignored;
    ext_block<const ko_mchar_t *> ignored(n + 1);
    if (!ignored.p) return false;
    n = 0;
    for (size_t i = 0; i < list->count; ++i)
        if (list->p[i].row_class == class_ignored) ignored.p[n++] = take_text(&list->p[i]);
    ignored.p[n] = nullptr;
    loc->exp.coll_ignored = ignored.release();
    return true;
}

// Makes the pairs class by class, ordered by first rows, and within a class in the order of the
// list.
static bool make_equiv_map(kovaloc *loc, const row_classes *classes, member_list *list) {
    const size_t rows = size_t(classes->rows);
    ext_block<size_t> start(rows + 1); // of each class in order
    ext_block<member *> order(list->count);
    ext_block<ko_coll_equiv_class_map> map(list->count + 1);
    if (!start.p || !order.p || !map.p) return false;
    memset(start.p, 0, (rows + 1) * sizeof *start.p);
    for (size_t i = 0; i < list->count; ++i)
        if (list->p[i].row_class >= 0) ++start.p[list->p[i].row_class + 1];
    for (size_t r = 0; r < rows; ++r)
        start.p[r + 1] += start.p[r];
    for (size_t i = 0; i < list->count; ++i)
        if (list->p[i].row_class >= 0) order.p[start.p[list->p[i].row_class]++] = &list->p[i];
    // start now contains the ends
    ko_coll_equiv_class_map *pair = map.p;
    for (size_t r = 0, first = 0; r < rows; first = start.p[r++]) {
        const size_t end = start.p[r];
        if (end - first < 2) continue;
        const ko_mchar_t *to = take_text(order.p[end - 1]);
        for (; first + 1 < end; ++first)
            *pair++ = {take_text(order.p[first]), to};
    }
    *pair = {nullptr, nullptr};
    loc->exp.coll_equiv_class_map = map.release();
    return true;
}

// How many weights from the given one on follow each other, as they mostly do in an order of
// ideographs.
static size_t run_of(const uint16_t *weights, size_t count) {
    constexpr size_t step = 64;
    size_t n = 1;
    for (uint16_t breaks = 0; count - n >= step; n += step) {
        for (size_t i = n; i < n + step; ++i)
            breaks |= uint16_t(weights[i] - weights[i - 1] - 1);
        if (breaks) break;
    }
    while (n < count && weights[n] == weights[n - 1] + 1)
        ++n;
    return n;
}

// Notes that the weights of a run are taken; false if one of them already was.
static bool take_run(uint64_t *taken, unsigned first, size_t count) {
    uint64_t before = 0;
    for (unsigned end = first + unsigned(count); first < end;) {
        const unsigned some = end - first < 64 - first % 64 ? end - first : 64 - first % 64;
        const uint64_t bits = ~uint64_t{0} >> (64 - some) << first % 64;
        before |= taken[first / 64] & bits;
        taken[first / 64] |= bits;
        first += some;
    }
    return !before;
}

// Are the weights of a pass all different, and those of characters that are neither ignored nor
// expanded? Then every row is a class of its own, as in most orders of ideographs.
static bool tells_rows_apart(const uint16_t *weights, size_t rows) {
    unsigned any = 0;
    for (size_t row = 0; row < rows; ++row)
        any |= weights[row];
    if (any & coll_expansion) return false;
    uint64_t taken[0x10000 / 64];
    memset(taken, 0, any & coll_code_tie ? sizeof taken : coll_expansion / 8);
    taken[0] = uint64_t{1} << coll_ignored_weight;
    for (size_t row = 0, count; row < rows; row += count) {
        count = run_of(weights + row, rows - row);
        if (!take_run(taken, weights[row], count)) return false;
    }
    return true;
}

int derive_coll_lists(kovaloc *loc) {
    const coll_data *coll = &loc->coll_info;
    const int rows = coll->num_rows < 0xFFFF ? coll->num_rows + 1 : 0x10000;
    const auto row_count = size_t(rows);
    if (coll->num_passes && tells_rows_apart(coll->pass_arr[0], row_count)) return 0;
    const size_t expansions = coll->num_expansions > 0 ? size_t(coll->num_expansions) : 0;
    ext_block<int> of_row(row_count), of_expansion(expansions);
    if (!of_row.p || !of_expansion.p) return -1;
    for (size_t e = 0; e < expansions; ++e)
        of_expansion.p[e] = class_none;
    row_classes classes = {of_row.p, of_expansion.p, rows, false};
    if (!classify_rows(coll, &classes)) return -1;
    if (!classes.any) return 0;
    const mb_decode *table = static_cast<const mb_decode *>(loc->coll);
    member_list list = {};
    ko_mchar_t bytes[multi_max_depth];
    if (!add_elements(loc, &classes, &list) ||
        !add_characters(table, table->root, bytes, 0, &classes, &list) ||
        !add_expansions(loc, &classes, &list) || !make_ignored(loc, &list))
        return -1;
    return make_equiv_map(loc, &classes, &list) ? 0 : -1;
}
