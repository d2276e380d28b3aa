// Derived tables of collation: for each pass, pages of weights by character. Everything that the
// row walk would look up on the way (rows, expansions, elements) is resolved beforehand. Characters
// without a row share a page of row 0's weight.
#include "collate/kovacoll.h"
#include "collate/kovacoll_key.h"
#include "collate/kovacoll_pass.h"
#include "collate/kovacoll_short.h"

#include <stddef.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <bit>

namespace {

struct block { // memory for the tables, allocated from its front
    block *next;
    size_t used, size;
};

constexpr size_t block_bytes = 16 * 1024;
constexpr unsigned max_items = 1u << 18; // of all expansions in a pass, nested ones included

struct builder {
    const kovaloc *loc;
    const coll_data *coll;
    coll_flat *flat;
    bool failed;
    unsigned items; // resolved in this pass
    unsigned num_specials;
    unsigned first_special; // of the edges
    coll_special *specials; // for expansions, for weight 0, then for the edges
    ko_wchar_t *edges; // characters that begin elements or, with a backward pass, that end them
    unsigned num_edges;
    bool edge_pages[256];           // high bytes of edges
    int16_t *heads, *tails;         // by character: the first element that begins, ends with it; -1
    int16_t *next_head, *next_tail; // by element: the next one of these
    unsigned char *needed;          // by element: whether the backward pass must know it
    coll_widths widths;
    uint16_t byte_rows[256];
    const uint16_t *rows[256];                // by high byte; NULL: row 0 for all
    const uint16_t *missing[coll_max_passes]; // the pages for these, by pass
    unsigned num_used;
    unsigned char used[256];   // high bytes with rows or edges
    unsigned char *inner[256]; // pages of coll_flat's inner that we made
};

} // namespace

static void *take_block(builder *b, size_t bytes) {
    bytes = (bytes + 15) / 16 * 16;
    block *front = static_cast<block *>(b->flat->blocks);
    constexpr size_t head = (sizeof(block) + 15) / 16 * 16;
    if (!front || front->size - front->used < bytes) {
        const size_t size = head + (bytes > block_bytes ? bytes : block_bytes);
        block *fresh = static_cast<block *>(ko_ext_malloc(size));
        if (!fresh) {
            b->failed = true;
            return nullptr;
        }
        *fresh = {front, head, size};
        b->flat->blocks = front = fresh;
    }
    void *taken = reinterpret_cast<unsigned char *>(front) + front->used;
    front->used += bytes;
    return taken;
}

template <class T> static T *take_array(builder *b, size_t n) {
    return static_cast<T *>(take_block(b, n * sizeof(T)));
}

// ---- Rows ----

static bool has_characters(const mb_decode *table, unsigned hi) {
    if (table->min_char_len == 1 && !hi) return true;
    return node_flag(table->root, hi) == mb_prefix;
}

static void read_rows(builder *b) {
    const mb_decode *table = static_cast<const mb_decode *>(b->loc->coll);
    const multi_arr *root = table_root(table);
    coll_node_rows(table, root, b->byte_rows);
    for (unsigned hi = 0; hi < 256; ++hi) {
        b->rows[hi] = nullptr;
        if (!has_characters(table, hi)) continue;
        if (!hi && b->flat->byte_rows) {
            b->rows[0] = b->byte_rows;
            continue;
        }
        uint16_t *page = take_array<uint16_t>(b, 256);
        if (!page) return;
        const bool by_pairs = table->min_char_len == 2 || (table->min_char_len < 2 && hi);
        coll_node_rows(table, by_pairs ? node_child(root, hi) : nullptr, page);
        b->rows[hi] = page;
    }
}

static unsigned row_weight(const builder *b, int pass, ko_wchar_t ch) {
    const uint16_t *page = b->rows[ch >> 8];
    return b->coll->pass_arr[pass][page ? page[ch & 0xFF] : 0];
}

// ---- Sequences ----

static bool walks_forward(const builder *b, int pass) {
    return b->coll->pass_type[pass] & coll_forward;
}

// Calls visit for each item that an expansion yields. A nested expansion replaces the rest.
template <class Visit>
static void each_item(const builder *b, int pass, unsigned expansion, Visit visit) {
    const bool forward = walks_forward(b, pass);
    const coll_exp *exp = &b->coll->exp_arr[expansion];
    for (unsigned i = 0, steps = 0; i < exp->nchars && steps < max_items; ++steps) {
        const ko_wchar_t ch = exp->exp_data[forward ? i : exp->nchars - 1 - i];
        const unsigned weight = row_weight(b, pass, ch);
        ++i;
        if (weight & coll_expansion) {
            exp = &b->coll->exp_arr[weight & coll_low_bits];
            i = 0;
        } else if (weight != coll_ignored_weight) {
            visit(coll_item{uint16_t(weight), ch});
        }
    }
}

// Room for n more items in the pass; NULL without memory or beyond the bound.
static coll_item *take_items(builder *b, unsigned n) {
    if (n > max_items - b->items) b->failed = true;
    if (b->failed) return nullptr;
    b->items += n;
    return take_array<coll_item>(b, n);
}

static coll_seq expansion_seq(builder *b, int pass, unsigned expansion) {
    unsigned n = 0;
    each_item(b, pass, expansion, [&](coll_item) { ++n; });
    coll_item *items = n ? take_items(b, n) : nullptr, *out = items;
    if (!items) return {nullptr, 0};
    each_item(b, pass, expansion, [&](coll_item item) { *out++ = item; });
    return {items, n};
}

static coll_seq repeat_seq(builder *b, coll_seq seq, unsigned times) {
    if (!seq.count || times == 1) return seq;
    if (times > max_items / seq.count) b->failed = true;
    coll_item *items = b->failed ? nullptr : take_items(b, seq.count * times);
    if (!items) return {nullptr, 0};
    for (unsigned t = 0; t < times; ++t)
        memcpy(items + t * seq.count, seq.items, seq.count * sizeof *items);
    return {items, seq.count * times};
}

static coll_seq one_item(builder *b, unsigned weight, ko_wchar_t ch) {
    coll_item *item = take_items(b, 1);
    if (!item) return {nullptr, 0};
    *item = {uint16_t(weight), ch};
    return {item, 1};
}

// What a row yields in a pass, after the expansions; one of an element comes once for each of its
// characters.
static coll_seq weight_seq(builder *b, unsigned weight, ko_wchar_t ch, unsigned times) {
    if (weight & coll_expansion)
        return repeat_seq(b, b->specials[weight & coll_low_bits].own, times);
    if (weight == coll_ignored_weight) return {nullptr, 0};
    return one_item(b, weight, ch);
}

// ---- Elements ----

static bool can_match(const coll_elem *elem) {
    for (unsigned i = 0; i < elem->nchars; ++i)
        if (!elem->elem_data[i]) return false;
    return elem->nchars > 0;
}

static constexpr unsigned char nothing_inner[256] = {};

static bool mark_inner(builder *b, ko_wchar_t ch) {
    const unsigned hi = ch >> 8;
    unsigned char *page = b->inner[hi];
    if (!page) {
        b->inner[hi] = page = take_array<unsigned char>(b, 256);
        if (!page) return false;
        memset(page, 0, 256);
        b->flat->inner[hi] = page;
    }
    page[ch & 0xFF] = 1;
    return true;
}

static void add_edge(builder *b, ko_wchar_t ch) {
    if (b->heads[ch] < 0 && b->tails[ch] < 0) b->edges[b->num_edges++] = ch;
}

// Links the elements by their first character and, if a pass runs backward, by their last one, in
// file order, and lists those characters.
static bool chain_elements(builder *b, bool backward) {
    for (int ch = 0; ch < 65536; ++ch)
        b->heads[ch] = b->tails[ch] = -1;
    for (int i = b->coll->num_coll_elems - 1; i >= 0; --i) {
        const coll_elem *elem = &b->coll->elem_arr[i];
        if (!can_match(elem)) continue;
        const ko_wchar_t first = elem->elem_data[0], last = elem->elem_data[elem->nchars - 1];
        add_edge(b, first);
        b->next_head[i] = b->heads[first];
        b->heads[first] = int16_t(i);
        for (unsigned k = 1; k < elem->nchars; ++k)
            if (!mark_inner(b, elem->elem_data[k])) return false;
        if (!backward) continue;
        add_edge(b, last);
        b->next_tail[i] = b->tails[last];
        b->tails[last] = int16_t(i);
    }
    return true;
}

static void note_weight(builder *b, coll_flat_pass *p, unsigned weight) {
    if ((weight & coll_low_bits) == (coll_raw_weight & coll_low_bits)) b->flat->raw_fits = false;
    if (!(weight & coll_code_tie)) return;
    p->ties = true;
    // It equals a weight 0, whose character the pages do not keep.
    if (weight == coll_code_tie) b->failed = true;
}

static unsigned element_weight(builder *b, int pass, int i) {
    const unsigned weight = b->coll->pass_arr[pass][b->coll->elem_arr[i].row];
    note_weight(b, &b->flat->pass[pass], weight);
    return weight;
}

static coll_seq element_seq(builder *b, int pass, int i) {
    return weight_seq(b, element_weight(b, pass, i), coll_element_char,
                      b->coll->elem_arr[i].nchars);
}

static bool same_item(coll_item a, coll_item b) {
    return a.weight == b.weight && (!(a.weight & coll_code_tie) || a.ch == b.ch);
}

// Does a backward pass yield the same for an element as for its characters one by one? Then it need
// not know where elements begin.
static bool falls_apart(const builder *b, int pass, const coll_elem *elem, coll_seq seq) {
    unsigned at = 0;
    for (unsigned i = elem->nchars; i-- > 0;) {
        const unsigned weight = row_weight(b, pass, elem->elem_data[i]);
        const coll_item one = {uint16_t(weight), elem->elem_data[i]};
        coll_seq own = {&one, weight != coll_ignored_weight};
        if (weight & coll_expansion) own = b->specials[weight & coll_low_bits].own;
        for (unsigned k = 0; k < own.count; ++k, ++at)
            if (at == seq.count || !same_item(seq.items[at], own.items[k])) return false;
    }
    return at == seq.count;
}

// Is an element found wherever its characters stand, so that a walk from the end finds it, too?
// Others that match there might overlap it.
static bool always_found(const builder *b, int i) {
    const coll_elem *elem = &b->coll->elem_arr[i];
    const ko_wchar_t first = elem->elem_data[0];
    if (inside_element(b->flat, first)) return false;
    for (int other = b->heads[first]; other >= 0; other = b->next_head[other]) {
        const coll_elem *rival = &b->coll->elem_arr[other];
        const unsigned n = elem->nchars < rival->nchars ? elem->nchars : rival->nchars;
        if (other != i && !memcmp(elem->elem_data, rival->elem_data, n * sizeof(ko_wchar_t)))
            return false;
    }
    return true;
}

static void find_needed(builder *b, int pass) {
    for (int i = 0; i < b->coll->num_coll_elems && !b->failed; ++i) {
        const coll_elem *elem = &b->coll->elem_arr[i];
        if (!can_match(elem)) continue;
        b->needed[i] = !falls_apart(b, pass, elem, element_seq(b, pass, i));
        if (b->needed[i] && !always_found(b, i)) b->failed = true;
    }
}

// The characters of an element in walking order.
static const ko_wchar_t *walked(builder *b, const coll_elem *elem, bool forward) {
    if (forward) return elem->elem_data;
    ko_wchar_t *chars = take_array<ko_wchar_t>(b, elem->nchars);
    for (unsigned i = 0; chars && i < elem->nchars; ++i)
        chars[i] = elem->elem_data[elem->nchars - 1 - i];
    return chars;
}

// False without memory.
static bool fill_seconds(builder *b, coll_special *special) {
    constexpr unsigned few = 4;
    const unsigned n = special->num_candidates;
    bool fits = n > few && n < 0xFFFF;
    for (unsigned i = 0; fits && i < n; ++i)
        fits = special->candidates[i].nchars > 1;
    if (!fits) return true;
    coll_second *seconds = take_array<coll_second>(b, 1);
    uint16_t *next = take_array<uint16_t>(b, n);
    if (!seconds || !next) return false;
    memset(seconds->first, 0, sizeof seconds->first);
    for (unsigned i = n; i-- > 0;) {
        uint16_t *first = &seconds->first[special->candidates[i].chars[1] % coll_seconds];
        next[i] = *first;
        *first = uint16_t(i + 1);
    }
    seconds->next = next;
    special->seconds = seconds;
    return true;
}

static unsigned char next_kinds(const coll_special &special) {
    unsigned kinds = 0;
    for (unsigned i = 0; i < special.num_candidates; ++i) {
        const coll_candidate &c = special.candidates[i];
        kinds |= c.nchars < 2        ? coll_next_any
                 : c.chars[1] < 0x80 ? coll_next_ascii
                                     : coll_next_beyond;
    }
    return static_cast<unsigned char>(kinds);
}

static void fill_candidates(builder *b, int pass) {
    const bool forward = b->flat->pass[pass].forward;
    const int16_t *first = forward ? b->heads : b->tails;
    const int16_t *next = forward ? b->next_head : b->next_tail;
    unsigned number = 0;
    if (!forward && b->num_edges) find_needed(b, pass);
    for (unsigned f = 0; f < b->num_edges && !b->failed; ++f) {
        coll_special *special = &b->specials[b->first_special + f];
        const ko_wchar_t edge = b->edges[f];
        special->own = weight_seq(b, row_weight(b, pass, edge), edge, 1);
        unsigned n = 0;
        for (int i = first[edge]; i >= 0; i = next[i])
            n += forward || b->needed[i];
        coll_candidate *candidates = take_array<coll_candidate>(b, n);
        if (!candidates) return;
        special->candidates = candidates;
        special->num_candidates = n;
        for (int i = first[edge]; i >= 0; i = next[i]) {
            if (!forward && !b->needed[i]) continue;
            const coll_elem *elem = &b->coll->elem_arr[i];
            *candidates++ = {walked(b, elem, forward), elem->nchars, number++,
                             element_seq(b, pass, i)};
        }
        special->next = next_kinds(*special);
        if (b->failed || !fill_seconds(b, special)) return;
    }
}

// ---- Pages ----

// A row's weight in the form of a page.
static uint16_t page_weight(builder *b, coll_flat_pass *p, unsigned weight) {
    const unsigned zero_special = b->first_special - 1;
    if (weight & coll_expansion) return uint16_t(weight & 0x7FFF);
    if (!weight) return uint16_t(coll_expansion | zero_special);
    note_weight(b, p, weight);
    return uint16_t(weight);
}

// Do page_weight and note_weight leave everything as it is? They do for most pages, which these
// loops find out for many weights at once.
static bool is_page_of_weights(const uint16_t *page) {
    uint16_t all = 0, last = 0, none = 0;
    for (unsigned lo = 0; lo < 256; ++lo) // as in most pages
        none |= uint16_t(page[lo] - 1) >= coll_low_bits - 1 ? uint16_t{1} : uint16_t{0};
    if (!none) return true;
    none = 0;
    for (unsigned lo = 0; lo < 256; ++lo) {
        const auto low = uint16_t(page[lo] & coll_low_bits);
        all |= page[lo];
        last |= low == coll_low_bits ? uint16_t{1} : uint16_t{0};
        none |= page[lo] == 0 ? uint16_t{1} : uint16_t{0};
    }
    return !(all & coll_code_tie) && !last && !none;
}

// Replaces a new page by an earlier one of the pass with the same content.
static const uint16_t *share_page(builder *b, const coll_flat_pass *p, unsigned hi,
                                  const uint16_t *page) {
    constexpr unsigned some = 0xC0; // among the characters of most pages
    for (unsigned back = 1; back <= 4 && back <= hi; ++back) {
        const uint16_t *const earlier = p->page[hi - back];
        if (earlier[some] == page[some] && !memcmp(earlier, page, 512)) return earlier;
    }
    uint16_t *fresh = take_array<uint16_t>(b, 256);
    if (fresh) memcpy(fresh, page, 512);
    return fresh;
}

// The page for characters without a row; passes that give them the same weight share it.
static const uint16_t *missing_page(builder *b, int pass, uint16_t weight) {
    for (int earlier = 0; earlier < pass; ++earlier)
        if (*b->missing[earlier] == weight) return b->missing[pass] = b->missing[earlier];
    uint16_t *page = take_array<uint16_t>(b, 256);
    if (!page) return nullptr;
    for (unsigned lo = 0; lo < 256; ++lo)
        page[lo] = weight;
    return b->missing[pass] = page;
}

// Bytes that are not a character come after all others.
static constexpr auto raw_page = [] {
    std::array<uint16_t, 256> page{};
    page.fill(coll_raw_weight);
    return page;
}();

// How eight rows, which may follow each other as their characters do, or be one, as where there are
// none, relate to the first.
enum class row_run { mixed, equal, ascending };
static row_run run_of_rows(const uint16_t *rows) {
    constexpr uint64_t each = 0x0001000100010001u, steps = 0x0003000200010000u;
    uint64_t four[2];
    memcpy(four, rows, sizeof four);
    const uint64_t first = rows[0] * each;
    if (four[0] == first && four[1] == first) return row_run::equal;
    const bool little = std::endian::native == std::endian::little;
    const bool follow = four[0] == first + steps && four[1] == first + steps + 4 * each;
    return little && follow && rows[0] <= 0xFFF8 ? row_run::ascending : row_run::mixed;
}

// The weights of 256 rows; NULL: of row 0.
static void weigh_rows(const uint16_t *weights, const uint16_t *rows, uint16_t *page) {
    if (!rows) std::fill_n(page, 256, weights[0]);
    for (unsigned lo = 0; rows && lo < 256; lo += 8) {
        const row_run run = run_of_rows(rows + lo);
        if (run == row_run::ascending)
            memcpy(page + lo, weights + rows[lo], 8 * sizeof *page);
        else if (run == row_run::equal)
            std::fill_n(page + lo, 8, weights[rows[lo]]);
        else
            for (unsigned i = 0; i < 8; ++i)
                page[lo + i] = weights[rows[lo + i]];
    }
}

static void fill_pages(builder *b, int pass) {
    coll_flat_pass *p = &b->flat->pass[pass];
    const uint16_t *weights = b->coll->pass_arr[pass];
    const uint16_t none = page_weight(b, p, weights[0]);
    const uint16_t *missing = missing_page(b, pass, none);
    if (!missing) return;
    for (unsigned hi = 0; hi < 256; ++hi)
        p->page[hi] = missing;
    p->page[256] = raw_page.data();
    for (unsigned i = 0; i < b->num_used && !b->failed; ++i) {
        const unsigned hi = b->used[i];
        const uint16_t *rows = b->rows[hi];
        uint16_t page[256];
        weigh_rows(weights, rows, page);
        for (unsigned lo = is_page_of_weights(page) ? 256 : 0; lo < 256; ++lo)
            page[lo] = page_weight(b, p, page[lo]);
        for (unsigned f = 0; b->edge_pages[hi] && f < b->num_edges; ++f)
            if (b->edges[f] >> 8 == hi)
                page[b->edges[f] & 0xFF] = uint16_t(coll_expansion | (b->first_special + f));
        if (!hi) page[0] = 0;
        p->page[hi] = share_page(b, p, hi, page);
    }
}

// ---- Keys of bytes ----

constexpr unsigned cell_bytes = sizeof coll_cell::bytes;
namespace {
struct cell_sink { // counts all bytes and keeps those that a cell can take, the first one lowest
    uint64_t kept;
    unsigned used;
};
inline void sink_byte(cell_sink *sink, unsigned byte) {
    if (sink->used < cell_bytes) sink->kept |= uint64_t{byte & 0xFF} << 8 * sink->used;
    ++sink->used;
}
} // namespace

// The key bytes of a character below 256 in a pass.
static cell_sink key_bytes_of(const builder *b, const coll_flat_pass *p, unsigned c) {
    constexpr cell_sink none = {0, coll_cell_none};
    const unsigned weight = p->page[0][c];
    cell_sink sink = {0, 0};
    if (weight & coll_expansion) {
        const coll_special *special = &p->specials[weight & coll_low_bits];
        if (special->num_candidates || special->own.count > cell_bytes) return none;
        for (unsigned i = 0; i < special->own.count; ++i)
            write_item(special->own.items[i], b->widths, &sink);
    } else if (weight != coll_ignored_weight) {
        write_item({uint16_t(weight), ko_wchar_t(c)}, b->widths, &sink);
    }
    return sink.used > cell_bytes ? none : sink;
}

static void store_cell(coll_cell *cell, cell_sink sink) {
    const uint64_t word = sink.kept | uint64_t{sink.used} << 8 * cell_bytes;
    if (std::endian::native == std::endian::little) {
        memcpy(cell, &word, sizeof word); // the bytes, then the count
        return;
    }
    for (unsigned i = 0; i < cell_bytes; ++i)
        cell->bytes[i] = uint8_t(sink.kept >> 8 * i);
    cell->count = uint8_t(sink.used);
}

// The cells of characters that have plain weights of one byte, as most do in the locales of single
// bytes; leaves a count of 0 where there are others.
static void fill_plain_cells(const builder *b, int pass, coll_cell *cells) {
    coll_flat *const flat = b->flat;
    const coll_flat_pass *const p = &flat->pass[pass];
    const unsigned most = b->widths.maxw < 254 ? b->widths.maxw : 0;
    const uint64_t count = p->forward ? uint64_t{1} << 8 * pass : coll_no_counts;
    for (unsigned c = 1; c < 256; ++c) {
        const unsigned weight = p->page[0][c];
        const bool plain = weight >= 2 && weight <= most;
        store_cell(&cells[c], {plain ? weight : 0, plain});
        flat->counts[c] |= plain ? count : 0;
        flat->digits[c] |= plain ? uint64_t{weight} << 8 * pass : 0;
    }
}

static void fill_cells(builder *b, int pass) {
    coll_flat *flat = b->flat;
    coll_flat_pass *p = &flat->pass[pass];
    coll_cell *cells = take_array<coll_cell>(b, 256);
    if (!cells) return;
    store_cell(&cells[0], {0, coll_cell_none});
    if (!pass) flat->counts[0] = coll_no_counts;
    fill_plain_cells(b, pass, cells);
    for (unsigned c = 1; c < 256; ++c) {
        if (cells[c].count) continue;
        const cell_sink sink = key_bytes_of(b, p, c);
        store_cell(&cells[c], sink);
        const bool decided = p->forward && sink.used != coll_cell_none;
        flat->counts[c] |= decided ? uint64_t{sink.used} << 8 * pass : coll_no_counts;
        flat->digits[c] |= (sink.kept & 0xFF) << 8 * pass;
    }
    p->cells = cells;
}

// What to look at to see a unit in UTF-8: its first byte, and for a low surrogate, which a walk
// meets inside its character, any other one.
static void mark_first_bytes(unsigned char *marks, unsigned unit) {
    if (unit < 0x80) {
        marks[unit] |= coll_next_ascii;
    } else if (unit < 0x800) {
        marks[0xC0 | unit >> 6] |= coll_next_beyond;
    } else if ((unit & 0xF800) != 0xD800) {
        marks[0xE0 | unit >> 12] |= coll_next_beyond;
    } else {
        const bool low = (unit & 0xFC00) == 0xDC00;
        for (unsigned byte = low ? 0x80 : 0xF0; byte < (low ? 0xC0 : 0xF8); ++byte)
            marks[byte] |= coll_next_beyond;
    }
}

static void fill_inner_bytes(coll_flat *flat) {
    memset(flat->inner_bytes, coll_next_any, sizeof flat->inner_bytes);
    flat->inner_bytes[0] |= coll_next_ascii | coll_next_beyond; // ignored, also inside elements
    for (unsigned hi = 0; hi < 256; ++hi) {
        if (flat->inner[hi] == nothing_inner) continue;
        for (unsigned lo = 0; lo < 256; ++lo)
            if (flat->inner[hi][lo]) mark_first_bytes(flat->inner_bytes, hi << 8 | lo);
    }
}

static void fill_first_weights(coll_flat *flat) {
    if (!flat->num_passes || !flat->pass[0].forward) return;
    flat->starts_forward = flat->raw_fits;
    if (!flat->byte_rows && !flat->starts_forward) return;
    for (unsigned c = 1; c < (flat->byte_rows ? 0x100 : 0x80); ++c) {
        const uint16_t weight = flat->pass[0].page[0][c];
        if (plain_weight(weight) && !inside_element(flat, c)) flat->first_weights[c] = weight;
    }
}

static uint32_t ascii_of(const coll_flat *flat, unsigned unit) {
    const coll_flat_pass *const p = &flat->pass[0];
    const unsigned weight = p->page[unit >> 8][unit & 0xFF];
    coll_item own;
    const coll_seq seq = yielded(p, unit, -1, &own);
    if (seq.count != 1 || !plain_weight(seq.items[0].weight)) return ascii_none;
    const unsigned next = weight & coll_expansion ? p->specials[weight & coll_low_bits].next : 0u;
    return seq.items[0].weight | (inside_element(flat, unit) ? ascii_inner : 0) |
           next << ascii_next_bit;
}

static void fill_ascii(coll_flat *flat) {
    for (unsigned c = 0; c < 256; ++c)
        flat->ascii[c] = flat->starts_forward && c && c < 0x80 ? ascii_of(flat, c) : ascii_none;
}

static void fill_alone(builder *b) {
    coll_flat *const flat = b->flat;
    for (unsigned hi = 0; flat->starts_forward && hi < 256; ++hi) {
        const uint16_t *const page = flat->pass[0].page[hi];
        flat->alone[hi] = page;
        if (flat->inner[hi] == nothing_inner) continue;
        uint16_t *const own = take_array<uint16_t>(b, 256);
        if (!own) return;
        for (unsigned lo = 0; lo < 256; ++lo)
            own[lo] = flat->inner[hi][lo] ? uint16_t{0} : page[lo];
        flat->alone[hi] = own;
    }
}

// ---- Building ----

static void build_pass(builder *b, int pass) {
    coll_flat_pass *p = &b->flat->pass[pass];
    const coll_data *coll = b->coll;
    b->items = 0;
    p->forward = walks_forward(b, pass);
    b->specials = take_array<coll_special>(b, b->num_specials);
    if (!b->specials) return;
    memset(b->specials, 0, b->num_specials * sizeof *b->specials);
    p->specials = b->specials;
    for (int e = 0; e < coll->num_expansions && !b->failed; ++e)
        b->specials[e].own = expansion_seq(b, pass, unsigned(e));
    b->specials[b->first_special - 1].own = one_item(b, 0, 1);
    if (!b->failed) fill_candidates(b, pass);
    if (!b->failed) fill_pages(b, pass);
    if (!b->failed) fill_cells(b, pass);
}

// False for a shape that needs the row walk: a character 0 inside an expansion ends a walk.
static bool fits_tables(const coll_data *coll) {
    if (coll->num_passes < 0 || coll->num_passes > coll_max_passes) return false;
    for (int e = 0; e < coll->num_expansions; ++e)
        for (unsigned i = 0; i < coll->exp_arr[e].nchars; ++i)
            if (!coll->exp_arr[e].exp_data[i]) return false;
    return true;
}

// Numbers the specials and finds the pages that are not that of row 0. False if there are too many
// specials.
static bool count_tables(builder *b) {
    const coll_data *coll = b->coll;
    const size_t expansions = coll->num_expansions > 0 ? size_t(coll->num_expansions) : 0;
    if (expansions + 1 + b->num_edges > coll_expansion) return false;
    b->first_special = unsigned(expansions) + 1;
    b->num_specials = b->first_special + b->num_edges;
    for (unsigned f = 0; f < b->num_edges; ++f)
        b->edge_pages[b->edges[f] >> 8] = true;
    read_rows(b);
    for (unsigned hi = 0; hi < 256; ++hi)
        if (!hi || b->rows[hi] || b->edge_pages[hi]) b->used[b->num_used++] = uint8_t(hi);
    return true;
}

static bool build(builder *b) {
    coll_flat *flat = b->flat;
    const coll_data *coll = b->coll;
    const size_t elems = coll->num_coll_elems > 0 ? size_t(coll->num_coll_elems) : 0;
    flat->num_passes = coll->num_passes;
    flat->elements = elems > 0;
    flat->raw_fits = true;
    flat->byte_rows = static_cast<const mb_decode *>(b->loc->coll)->min_char_len == 1;
    flat->first_decides = !elems && coll->num_passes > 0 && walks_forward(b, 0);
    for (auto &page : flat->inner)
        page = nothing_inner;
    bool backward = false;
    for (int p = 0; p < coll->num_passes; ++p)
        backward = backward || !walks_forward(b, p);
    const size_t chars = elems ? 65536 : 1;
    ext_block<int16_t> heads(chars), tails(chars), next_head(elems), next_tail(elems);
    ext_block<ko_wchar_t> edges(2 * elems);
    ext_block<unsigned char> needed(elems);
    if (!heads.p || !tails.p || !next_head.p || !next_tail.p || !edges.p || !needed.p) return false;
    b->heads = heads.p;
    b->tails = tails.p;
    b->next_head = next_head.p;
    b->next_tail = next_tail.p;
    b->edges = edges.p;
    b->needed = needed.p;
    if (elems && !chain_elements(b, backward)) return false;
    if (!count_tables(b)) return false;
    for (int p = 0; p < coll->num_passes && !b->failed; ++p)
        build_pass(b, p);
    if (!b->failed) fill_first_weights(flat);
    if (!b->failed) fill_inner_bytes(flat);
    if (!b->failed) fill_ascii(flat);
    if (!b->failed) fill_alone(b);
    return !b->failed;
}

coll_flat *build_coll_flat(const kovaloc *loc) {
    const coll_data *coll = &loc->coll_info;
    if (coll->collate != collate_specified || coll->codeset_order_flg || !loc->coll) return nullptr;
    if (!fits_tables(coll)) return nullptr;
    const size_t passes = size_t(coll->num_passes);
    const size_t size = offsetof(coll_flat, pass) + passes * sizeof(coll_flat_pass);
    coll_flat *flat = static_cast<coll_flat *>(ko_ext_malloc(size));
    if (!flat) return nullptr;
    memset(flat, 0, size);
    builder b = {
        .loc = loc, .coll = coll, .flat = flat, .widths = {key_widths(loc).maxw, 0xFF}
    };
    if (build(&b)) return flat;
    free_coll_flat(flat);
    return nullptr;
}

void free_coll_flat(coll_flat *flat) {
    if (!flat) return;
    free_short_keys(flat->keys);
    for (block *at = static_cast<block *>(flat->blocks); at;) {
        block *next = at->next;
        ko_ext_free(at);
        at = next;
    }
    ko_ext_free(flat);
}
