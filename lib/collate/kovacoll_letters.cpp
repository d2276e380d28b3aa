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

struct builder {
    const coll_flat *flat;
    const short_keys *keys;
    letter_pattern *patterns;
    letter_op *ops;
    uint16_t *slots; // numbers of patterns by hash, plus 1; 0: free
    unsigned num_patterns, num_ops;
};

} // namespace

// ---- Patterns ----

// What a unit yields in a pass. Elements that it begins do not count.
static coll_seq yields(const coll_flat_pass *p, unsigned unit, coll_item *own) {
    const uint16_t weight = p->page[unit >> 8][unit & 0xFF];
    if (weight == coll_ignored_weight) return {nullptr, 0};
    if (weight & coll_expansion) return p->specials[weight & coll_low_bits].own;
    *own = {weight, static_cast<ko_wchar_t>(unit)};
    return {own, 1};
}

// The code of an item with its bytes spelled.
static uint32_t spelled(uint32_t code, coll_item item) {
    return (code & ~short_bytes_mask) | item_bytes(code, item);
}

// False if the letter has too many operations.
static bool add_pass(const builder *b, unsigned pass, coll_seq seq, pattern_text *text) {
    const uint32_t *codes = b->keys->pass[pass].codes;
    letter_pattern &pattern = text->pattern;
    const unsigned lane = lane_bits * (pass - 1);
    for (unsigned i = 0; i < seq.count; ++i) {
        const coll_item item = seq.items[i];
        const uint32_t code = codes[item.weight & coll_low_bits];
        if (!i && code < short_most_commons) {
            pattern.runs |= uint64_t{1} << lane;
            pattern.commons |= uint64_t{code} << lane;
            pattern.valid |= lane_mask << lane;
            continue;
        }
        if (pattern.num_ops == most_letter_ops) return false;
        text->ops[pattern.num_ops++] = {pass,
                                        code < short_most_commons ? code : spelled(code, item)};
    }
    return true;
}

static bool same_pattern(const builder *b, const letter_pattern &known, const pattern_text &text) {
    return known.runs == text.pattern.runs && known.commons == text.pattern.commons &&
           known.num_ops == text.pattern.num_ops &&
           !memcmp(b->ops + known.first_op, text.ops, known.num_ops * sizeof(letter_op));
}

static unsigned hash_of(const pattern_text &text) {
    constexpr uint64_t spread = 0x9E3779B97F4A7C15;
    uint64_t hash = (text.pattern.runs ^ text.pattern.commons << 1) * spread;
    for (unsigned i = 0; i < text.pattern.num_ops; ++i)
        hash = ((hash ^ hash >> 32 ^ text.ops[i].code) + text.ops[i].pass) * spread;
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
    memcpy(b->ops + b->num_ops, text.ops, n * sizeof(letter_op));
    b->num_ops += n;
    b->slots[slot] = uint16_t(++b->num_patterns);
    return b->num_patterns - 1;
}

// ---- Pages ----

static bool begins_elements(const coll_flat *flat, unsigned unit) {
    const coll_flat_pass *p = &flat->pass[0];
    const uint16_t weight = p->page[unit >> 8][unit & 0xFF];
    return weight & coll_expansion && p->specials[weight & coll_low_bits].num_candidates;
}

static uint64_t letter_of(builder *b, unsigned unit) {
    const uint64_t edge = begins_elements(b->flat, unit) ? letter_edge : 0;
    coll_item own;
    const coll_seq first = yields(&b->flat->pass[0], unit, &own);
    if (first.count > 1) return edge | letter_items;
    uint64_t letter = edge;
    if (first.count) {
        const coll_item item = first.items[0];
        const uint32_t code = b->keys->pass[0].codes[item.weight & coll_low_bits];
        const bool tie = item.weight & coll_code_tie && item.ch == unit;
        letter |= tie ? letter_tie | code : spelled(code, item);
    }
    pattern_text text;
    text.pattern = {};
    for (int p = 1; p < b->flat->num_passes; ++p) {
        if (!b->flat->pass[p].forward) continue;
        if (!add_pass(b, unsigned(p), yields(&b->flat->pass[p], unit, &own), &text))
            return edge | letter_items;
    }
    const unsigned number = pattern_number(b, text);
    if (number == most_patterns) return edge | letter_items;
    return letter | uint64_t{number} << letter_pattern_bit;
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
            page[lo] = hi | lo ? letter_of(b, hi << 8 | lo) : letter_items; // 0: the end of a text
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
    if (!to->pages || !to->patterns || !to->ops) return false;
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
    free_ptr(letters);
}

const short_letters *build_short_letters(const coll_flat *flat, const short_keys *keys) {
    if (flat->num_passes < 1 || flat->num_passes > int(letter_lanes) + 1 || !flat->pass[0].forward)
        return nullptr;
    const ext_block<uint64_t> pages(size_t{257} * 256);
    const ext_block<letter_pattern> patterns(most_patterns);
    const ext_block<letter_op> ops(most_ops);
    const ext_block<uint16_t> slots(pattern_slots);
    ext_block<short_letters> letters(1);
    if (!pages.p || !patterns.p || !ops.p || !slots.p || !letters.p) return nullptr;
    memset(slots.p, 0, pattern_slots * sizeof *slots.p);
    *letters.p = {};
    builder b = {flat, keys, patterns.p, ops.p, slots.p, 0, 0};
    uint16_t numbers[257];
    const unsigned num_pages = fill_pages(&b, pages.p, numbers);
    if (keep_letters(&b, pages.p, num_pages, numbers, letters.p)) return letters.release();
    free_short_letters(letters.release());
    return nullptr;
}
