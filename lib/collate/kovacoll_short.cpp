// Derives the bytes of short keys from the tables of a collation: which weights share a lead, and
// which weights of the other passes are common.
#include "collate/kovacoll_short.h"

#include "collate/kovacoll_letters.h"

#include <string.h>

#include <array>
#include <atomic>
#include <iterator>

namespace {

constexpr unsigned weights_room = coll_low_bits + 1;
constexpr unsigned enough_runs = 16, most_runs = 32; // lengths that one byte expresses

// A piece of text that delivers weights: a unit, or an element that begins with that unit.
struct source {
    unsigned unit;
    int candidate; // -1: the unit by itself
};

struct weight_facts {
    bool used, tie;
    bool rare;          // only elements and phonetic letters deliver it
    uint16_t least;     // of the units whose sources deliver it, rare ones only if it is rare
    uint16_t low, high; // of the characters that break its ties
    uint16_t ranks;     // their number where each has a code of its own
};

// The state while the weights of one pass are spelled.
struct speller {
    const coll_flat *flat;
    int pass;
    weight_facts facts[weights_room]; // by weight
    unsigned weights;                 // one above the highest that is used
    uint32_t codes[weights_room];
    unsigned place;                       // leading bytes assigned so far
    unsigned commons[short_most_commons]; // weights, the most frequent first
    unsigned num_commons;
    bool ranked;               // the characters of ties are numbered one after the other
    uint16_t tied_by[0x10000]; // if so: the weight whose ties a character breaks
    short_pass *to;
};

} // namespace

// ---- Scripts ----

// Where the letters of another script may begin.
static constexpr uint16_t script_starts[] = {
    0x0000, 0x0370, 0x0400, 0x0530, 0x0590, 0x0600, 0x0700, 0x0780, 0x0900, 0x0980,
    0x0A00, 0x0A80, 0x0B00, 0x0B80, 0x0C00, 0x0C80, 0x0D00, 0x0D80, 0x0E00, 0x0E80,
    0x0F00, 0x1000, 0x10A0, 0x1100, 0x1200, 0x13A0, 0x1400, 0x1680, 0x1700, 0x1780,
    0x1800, 0x1900, 0x2000, 0x2C00, 0x2C80, 0x2D30, 0x2D80, 0x3040, 0x3100, 0xA500,
    0xA800, 0xA930, 0xA980, 0xA9E0, 0xAA00, 0xAA60, 0xAA80, 0xAAE0, 0xAB00};
// First and last of the Latin letters that few words have.
static constexpr uint16_t phonetic[][2] = {
    {0x0180, 0x036F},
    {0x1D00, 0x1DFF},
    {0x2C60, 0x2C7F},
    {0xA720, 0xA7FF},
    {0xAB30, 0xAB6F},
};

// The scripts of all units, by 16: no script begins or ends between.
static constexpr uint8_t phonetic_script = 0xFF;
static constexpr auto scripts = [] {
    std::array<uint8_t, 0x1000> by_16{};
    uint8_t script = 0;
    for (unsigned unit = 0; unit < 0x10000; unit += 16) {
        if (script + 1u < std::size(script_starts) && script_starts[script + 1] == unit) ++script;
        by_16[unit / 16] = script;
    }
    for (const auto &range : phonetic)
        for (unsigned unit = range[0]; unit <= range[1]; unit += 16)
            by_16[unit / 16] = phonetic_script;
    return by_16;
}();

// Phonetic letters and the micro sign, which would make Greek letters of Latin ones.
static bool is_phonetic(unsigned unit) {
    return scripts[unit / 16] == phonetic_script || unit == 0xB5;
}

constexpr unsigned no_script = 0xFFFF;
static unsigned script_of(unsigned unit) {
    const unsigned script = scripts[unit / 16];
    return script == phonetic_script ? 0 : script;
}

// ---- Sources ----

static coll_seq delivered(const coll_flat *flat, int pass, source from, coll_item *own) {
    return yielded(&flat->pass[pass], from.unit, from.candidate, own);
}

static bool has_phonetic(unsigned hi) {
    return memchr(&scripts[hi * 16], phonetic_script, 16) != nullptr;
}

// Does the page lie between equal ones, so that its units are neither the least nor the highest
// that deliver a weight? Units are less welcome as the least ones where they are phonetic.
static bool is_between(const coll_flat *flat, unsigned hi) {
    return hi < 255 && repeats(flat, hi) && repeats(flat, hi + 1) && !has_phonetic(hi - 1) &&
           !has_phonetic(hi);
}

// The pages whose sources are visited: of several equal ones only the first, the outermost, or all.
enum class pages { first, outermost, all };

static bool is_left_out(const coll_flat *flat, unsigned hi, pages which) {
    return which == pages::first ? repeats(flat, hi)
                                 : which == pages::outermost && is_between(flat, hi);
}

template <class Visit>
static void each_source(const coll_flat *flat, int pass, pages which, Visit visit) {
    const coll_flat_pass *p = &flat->pass[pass];
    for (unsigned hi = 0; hi < 256; ++hi) {
        if (is_left_out(flat, hi, which)) continue;
        for (unsigned unit = hi << 8 | !hi; unit >> 8 == hi; ++unit) {
            visit(source{unit, -1});
            const unsigned weight = p->page[hi][unit & 0xFF];
            if (!(weight & coll_expansion)) continue;
            const unsigned n = p->specials[weight & coll_low_bits].num_candidates;
            for (unsigned i = 0; i < n; ++i)
                visit(source{unit, int(i)});
        }
    }
}

// Units come in ascending order.
static void learn(weight_facts *facts, coll_item item, unsigned unit, bool rare) {
    weight_facts *f = &facts[item.weight & coll_low_bits];
    if (!f->used) *f = {true, false, rare, uint16_t(unit), item.ch, item.ch, 0};
    if (item.weight & coll_code_tie) f->tie = true;
    if (f->rare && !rare) {
        f->rare = false;
        f->least = uint16_t(unit);
    }
    if (item.ch < f->low) f->low = item.ch;
    if (item.ch > f->high) f->high = item.ch;
}

static void learn_pass(speller *s) {
    memset(s->facts, 0, sizeof s->facts);
    s->ranked = false;
    const pages which = s->flat->pass[s->pass].ties ? pages::outermost : pages::first;
    each_source(s->flat, s->pass, which, [s](source from) {
        coll_item own;
        const coll_seq seq = delivered(s->flat, s->pass, from, &own);
        const bool rare = from.candidate >= 0 || is_phonetic(from.unit);
        for (unsigned i = 0; i < seq.count; ++i)
            learn(s->facts, seq.items[i], from.unit, rare);
    });
    s->weights = weights_room;
    while (s->weights > 1 && !s->facts[s->weights - 1].used)
        --s->weights;
}

// Counts the characters of ties one by one. False where one breaks the ties of two weights.
static bool rank_ties(speller *s) {
    memset(s->tied_by, 0, sizeof s->tied_by);
    bool clear = true;
    each_source(s->flat, s->pass, pages::all, [s, &clear](source from) {
        coll_item own;
        const coll_seq seq = delivered(s->flat, s->pass, from, &own);
        for (unsigned i = 0; i < seq.count; ++i) {
            const coll_item item = seq.items[i];
            if (!(item.weight & coll_code_tie)) continue;
            const auto weight = uint16_t(item.weight & coll_low_bits);
            uint16_t *const by = &s->tied_by[item.ch];
            clear = clear && (!*by || *by == weight);
            if (!*by) s->facts[weight].ranks++;
            *by = weight;
        }
    });
    for (weight_facts &f : s->facts)
        if (!clear) f.ranks = 0;
    return s->ranked = clear;
}

// ---- Spelling ----

constexpr unsigned two_digits = short_digits * short_digits;

static unsigned span(const weight_facts &f) {
    if (!f.tie) return 1;
    return f.ranks ? f.ranks : f.high - f.low + 1u;
}

// A code of count bytes whose digits are the number. Ties add the character's code to it.
static uint32_t number_code(const weight_facts &f, unsigned count, unsigned number) {
    if (f.tie) return count << 30 | ((number - f.low) & short_bytes_mask);
    uint32_t bytes = 0;
    for (unsigned i = 0; i < count; ++i, number /= short_digits)
        bytes |= (number % short_digits + short_first) << 8 * i;
    return count << 30 | bytes;
}

// Takes leading bytes for one weight with ties: the codes of its characters follow in one digit or
// two.
static void spell_tie(speller *s, unsigned w) {
    const unsigned n = span(s->facts[w]);
    const bool small = n <= short_digits;
    s->codes[w] =
        number_code(s->facts[w], small ? 2 : 3, s->place * (small ? short_digits : two_digits));
    s->place += small ? 1 : (n + two_digits - 1) / two_digits;
}

// Gives every weight three digits, for tables that nothing else fits. False if three digits are not
// enough.
static bool number_all(speller *s) {
    uint64_t number = 0;
    for (unsigned w = 0; w < s->weights; ++w) {
        if (!s->facts[w].used) continue;
        const uint64_t next = number + span(s->facts[w]);
        if (next > uint64_t{two_digits} * short_digits) return false;
        s->codes[w] = number_code(s->facts[w], 3, unsigned(number));
        number = next;
    }
    return true;
}

// ---- The first pass: leads ----

// Scripts of so many characters that two neighbours rarely meet in a text. Each character takes two
// bytes, and no lead is kept.
static bool is_paged(const weight_facts &f) {
    return f.tie || f.least - 0x3400u < 0xA500 - 0x3400 || f.least - 0xAC00u < 0xFB00 - 0xAC00;
}

namespace {
struct segment { // neighbouring weights of one script
    unsigned first, end;
    unsigned weights, frequent; // frequent: bytes when rare ones share their second bytes
    unsigned slots;             // characters to tell apart
    bool paged;
};
} // namespace

// Does the script have another of the next weights? Letters of a few languages stand among those of
// others, also in blocks of their own.
static bool continues(const speller *s, unsigned w, unsigned script) {
    constexpr unsigned near = 16;
    for (unsigned seen = 0; w < s->weights && seen < near; ++w) {
        const weight_facts &f = s->facts[w];
        if (f.used && !f.rare && !is_paged(f) && script_of(f.least) == script) return true;
        seen += f.used;
    }
    return false;
}

// Rare letters belong to the script of the letters before them, or else to that of the letters
// after them.
static segment next_segment(const speller *s, unsigned from) {
    segment found = {from, from, 0, 0, 0, is_paged(s->facts[from])};
    unsigned script = no_script, rare = 0;
    for (unsigned w = from; w < s->weights; ++w) {
        const weight_facts &f = s->facts[w];
        if (!f.used) continue;
        if (is_paged(f) != found.paged) break;
        const bool letter = !f.rare && !found.paged;
        if (letter && script == no_script) script = script_of(f.least);
        if (letter && script_of(f.least) != script && !continues(s, w, script)) break;
        found.end = w + 1;
        found.weights++;
        found.slots += span(f);
        rare = f.rare ? rare + 1 : 0;
        found.frequent += !rare || rare % short_digits == 1;
    }
    return found;
}

static void spell_paged(speller *s, const segment &part, unsigned longest_span) {
    unsigned number = s->place * short_digits;
    for (unsigned w = part.first; w < part.end; ++w) {
        const weight_facts &f = s->facts[w];
        if (!f.used) continue;
        if (span(f) > longest_span) {
            s->place = (number + short_digits - 1) / short_digits;
            spell_tie(s, w);
            number = s->place * short_digits;
        } else {
            s->codes[w] = number_code(f, 2, number);
            number += span(f);
        }
    }
    s->place = (number + short_digits - 1) / short_digits;
}

// Spells letters from a second digit on, in as many leads as it takes. Returns the next second
// digit.
static unsigned spell_letters(speller *s, const segment &part, unsigned second, bool share) {
    unsigned rare = 0;
    for (unsigned w = part.first; w < part.end; ++w) {
        const weight_facts &f = s->facts[w];
        if (!f.used) continue;
        const bool is_rare = share && f.rare;
        if (!is_rare || rare == short_digits) { // ends a run of rare ones
            second += rare > 0;
            rare = 0;
        }
        if (second == short_digits) {
            s->place++;
            second = 0;
        }
        const unsigned letter = s->place * short_digits + second;
        s->codes[w] = short_keeps_lead | (is_rare ? number_code(f, 3, letter * short_digits + rare)
                                                  : number_code(f, 2, letter));
        rare += is_rare;
        second += !is_rare;
    }
    return second + (rare > 0);
}

// False if there are not enough leads.
static bool spell_first_pass(speller *s, unsigned longest_span) {
    unsigned second = short_digits; // of the last lead of letters, which is full
    bool open = false;
    s->place = 0;
    for (unsigned w = 0; w < s->weights;) {
        if (!s->facts[w].used) {
            ++w;
            continue;
        }
        const segment part = next_segment(s, w);
        w = part.end;
        if (part.paged && (part.slots != part.weights || part.slots > 64)) {
            s->place += open;
            open = false;
            spell_paged(s, part, longest_span);
        } else {
            const unsigned room = open ? short_digits - second : 0;
            const bool fits = part.weights <= room || part.frequent <= room;
            if (!fits) {
                s->place += open;
                second = 0;
            }
            open = true;
            const unsigned left = short_digits - second;
            const bool share = part.weights > left && part.frequent <= left;
            second = spell_letters(s, part, second, share);
        }
        if (s->place + open > short_digits) return false;
    }
    return true;
}

// ---- The other passes: runs ----

namespace {
struct ballot { // of alphabets, then of the other scripts
    unsigned script;
    unsigned weights; // as in speller
    unsigned best;    // the weight that most letters of the script have, the lowest of several
    unsigned highest; // that any of them has
    unsigned *counts; // letters of the script, by weight
    unsigned *votes[2];
};
} // namespace

static void cast_vote(ballot *b) {
    b->votes[script_starts[b->script] >= 0x3000][b->best] += b->counts[b->best];
    memset(b->counts, 0, (b->highest + 1) * sizeof *b->counts);
    b->best = b->highest = 0;
}

static void count_letter(ballot *b, unsigned weight) {
    const unsigned count = ++b->counts[weight], most = b->counts[b->best];
    if (count > most || (count == most && weight < b->best)) b->best = weight;
    if (weight > b->highest) b->highest = weight;
}

static void hold_ballot(const speller *s, ballot *b) {
    each_source(s->flat, s->pass, pages::first, [&](source from) {
        if (from.candidate >= 0) return;
        const unsigned script = script_of(from.unit);
        if (script != b->script) cast_vote(b);
        b->script = script;
        coll_item own, own_first;
        const coll_seq seq = delivered(s->flat, s->pass, from, &own);
        if (!delivered(s->flat, 0, from, &own_first).count) return;
        for (unsigned i = 0; i < seq.count; ++i)
            if (!s->facts[seq.items[i].weight & coll_low_bits].tie)
                count_letter(b, seq.items[i].weight & coll_low_bits);
    });
    cast_vote(b);
}

static unsigned winner(const ballot *b) {
    for (const unsigned *votes : b->votes) {
        unsigned best = 0;
        for (unsigned w = 0; w < b->weights; ++w)
            if (votes[w] > votes[best]) best = w;
        if (votes[best]) return best;
    }
    return weights_room;
}

// Every script votes for the weight that most of its letters have. The two that most letters voted
// for are common: in a locale of its own, Thai differs from other scripts. False without memory.
static bool find_commons(speller *s) {
    const unsigned n = s->weights;
    const ext_block<unsigned> counts(n), alphabets(n), others(n);
    if (!counts.p || !alphabets.p || !others.p) return false;
    for (unsigned *p : {counts.p, alphabets.p, others.p})
        memset(p, 0, n * sizeof *p);
    ballot b = {
        0, n, 0, 0, counts.p, {alphabets.p, others.p}
    };
    hold_ballot(s, &b);
    for (s->num_commons = 0; s->num_commons < short_most_commons; ++s->num_commons) {
        const unsigned best = winner(&b);
        if (best == weights_room) break;
        s->commons[s->num_commons] = best;
        alphabets.p[best] = others.p[best] = 0;
    }
    return true;
}

// Spells all weights, the common ones by leading bytes for their runs. A weight is rare if its
// least unit is not below the bound; neighbouring rare weights share their leading bytes.
static void spell_weights(speller *s, unsigned bound, unsigned commons, unsigned run_bytes) {
    unsigned rare = 0, common = 0; // the run of rare ones, with its leading byte taken
    s->place = 0;
    for (unsigned w = 0; w < s->weights; ++w) {
        const weight_facts &f = s->facts[w];
        if (!f.used) continue;
        const bool runs = (commons && w == s->commons[0]) || (commons > 1 && w == s->commons[1]);
        const bool shares = !runs && f.least >= bound && !f.tie;
        if (!shares || rare == short_digits) rare = 0;
        if (runs) {
            s->to->run_bytes[common] = s->place + short_first;
            s->codes[w] = common++;
            s->place += run_bytes;
        } else if (f.tie) {
            spell_tie(s, w);
        } else if (shares) {
            s->place += !rare;
            s->codes[w] = number_code(f, 2, (s->place - 1) * short_digits + rare++);
        } else {
            s->codes[w] = number_code(f, 1, s->place++);
        }
    }
}

// False if the weights cannot be spelled.
static bool spell_lower_pass(speller *s) {
    static constexpr unsigned bounds[] = {0x10000, 0x180, 0x80, 0};
    for (const unsigned bound : bounds)
        for (unsigned commons = s->num_commons;; --commons) {
            spell_weights(s, bound, commons, 0);
            const unsigned left = s->place < short_digits ? short_digits - s->place : 0;
            const unsigned each = commons ? left / commons : 0, runs = each ? (each - 1) / 3 : 0;
            if (commons ? runs >= (bound ? enough_runs : 1) : s->place <= short_digits) {
                s->to->longest_run = runs < most_runs ? runs : most_runs;
                spell_weights(s, bound, commons, commons ? 3 * s->to->longest_run + 1 : 0);
                return true;
            }
            if (commons < 2) break;
        }
    s->to->longest_run = 0;
    return number_all(s);
}

// ---- All passes ----

static bool spell_with_leads(speller *s) {
    static constexpr unsigned spans[] = {0x10000, 12000, 3000, short_digits};
    for (const unsigned longest : spans)
        if (spell_first_pass(s, longest)) return true;
    return false;
}

static bool spell_pass(speller *s) {
    if (s->pass) return spell_lower_pass(s);
    return spell_with_leads(s) || (rank_ties(s) && spell_with_leads(s)) || number_all(s);
}

// Gives the characters of ties their codes, by rank, and marks the weights.
static void keep_ranks(speller *s, uint32_t *codes) {
    memset(codes + s->weights, 0, (short_ranks - s->weights) * sizeof *codes);
    for (unsigned ch = 0; ch <= 0xFFFF; ++ch) {
        const unsigned w = s->tied_by[ch];
        uint32_t *const code = &s->codes[w];
        codes[short_ranks + ch] = 0;
        if (!w) continue;
        // The number of the first character, and then of the next one, is that of low.
        const uint32_t number = *code + s->facts[w].low;
        codes[short_ranks + ch] = (*code & ~short_bytes_mask) | ((number - ch) & short_bytes_mask);
        *code = (*code & ~short_bytes_mask) | ((*code + 1) & short_bytes_mask);
        codes[w] = short_ranked;
    }
}

static bool keep_codes(speller *s) {
    const unsigned n = s->weights, room = s->ranked ? short_ranks + 0x10000 : n + 1;
    auto *codes = static_cast<uint32_t *>(ko_ext_malloc(room * sizeof(uint32_t)));
    if (!codes) return false;
    for (unsigned w = 0; w < n; ++w)
        codes[w] = s->facts[w].used ? s->codes[w] : 0;
    if (s->ranked) keep_ranks(s, codes);
    s->to->codes = codes;
    return true;
}

void free_short_keys(short_keys *keys) {
    if (!keys) return;
    for (const short_pass &pass : keys->pass)
        free_ptr(pass.codes);
    free_short_letters(keys->letters);
    ko_ext_free(keys);
}

static short_keys *build_short_keys(const coll_flat *flat) {
    ext_block<short_keys> keys(1);
    const ext_block<speller> s(1);
    if (!keys.p || !s.p) return nullptr;
    *keys.p = {.num_passes = flat->num_passes};
    s.p->flat = flat;
    for (s.p->pass = 0; s.p->pass < flat->num_passes; ++s.p->pass) {
        s.p->to = &keys.p->pass[s.p->pass];
        learn_pass(s.p);
        const bool known = !s.p->pass || find_commons(s.p);
        if (known && !spell_pass(s.p)) {
            keys.p->num_passes = -1;
            break;
        }
        if (known && keep_codes(s.p)) continue;
        free_short_keys(keys.release());
        return nullptr;
    }
    if (keys.p->num_passes >= 0) keys.p->letters = build_short_letters(flat, keys.p);
    return keys.release();
}

const short_keys *make_short_keys(coll_flat *flat) {
    const std::atomic_ref<short_keys *> shared(flat->keys);
    short_keys *found = nullptr;
    short_keys *const fresh = build_short_keys(flat);
    if (!fresh || shared.compare_exchange_strong(found, fresh, std::memory_order_acq_rel))
        return fresh;
    free_short_keys(fresh); // another thread was faster
    return found;
}
