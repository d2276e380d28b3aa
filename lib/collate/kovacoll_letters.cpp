// Derives letters from the tables of a collation and the codes of its short keys.
#include "collate/kovacoll_letters.h"

#include <string.h>

namespace {

constexpr unsigned most_patterns = 1u << 14, most_ops = 1u << 16; // numbers beyond stay free
constexpr unsigned most_letter_ops = 16;                          // of one letter
constexpr unsigned pattern_slots = 2 * most_patterns;             // of the hash table

struct pattern_text { // a pattern with its operations
    letter_pattern pattern;
    letter_op ops[most_letter_ops];
};

struct known_pattern {
    uint64_t weights; // as plain_weights gives them; all ones: free
    unsigned number;
};
constexpr unsigned known_bits = 8;

struct builder {
    const coll_flat *flat;
    const short_keys *keys;
    letter_pattern *patterns;
    letter_op *ops;
    uint16_t *slots; // numbers of patterns by hash, plus 1; 0: free
    unsigned num_patterns, num_ops;
    uint64_t *elements;
    size_t num_elements;
    known_pattern known[1u << known_bits]; // found lately, by a hash of the weights
};

} // namespace

// ---- Patterns ----

// The code of an item with its bytes spelled.
static uint32_t spelled(uint32_t code, coll_item item) {
    return (code & ~short_bytes_mask) | item_bytes(code, item);
}

static bool add_op(const builder *b, pattern_text *text, unsigned pass, uint32_t code) {
    if (text->pattern.num_ops == most_letter_ops) return false;
    letter_op &op = text->ops[text->pattern.num_ops++];
    const uint32_t bytes = (code >> 16 & 0xFF) | (code & 0xFF00) | (code & 0xFF) << 16;
    op = {pass, code, bytes, short_count(code), {}};
    const short_pass &p = b->keys->pass[pass];
    for (unsigned common = 0; common < short_most_commons; ++common) {
        const bool higher = (code & short_bytes_mask) >> 16 > p.run_bytes[common];
        op.run[common] = bytes_of_run(p, common, higher ? run_end::higher : run_end::lower);
    }
    return true;
}

// These are false if the letter has too many operations.
static bool add_firsts(const builder *b, coll_seq seq, pattern_text *text) {
    const uint32_t *codes = b->keys->pass[0].codes;
    for (unsigned i = 1; i < seq.count; ++i) {
        const coll_item item = seq.items[i];
        if (!add_op(b, text, 0, spelled(item_code(codes, item), item))) return false;
    }
    text->pattern.num_firsts = text->pattern.num_ops;
    return true;
}

static bool add_pass(const builder *b, unsigned pass, coll_seq seq, pattern_text *text) {
    const uint32_t *codes = b->keys->pass[pass].codes;
    letter_pattern &pattern = text->pattern;
    const unsigned lane = lane_bits * (pass - 1);
    for (unsigned i = 0; i < seq.count; ++i) {
        const coll_item item = seq.items[i];
        const uint32_t code = item_code(codes, item);
        const bool common = code < short_most_commons;
        const bool again = (pattern.runs >> lane & lane_mask) == i && i < most_letter_ops;
        if (common && again && (!i || pattern.commons >> lane == code)) {
            pattern.runs += uint64_t{1} << lane;
            pattern.commons |= uint64_t{code} << lane;
            pattern.valid |= lane_mask << lane;
        } else if (!add_op(b, text, pass, common ? code : spelled(code, item))) {
            return false;
        }
    }
    return true;
}

static bool same_pattern(const builder *b, const letter_pattern &known, const pattern_text &text) {
    return known.runs == text.pattern.runs && known.commons == text.pattern.commons &&
           known.num_ops == text.pattern.num_ops && known.num_firsts == text.pattern.num_firsts &&
           !memcmp(b->ops + known.first_op, text.ops, known.num_ops * sizeof(letter_op));
}

constexpr uint64_t hash_spread = 0x9E3779B97F4A7C15;

static unsigned hash_of(const pattern_text &text) {
    uint64_t hash = (text.pattern.runs ^ text.pattern.commons << 1) * hash_spread;
    for (unsigned i = 0; i < text.pattern.num_ops; ++i)
        hash = ((hash ^ hash >> 32 ^ text.ops[i].code) + text.ops[i].pass) * hash_spread;
    return unsigned(hash >> 32) % pattern_slots;
}

// The number of a pattern; most_patterns if there are too many.
static unsigned pattern_number(builder *b, const pattern_text &text) {
    unsigned slot = hash_of(text);
    for (; b->slots[slot]; slot = (slot + 1) % pattern_slots)
        if (same_pattern(b, b->patterns[b->slots[slot] - 1], text)) return b->slots[slot] - 1u;
    const unsigned n = text.pattern.num_ops;
    if (b->num_patterns == most_patterns || n > most_ops - b->num_ops) return most_patterns;
    letter_pattern &fresh = b->patterns[b->num_patterns];
    fresh = text.pattern;
    fresh.first_op = b->num_ops;
    fresh.one_code = n == 1 && text.ops[0].pass && text.ops[0].code >= short_most_commons;
    memcpy(b->ops + b->num_ops, text.ops, n * sizeof(letter_op));
    b->num_ops += n;
    b->slots[slot] = uint16_t(++b->num_patterns);
    return b->num_patterns - 1;
}

// The pattern of a unit or an element; most_patterns if it has none.
static unsigned find_pattern(builder *b, unsigned unit, ptrdiff_t candidate, coll_seq first) {
    pattern_text text;
    text.pattern = {};
    if (!add_firsts(b, first, &text)) return most_patterns;
    for (int p = 1; p < b->flat->num_passes; ++p) {
        const coll_flat_pass *const pass = &b->flat->pass[p];
        if (!pass->forward) continue;
        coll_item own;
        if (!add_pass(b, unsigned(p), yielded(pass, unit, candidate, &own), &text))
            return most_patterns;
    }
    return pattern_number(b, text);
}

// The weights of a unit in the passes after the first, in lanes. False if one of them is that of an
// element or expansion or goes with the unit's code, so that they do not decide the pattern.
static bool plain_weights(const coll_flat *flat, unsigned unit, uint64_t *weights) {
    *weights = 0;
    for (int p = 1; p < flat->num_passes; ++p) {
        if (!flat->pass[p].forward) continue;
        const uint16_t weight = flat->pass[p].page[unit >> 8][unit & 0xFF];
        if (weight & (coll_expansion | coll_code_tie)) return false;
        *weights |= uint64_t{weight} << lane_bits * unsigned(p - 1);
    }
    return true;
}

// find_pattern by the patterns found lately, where it can be.
static unsigned pattern_of(builder *b, unsigned unit, ptrdiff_t candidate, coll_seq first) {
    uint64_t weights;
    if (candidate >= 0 || first.count > 1 || !plain_weights(b->flat, unit, &weights))
        return find_pattern(b, unit, candidate, first);
    known_pattern *const known = &b->known[weights * hash_spread >> (64 - known_bits)];
    if (known->weights != weights) *known = {weights, find_pattern(b, unit, candidate, first)};
    return known->number;
}

// ---- Pages ----

// What a unit, or an element that begins with it, writes.
static uint64_t letter_of(builder *b, unsigned unit, ptrdiff_t candidate) {
    coll_item own;
    const coll_seq first = yielded(&b->flat->pass[0], unit, candidate, &own);
    const unsigned number = pattern_of(b, unit, candidate, first);
    if (number == most_patterns) return letter_items;
    uint64_t letter = 0;
    if (first.count) {
        const coll_item item = first.items[0];
        const uint32_t code = item_code(b->keys->pass[0].codes, item);
        const bool tie = item.weight & coll_code_tie && item.ch == unit;
        letter = tie ? letter_tie | code : spelled(code, item);
    }
    return letter | uint64_t{number} << letter_pattern_bit;
}

static const coll_special *edge_of(const coll_flat *flat, unsigned unit) {
    const coll_flat_pass *p = &flat->pass[0];
    const uint16_t weight = p->page[unit >> 8][unit & 0xFF];
    if (!(weight & coll_expansion)) return nullptr;
    const coll_special *special = &p->specials[weight & coll_low_bits];
    return special->num_candidates ? special : nullptr;
}

static uint64_t letter_with_elements(builder *b, unsigned unit) {
    const coll_special *edge = edge_of(b->flat, unit);
    for (unsigned i = 0; edge && i < edge->num_candidates; ++i)
        b->elements[edge->candidates[i].number] = letter_of(b, unit, ptrdiff_t(i));
    return letter_of(b, unit, -1) | (edge ? uint64_t{edge->next} << letter_next_bit : 0);
}

static size_t count_elements(const coll_flat *flat) {
    size_t n = 0;
    for (unsigned unit = 1; unit <= 0xFFFF; ++unit)
        if (const coll_special *edge = edge_of(flat, unit)) n += edge->num_candidates;
    return n;
}

// Fills the pages from the start of a block that has room for all; equal neighbours share one.
// Returns how many there are.
static unsigned fill_pages(builder *b, uint64_t *pages, uint16_t *numbers) {
    unsigned n = 0;
    for (unsigned hi = 0; hi < 256; ++hi) {
        numbers[hi] = uint16_t(n - (n > 0));
        if (repeats(b->flat, hi)) continue;
        uint64_t *const page = pages + size_t{n} * 256;
        for (unsigned lo = 0; lo < 256; ++lo)
            page[lo] = hi | lo ? letter_with_elements(b, hi << 8 | lo)
                               : letter_items; // 0: the end of a text
        if (n && !memcmp(page, page - 256, 256 * sizeof *page)) continue;
        numbers[hi] = uint16_t(n++);
    }
    // Bytes that are not a character.
    for (unsigned lo = 0; lo < 256; ++lo)
        pages[size_t{n} * 256 + lo] = letter_items;
    numbers[256] = uint16_t(n);
    return n + 1;
}

// ---- Building ----

template <class T> static T *copy_block(const T *from, size_t n) {
    ext_block<T> copy(n);
    if (copy.p) memcpy(copy.p, from, n * sizeof *from);
    return copy.release();
}

static bool keep_letters(const builder *b, const uint64_t *pages, unsigned num_pages,
                         const uint16_t *numbers, short_letters *to) {
    to->pages = copy_block(pages, size_t{num_pages} * 256);
    to->patterns = copy_block(b->patterns, b->num_patterns);
    to->ops = copy_block(b->ops, b->num_ops);
    to->elements = copy_block(b->elements, b->num_elements);
    if (!to->pages || !to->patterns || !to->ops || !to->elements) return false;
    for (unsigned hi = 0; hi < 257; ++hi)
        to->page[hi] = to->pages + size_t{numbers[hi]} * 256;
    for (unsigned c = 0; c < 256; ++c)
        to->bytes[c] = c < 0x80 ? to->page[0][c] : letter_items;
    return true;
}

void free_short_letters(const short_letters *letters) {
    if (!letters) return;
    free_ptr(letters->pages);
    free_ptr(letters->patterns);
    free_ptr(letters->ops);
    free_ptr(letters->elements);
    free_ptr(letters);
}

const short_letters *build_short_letters(const coll_flat *flat, const short_keys *keys) {
    if (flat->num_passes < 1 || flat->num_passes > int(letter_lanes) + 1 || !flat->pass[0].forward)
        return nullptr;
    const ext_block<uint64_t> pages(size_t{257} * 256);
    const ext_block<letter_pattern> patterns(most_patterns);
    const ext_block<letter_op> ops(most_ops);
    const ext_block<uint16_t> slots(pattern_slots);
    const size_t num_elements = count_elements(flat);
    const ext_block<uint64_t> elements(num_elements);
    ext_block<short_letters> letters(1);
    if (!pages.p || !patterns.p || !ops.p || !slots.p || !elements.p || !letters.p) return nullptr;
    memset(slots.p, 0, pattern_slots * sizeof *slots.p);
    *letters.p = {.forward = true};
    for (int p = 0; p < flat->num_passes; ++p)
        letters.p->forward = letters.p->forward && flat->pass[p].forward;
    for (int p = 1; p < flat->num_passes; ++p) {
        const short_pass &pass = keys->pass[p];
        letters.p->lane[p - 1] = {
            {bytes_of_run(pass, 0, run_end::higher), bytes_of_run(pass, 1, run_end::lower)},
            pass.longest_run
        };
        const unsigned lane = lane_bits * unsigned(p - 1);
        letters.p->ones |= uint64_t{1} << lane;
        letters.p->longest |= uint64_t{pass.longest_run} << lane;
        for (unsigned common = 0; common < short_most_commons; ++common)
            letters.p->end[common] |=
                uint64_t{uint16_t(bytes_of_run(pass, common, run_end::pass).first)} << lane;
    }
    builder b = {flat, keys, patterns.p, ops.p, slots.p, 0, 0, elements.p, num_elements, {}};
    memset(b.known, 0xFF, sizeof b.known);
    uint16_t numbers[257];
    const unsigned num_pages = fill_pages(&b, pages.p, numbers);
    if (keep_letters(&b, pages.p, num_pages, numbers, letters.p)) return letters.release();
    free_short_letters(letters.release());
    return nullptr;
}
