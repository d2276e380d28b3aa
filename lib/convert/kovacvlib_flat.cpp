// The rows of words that a conversion derives from each of its tables.
#include "convert/kovacvlib.h"
#include "locale/kovablocks.h"

#include <bit>
#include <string.h>

namespace {

bool short_node(const mb_decode *table, const multi_arr *node) {
    if (!node->flag_arr || node == table->root || table->max_char_len < 3) return false;
    for (int b = 0; b < 256; ++b)
        if (node->flag_arr[b] && (b < 0x80 || b > 0xBF)) return false;
    return true;
}

const multi_arr *child(const multi_arr *node, int b) {
    return node->next_arr && node->offset_arr ? node->next_arr[node->offset_arr[b]] : nullptr;
}

// The words that the rows of a node and its descendants take; 0 for a tree that is too deep.
size_t count_words(const mb_decode *table, const multi_arr *node, unsigned depth) {
    if (depth > multi_max_depth) return 0;
    size_t sum = short_node(table, node) ? 64u : 256u;
    if (!node->num_offsets || !node->flag_arr) return sum;
    for (int b = 0; b < 256; ++b) {
        if (node->flag_arr[b] != mb_prefix) continue;
        const multi_arr *next = child(node, b);
        if (!next) continue;
        const size_t below = count_words(table, next, depth + 1);
        if (!below) return 0;
        sum += below;
    }
    return sum;
}

template <class W> constexpr unsigned top_byte = 8 * (sizeof(W) - 1);
template <class W> constexpr W special_word = W{cv_special} << top_byte<W>;

// The word of an entry of size bytes: 2 to 4, in 64 bits 5. Bytes beyond the entry's length are
// zero.
template <class W> inline W entry_word(const unsigned char *e, size_t size) {
    W word = e[1];
    if (size > 2) word |= W(e[2]) << 8;
    if (size > 3) word |= W(e[3]) << 16;
    if constexpr (sizeof word > 4) word |= W(e[4]) << 24;
    word |= W(e[0]) << top_byte<W>;
    return e[0] & cv_flags ? word & ~special_word<W> : special_word<W>;
}

// Writes the words of many entries of four bytes; what is not final is special. Has no branches, so
// that it becomes vector code.
void page_words(const unsigned char *__restrict flags, const unsigned char *__restrict entries,
                uint32_t *__restrict to, int count) {
    constexpr uint32_t none = special_word<uint32_t>;
    for (int i = 0; i < count; ++i) {
        uint32_t e;
        memcpy(&e, entries + 4 * i, 4);
        const uint32_t word = (e >> 8 | e << 24) & ~none;
        const uint32_t lacks = (e & cv_flags) == 0, other = flags[i] != mb_final;
        to[i] = (lacks | other) != 0 ? none : word;
    }
}

constexpr int word_kinds = cv_special | cv_shifted_target;

// The longest target of one kind; special words have none.
template <class W> int longest_of(const W *from, int count, int kind, int *seen) {
    int longest = -1;
    for (int i = 0; i < count; ++i) {
        const int top = int(from[i] >> top_byte<W>);
        const int length = (top & word_kinds) == kind ? top & int{cv_length} : -1;
        longest = length > longest ? length : longest;
        *seen |= top;
    }
    return longest;
}

// Notes the longest targets of a row; returns all that its top bytes have.
template <class W> int measure(const W *from, int count, int level, cv_longest &longest) {
    int seen = 0;
    for (const int kind : {0, int{cv_shifted_target}}) {
        int *const most = &longest[level][kind ? 1 : 0];
        const int found = longest_of(from, count, kind, &seen);
        if (found > *most) *most = found;
        if (!(seen & int{cv_shifted_target})) break;
    }
    return seen;
}

#ifdef KOVA_BYTE_BLOCKS

// The top bytes of sixteen words.
inline __m128i top_bytes(const uint32_t *words) {
    const void *const from = words;
    const auto *const four = static_cast<const __m128i *>(from);
    const auto tops = [four](int i) { return _mm_srli_epi32(_mm_loadu_si128(four + i), 24); };
    return _mm_packus_epi16(_mm_packs_epi32(tops(0), tops(1)), _mm_packs_epi32(tops(2), tops(3)));
}

struct row_facts {
    int seen, longest[2]; // all bits of the top bytes; by kind, -1 for none
};

// The facts of a row of whole blocks, which all rows are.
inline row_facts facts_of(const uint32_t *from, int count) {
    const __m128i kinds = _mm_set1_epi8(word_kinds), shifted = _mm_set1_epi8(cv_shifted_target);
    __m128i seen = _mm_setzero_si128(), most[2] = {seen, seen}; // lengths and one
    for (int i = 0; i < count; i += 16) {
        const __m128i top = top_bytes(from + i), kind = _mm_and_si128(top, kinds);
        const __m128i length =
            _mm_add_epi8(_mm_and_si128(top, _mm_set1_epi8(cv_length)), _mm_set1_epi8(1));
        const __m128i plain = _mm_cmpeq_epi8(kind, _mm_setzero_si128());
        seen = _mm_or_si128(seen, top);
        most[0] = _mm_max_epu8(most[0], _mm_and_si128(length, plain));
        most[1] = _mm_max_epu8(most[1], _mm_and_si128(length, _mm_cmpeq_epi8(kind, shifted)));
    }
    row_facts facts = {
        0, {-1, -1}
    };
    unsigned char bytes[3][16];
    memcpy(bytes[0], &seen, 16);
    memcpy(bytes[1], most, 32);
    for (int i = 0; i < 16; ++i) {
        facts.seen |= bytes[0][i];
        for (int kind = 0; kind < 2; ++kind)
            if (bytes[1 + kind][i] - 1 > facts.longest[kind])
                facts.longest[kind] = bytes[1 + kind][i] - 1;
    }
    return facts;
}

int measure(const uint32_t *from, int count, int level, cv_longest &longest) {
    const row_facts facts = facts_of(from, count);
    for (int kind = 0; kind < 2; ++kind)
        if (facts.longest[kind] > longest[level][kind]) longest[level][kind] = facts.longest[kind];
    return facts.seen;
}

#endif

template <class W> struct row_writer {
    const mb_decode *table;
    W *words;
    size_t used;
    cv_longest &longest;
    struct row {
        size_t index;
        bool is_short;
    };

    // Writes the entries of a node; what is not a character becomes special.
    void write_entries(const multi_arr *node, W *to, int first, int count) {
        const unsigned char *const flags = node->flag_arr ? node->flag_arr + first : nullptr;
        const size_t step = node->data_arr ? size_t{1} << table->log_data_size : 0;
        const unsigned char *e = node_item(table, node, unsigned(first));
        const auto size = size_t(table->data_size);
        if constexpr (sizeof(W) == 4) {
            if (std::endian::native == std::endian::little && flags && step == 4 && size == 4)
                return page_words(flags, e, to, count);
        }
        for (int i = 0; i < count; ++i, e += step)
            to[i] = flags && flags[i] == mb_final ? entry_word<W>(e, size) : special_word<W>;
    }
    row write(const multi_arr *node, int level) {
        const row r = {used, short_node(table, node)};
        const int first = r.is_short ? 0x80 : 0, count = r.is_short ? 64 : 256;
        used += size_t(count);
        W *const to = words + r.index;
        write_entries(node, to, first, count);
        measure(to, count, level, longest);
        if (!node->num_offsets || !node->flag_arr) return r;
        for (int i = 0; i < count; ++i) {
            if (node->flag_arr[first + i] != mb_prefix) continue;
            const multi_arr *next = child(node, first + i);
            if (!next) continue;
            const row below = write(next, level + 1);
            const W kind = below.is_short ? cv_short_row : cv_full_row;
            to[i] = W(below.index / 64) | kind << top_byte<W>;
        }
        return r;
    }
};

template <class W> bool maps_to_itself(W word, unsigned b) {
    const W flag = b ? 0 : W{cv_terminator} << top_byte<W>;
    return (word & ~flag) == (W{1} << top_byte<W> | b);
}

template <class W> bool is_prefix(W word, unsigned kind) { return word >> top_byte<W> == kind; }

template <class W> void find_ascii(const W *words, cv_flat *flat) {
    constexpr uint64_t each_byte = 0x0101010101010101u;
    flat->odd[0] = flat->odd[1] = 0x80 * each_byte;
    unsigned odds = 0;
    for (unsigned b = 0; b < 0x80; ++b) {
        if (maps_to_itself(words[b], b)) continue;
        if (odds == 2) return;
        flat->odd[odds++] = b * each_byte;
    }
    flat->ascii = true;
}

// The row to which a prefix of a kind refers, else the last row.
template <class W> const W *row_after(const cv_flat *flat, W word, unsigned kind) {
    if (!is_prefix(word, kind)) return static_cast<const W *>(flat->none);
    return static_cast<const W *>(flat->words) + size_t(word & cv_row_index) * 64;
}

template <class W> bool find_trails(const W *words, cv_flat *flat) {
    bool any = false;
    for (unsigned lead = 0xE0; lead < 0xF0; ++lead)
        any = any || is_prefix(words[lead], cv_short_row);
    if (!any) return true;
    ext_block<cv_trails> trails(1);
    if (!trails.p) return false;
    for (unsigned i = 0; i < 17 * 64; ++i) {
        const W *const second =
            row_after(flat, i < 1024 ? words[0xE0 + i / 64] : special_word<W>, cv_short_row);
        trails.p->rows[i] = row_after(flat, second[i % 64], cv_short_row);
    }
    for (unsigned b = 0; b < 256; ++b) {
        trails.p->two[b] = row_after(flat, words[b], cv_short_row);
        trails.p->leads[b] = trails.p->rows + 64 * (b >= 0xE0 && b < 0xF0 ? b - 0xE0 : 16);
    }
    flat->trails = trails.release();
    return true;
}

// Follows rows as row_writer writes them.
template <class W> struct row_reader {
    const W *words;
    size_t used, count;
    cv_longest &longest;

    bool read(bool is_short, int level) {
        const size_t size = is_short ? 64 : 256;
        if (level >= cv_max_source || size > count - used) return false;
        const W *const row = words + used;
        used += size;
        const int seen = measure(row, int(size), level, longest);
        for (const int length : longest[level])
            if (length >= int(sizeof(W))) return false;
        if (!(seen & 4)) return true; // no prefix
        for (size_t i = 0; i < size; ++i) {
            const unsigned top = unsigned(row[i] >> top_byte<W>);
            if ((top | 1) != cv_full_row) continue;
            if (size_t(row[i] & cv_row_index) * 64 != used) return false;
            if (!read(top == cv_short_row, level + 1)) return false;
        }
        return true;
    }
};

// Notes what the rows, which the last row follows, have in common. False without memory.
template <class W> bool finish(const W *words, size_t count, cv_flat *flat) {
    flat->words = words;
    flat->none = words + count;
    for (unsigned b = 0; b < 256; ++b)
        flat->second[b] = row_after(flat, words[b], cv_full_row);
    flat->one_byte = count == 256;
    flat->most = 1;
    for (int level = 0; level < cv_max_source; ++level)
        for (const int length : flat->longest[level]) {
            const int most = level ? (length + 1) / 2 : length;
            if (most > flat->most) flat->most = most;
        }
    find_ascii(words, flat);
    return find_trails(words, flat);
}

// Writes the rows of a tree, then the last row.
template <class W> bool build_words(const mb_decode *table, size_t count, cv_flat *flat) {
    ext_block<W> block(count + 256);
    if (!block.p) return false;
    W *const words = block.p;
    row_writer<W> writer = {table, words, 0, flat->longest};
    writer.write(table->root, 0);
    for (size_t i = 0; i < 256; ++i)
        words[count + i] = special_word<W>;
    if (!finish(words, count, flat)) return false;
    block.release();
    return true;
}

template <class W> bool are_rows(const W *words, size_t count, const cv_longest &longest) {
    cv_longest found;
    memset(found, -1, sizeof found);
    row_reader<W> reader = {words, 0, count, found};
    if (!reader.read(false, 0) || reader.used != count) return false;
    for (size_t i = 0; i < 256; ++i)
        if (words[count + i] != special_word<W>) return false;
    return !memcmp(found, longest, sizeof found);
}

template <class W> bool use_words(const void *from, size_t count, bool proved, cv_flat *flat) {
    const W *const words = static_cast<const W *>(from);
    return (proved || are_rows(words, count, flat->longest)) && finish(words, count, flat);
}

void clear(cv_flat *flat, bool wide, bool owns_words) {
    flat->owns_words = owns_words;
    flat->wide = wide;
    flat->trails = nullptr;
    flat->ascii = false;
    memset(flat->longest, -1, sizeof flat->longest);
}

} // namespace

size_t count_cv_words(const mb_decode *table) {
    const size_t count = count_words(table, table->root, 1);
    return count / 64 >= (1u << 24) - 4 ? 0 : count;
}

cv_flat *use_cv_words(const void *words, size_t count, bool wide, const cv_longest &longest,
                      bool proved) {
    if (count < 512 || count / 64 >= 1u << 24) return nullptr;
    ext_block<cv_flat> flat(1);
    if (!flat.p) return nullptr;
    clear(flat.p, wide, false);
    memcpy(flat.p->longest, longest, sizeof longest);
    const bool used = wide ? use_words<uint64_t>(words, count - 256, proved, flat.p)
                           : use_words<uint32_t>(words, count - 256, proved, flat.p);
    return used ? flat.release() : nullptr;
}

cv_flat *build_cv_flat(const mb_decode *table) {
    const size_t count = count_cv_words(table);
    if (!count) return nullptr;
    ext_block<cv_flat> flat(1);
    if (!flat.p) return nullptr;
    clear(flat.p, table->data_size > 4, true);
    const bool built = flat.p->wide ? build_words<uint64_t>(table, count, flat.p)
                                    : build_words<uint32_t>(table, count, flat.p);
    return built ? flat.release() : nullptr;
}

void drop_cv_lead(cv_flat *flat, unsigned byte) { flat->second[byte] = flat->none; }

void free_cv_flat(cv_flat *flat) {
    if (!flat) return;
    if (flat->owns_words) free_ptr(flat->words);
    free_ptr(flat->trails);
    ko_ext_free(flat);
}
