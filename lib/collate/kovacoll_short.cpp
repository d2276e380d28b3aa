// Derives the bytes of short keys from the tables of a collation: which weights are letters of one
// lead, which weight of a lower pass is the common one, and what has to be told apart at all.
#include "collate/kovacoll_short.h"

#include <atomic>
#include <string.h>

namespace {

constexpr unsigned weights_room = coll_low_bits + 1;
constexpr unsigned enough_runs = 16, most_runs = 32; // of common weights, in a byte
constexpr unsigned few_weights =
    short_digits - 3 * enough_runs - 1; // have a byte each beside those

// What spells a text: one of its units, or an element that begins with it.
struct source {
    unsigned unit;
    int candidate; // -1: the unit by itself
};

struct weight_facts {
    bool used, tie;
    uint16_t least;     // of the units whose sources deliver it
    uint16_t low, high; // of the characters that break its ties
    uint16_t label;     // weights of one label need not be told apart; rises with the weights
};

// A pass while its weights are spelled.
struct speller {
    const coll_flat *flat;
    int pass;
    weight_facts facts[weights_room];  // by weight
    weight_facts labels[weights_room]; // by label
    uint32_t codes[weights_room];      // by label
    unsigned place;                    // leading bytes given away
    unsigned common;                   // label; weights_room: none
    short_pass *to;
};

} // namespace

// ---- Sources ----

static coll_seq delivered(const coll_flat *flat, int pass, source from, coll_item *own) {
    const coll_flat_pass *p = &flat->pass[pass];
    const uint16_t weight = p->page[from.unit >> 8][from.unit & 0xFF];
    if (weight == coll_ignored_weight) return {nullptr, 0};
    if (!(weight & coll_expansion)) {
        *own = {weight, static_cast<ko_wchar_t>(from.unit)};
        return {own, 1};
    }
    const coll_special &special = p->specials[weight & coll_low_bits];
    return from.candidate < 0 ? special.own : special.candidates[from.candidate].seq;
}

// Has this high byte the pages of the one before it, in every pass?
static bool repeats(const coll_flat *flat, unsigned hi) {
    bool same = hi > 0;
    for (int p = 0; same && p < flat->num_passes; ++p)
        same = flat->pass[p].page[hi] == flat->pass[p].page[hi - 1];
    return same;
}

// Visits the sources, of repeated pages only the first ones unless asked for all.
template <class Visit> static void each_source(const coll_flat *flat, bool all, Visit visit) {
    const coll_flat_pass *p = &flat->pass[0];
    for (unsigned hi = 0; hi < 256; ++hi) {
        if (!all && repeats(flat, hi)) continue;
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

static void learn(weight_facts *facts, coll_item item, unsigned unit) {
    weight_facts *f = &facts[item.weight & coll_low_bits];
    const auto least = uint16_t(unit);
    if (!f->used) *f = {true, false, least, item.ch, item.ch, 0};
    if (item.weight & coll_code_tie) f->tie = true;
    if (least < f->least) f->least = least;
    if (item.ch < f->low) f->low = item.ch;
    if (item.ch > f->high) f->high = item.ch;
}

static void learn_pass(speller *s) {
    memset(s->facts, 0, sizeof s->facts);
    each_source(s->flat, s->flat->pass[s->pass].ties, [s](source from) {
        coll_item own;
        const coll_seq seq = delivered(s->flat, s->pass, from, &own);
        for (unsigned i = 0; i < seq.count; ++i)
            learn(s->facts, seq.items[i], from.unit);
    });
}

// ---- Spelling ----

constexpr unsigned two_digits = short_digits * short_digits;

static unsigned span(const weight_facts &f) { return f.tie ? f.high - f.low + 1u : 1; }

// A code of count bytes whose digits are the number. Ties add the character's code to it.
static uint32_t number_code(const weight_facts &f, unsigned count, unsigned number) {
    if (f.tie) return count << 30 | ((number - f.low) & short_bytes_mask);
    uint32_t bytes = 0;
    for (unsigned i = 0; i < count; ++i, number /= short_digits)
        bytes |= (number % short_digits + short_first) << 8 * i;
    return count << 30 | bytes;
}

// Takes leading bytes for one weight with ties: its codes follow in one digit or two.
static void spell_tie(speller *s, unsigned w) {
    const unsigned n = span(s->labels[w]);
    const bool small = n <= short_digits;
    s->codes[w] =
        number_code(s->labels[w], small ? 2 : 3, s->place * (small ? short_digits : two_digits));
    s->place += small ? 1 : (n + two_digits - 1) / two_digits;
}

// All weights by three digits: for tables that nothing else fits. False where they do not.
static bool number_all(speller *s) {
    uint64_t number = 0;
    for (unsigned w = 0; w < weights_room; ++w) {
        if (!s->labels[w].used) continue;
        const uint64_t next = number + span(s->labels[w]);
        if (next > uint64_t{two_digits} * short_digits) return false;
        s->codes[w] = number_code(s->labels[w], 3, unsigned(number));
        number = next;
    }
    return true;
}

// ---- The first pass: leads ----

// Where the letters of another script may begin.
static constexpr uint16_t script_starts[] = {
    0x0000, 0x0370, 0x0400, 0x0530, 0x0590, 0x0600, 0x0700, 0x0780, 0x0900, 0x0980, 0x0A00,
    0x0A80, 0x0B00, 0x0B80, 0x0C00, 0x0C80, 0x0D00, 0x0D80, 0x0E00, 0x0E80, 0x0F00, 0x1000,
    0x10A0, 0x1100, 0x1200, 0x13A0, 0x1400, 0x1680, 0x1700, 0x1780, 0x1800, 0x1900, 0x2000,
    0x2C00, 0x2C80, 0x2D30, 0x2D80, 0x3040, 0x3100, 0xA500, 0xA800};

static bool is_phonetic(unsigned unit) { // Latin letters that few words have
    return unit - 0x180 < 0x370 - 0x180 || unit - 0x1D00 < 0x1E00 - 0x1D00 ||
           unit - 0x2C60 < 0x20 || unit - 0xA720 < 0xE0 || unit - 0xAB30 < 0x40;
}

static unsigned script_of(unsigned unit) {
    if (is_phonetic(unit)) return 0;
    unsigned script = 0;
    while (script + 1 < sizeof script_starts / sizeof *script_starts &&
           script_starts[script + 1] <= unit)
        ++script;
    return script;
}

// Scripts of many characters, of which a text rarely has two neighbours: two bytes each, and no
// lead is kept.
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

static segment next_segment(const speller *s, unsigned from) {
    segment found = {from, from, 0, 0, 0, is_paged(s->labels[from])};
    const unsigned script = script_of(s->labels[from].least);
    unsigned rare = 0;
    for (unsigned w = from; w < weights_room; ++w) {
        const weight_facts &f = s->labels[w];
        if (!f.used) continue;
        if (is_paged(f) != found.paged || (!found.paged && script_of(f.least) != script)) break;
        found.end = w + 1;
        found.weights++;
        found.slots += span(f);
        rare = is_phonetic(f.least) ? rare + 1 : 0;
        found.frequent += !rare || rare % short_digits == 1;
    }
    return found;
}

static void spell_paged(speller *s, const segment &part, unsigned longest_span) {
    unsigned number = s->place * short_digits;
    for (unsigned w = part.first; w < part.end; ++w) {
        const weight_facts &f = s->labels[w];
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

// Letters from a second digit on, in as many leads as it takes. Returns the next second digit.
static unsigned spell_letters(speller *s, const segment &part, unsigned second, bool share) {
    unsigned rare = 0;
    for (unsigned w = part.first; w < part.end; ++w) {
        const weight_facts &f = s->labels[w];
        if (!f.used) continue;
        const bool is_rare = share && is_phonetic(f.least);
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

// False where there are not enough leads.
static bool spell_first_pass(speller *s, unsigned longest_span) {
    unsigned second = short_digits; // of the last lead of letters, which is full
    bool open = false;
    s->place = 0;
    for (unsigned w = 0; w < weights_room;) {
        if (!s->labels[w].used) {
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

// ---- Lower passes: labels ----

// Texts that come to a lower pass have the same weights in the first. The walks through the lower
// pass keep step with the first, as long as a weight of the lower pass and the first weight that
// its source has in the first pass together tell how many that has there. The first two weights
// that differ then stand for sources with the same first weight in the first pass: weights that
// have none in common may share a label. What delivers nothing in the first pass stays apart.
namespace {
struct first_weight { // of a source in the first pass, and how many it has there
    uint16_t weight, count;
};
struct pairing {
    const coll_flat *flat;
    int pass;
    unsigned start[weights_room + 1]; // of each weight's firsts
    first_weight *firsts;
    bool loose[weights_room], bound[weights_room]; // sources have none, some in the first pass
    bool unsafe;
};
struct group { // of weights whose sources share a first weight
    unsigned next_label;
    unsigned weight; // 1 + the last one
    unsigned count;
};
} // namespace

static void pair_source(pairing *to, source from, bool count) {
    coll_item own, own_first;
    const coll_seq seq = delivered(to->flat, to->pass, from, &own);
    const coll_seq first = delivered(to->flat, 0, from, &own_first);
    if (first.count > 0xFFFF || (first.count && !seq.count)) to->unsafe = true;
    for (unsigned i = 0; i < seq.count; ++i) {
        const unsigned w = seq.items[i].weight & coll_low_bits;
        if (i || !first.count) {
            to->loose[w] = true;
        } else if (count) {
            to->bound[w] = true;
            ++to->start[w];
        } else {
            to->firsts[--to->start[w]] = {uint16_t(first.items[0].weight & coll_low_bits),
                                          uint16_t(first.count)};
        }
    }
}

// The label of a weight among those from base on. False where its sources do not keep step.
static bool label_weight(const pairing *of, unsigned w, unsigned base, group *groups,
                         uint16_t *label) {
    unsigned least = base;
    for (unsigned i = of->start[w]; i < of->start[w + 1]; ++i) {
        group *g = &groups[of->firsts[i].weight];
        if (g->weight == w + 1 && g->count != of->firsts[i].count) return false;
        g->weight = w + 1;
        g->count = of->firsts[i].count;
        if (g->next_label > least) least = g->next_label;
    }
    for (unsigned i = of->start[w]; i < of->start[w + 1]; ++i)
        groups[of->firsts[i].weight].next_label = least + 1;
    *label = uint16_t(least);
    return true;
}

static bool label_pairs(const pairing *of, const weight_facts *facts, group *groups,
                        uint16_t *labels) {
    unsigned base = 0, free = 0; // the first label of the run of weights, the first after all
    for (unsigned w = 0; w < weights_room; ++w) {
        if (!facts[w].used) continue;
        const bool alone = of->loose[w] || facts[w].tie;
        if (of->loose[w] && of->bound[w]) return false;
        if (!label_weight(of, w, alone ? free : base, groups, &labels[w])) return false;
        if (labels[w] >= free) free = labels[w] + 1u;
        if (alone) base = free;
    }
    return true;
}

// How many weights the pass has, their ranks being their labels.
static unsigned label_by_rank(weight_facts *facts) {
    unsigned rank = 0;
    for (unsigned w = 0; w < weights_room; ++w)
        if (facts[w].used) facts[w].label = uint16_t(rank++);
    return rank;
}

// False without memory.
static bool label_pass(speller *s) {
    if (label_by_rank(s->facts) <= few_weights) return true;
    if (!s->flat->pass[0].forward || !s->flat->pass[s->pass].forward) return true;
    const ext_block<pairing> pairs(1);
    if (!pairs.p) return false;
    memset(pairs.p, 0, sizeof *pairs.p);
    pairs.p->flat = s->flat;
    pairs.p->pass = s->pass;
    each_source(s->flat, false, [&](source from) { pair_source(pairs.p, from, true); });
    if (pairs.p->unsafe) return true;
    unsigned sum = 0;
    for (unsigned &start : pairs.p->start)
        start = sum += start;
    const ext_block<first_weight> firsts(sum + 1);
    const ext_block<group> groups(weights_room);
    const ext_block<uint16_t> labels(weights_room);
    if (!firsts.p || !groups.p || !labels.p) return false;
    pairs.p->firsts = firsts.p;
    memset(groups.p, 0, weights_room * sizeof *groups.p);
    each_source(s->flat, false, [&](source from) { pair_source(pairs.p, from, false); });
    if (!label_pairs(pairs.p, s->facts, groups.p, labels.p)) return true;
    for (unsigned w = 0; w < weights_room; ++w)
        s->facts[w].label = labels.p[w];
    return true;
}

// ---- Lower passes: bytes ----

// The label that most letters have; those of alphabets count where there are any.
static bool find_common(speller *s) {
    const ext_block<unsigned> counts(2 * weights_room);
    if (!counts.p) return false;
    memset(counts.p, 0, 2 * weights_room * sizeof *counts.p);
    each_source(s->flat, false, [&](source from) {
        coll_item own, own_first;
        const coll_seq seq = delivered(s->flat, s->pass, from, &own);
        if (!delivered(s->flat, 0, from, &own_first).count) return;
        for (unsigned i = 0; i < seq.count; ++i) {
            const weight_facts &f = s->facts[seq.items[i].weight & coll_low_bits];
            if (!f.tie) ++counts.p[f.label + (from.unit < 0x3000 ? 0 : weights_room)];
        }
    });
    unsigned best = 0;
    for (unsigned i = 0; i < 2 * weights_room; ++i) {
        if (i == weights_room && counts.p[best]) break;
        if (counts.p[i] > counts.p[best]) best = i;
    }
    s->common = counts.p[best] ? best % weights_room : weights_room;
    return true;
}

// Labels are rare whose least unit is not below the bound: neighbours share their leading bytes.
static bool is_rare(const weight_facts &label, unsigned bound) {
    return label.least >= bound && !label.tie;
}

// Spells all labels but the common one, and keeps leading bytes for its runs.
static void spell_labels(speller *s, unsigned bound, unsigned run_bytes) {
    unsigned rare = 0; // the run of rare ones, with its leading byte taken
    s->place = 0;
    for (unsigned label = 0; label < weights_room; ++label) {
        const weight_facts &f = s->labels[label];
        if (!f.used) continue;
        const bool shares = label != s->common && is_rare(f, bound);
        if (!shares || rare == short_digits) rare = 0;
        if (label == s->common) {
            s->to->run_bytes = s->place + short_first;
            s->codes[label] = 0;
            s->place += run_bytes;
        } else if (f.tie) {
            spell_tie(s, label);
        } else if (shares) {
            s->place += !rare;
            s->codes[label] = number_code(f, 2, (s->place - 1) * short_digits + rare++);
        } else {
            s->codes[label] = number_code(f, 1, s->place++);
        }
    }
}

// False where nothing spells them.
static bool spell_lower_pass(speller *s) {
    static constexpr unsigned bounds[] = {0x10000, 0x180, 0x80, 0};
    for (const unsigned bound : bounds) {
        spell_labels(s, bound, 0);
        const unsigned left = s->place < short_digits ? short_digits - s->place : 0;
        const unsigned runs = left ? (left - 1) / 3 : 0;
        const bool fits = s->common == weights_room ? s->place <= short_digits
                                                    : runs >= (bound ? enough_runs : 1);
        if (!fits) continue;
        s->to->longest_run = runs < most_runs ? runs : most_runs;
        spell_labels(s, bound, 3 * s->to->longest_run + 1);
        return true;
    }
    s->to->longest_run = 0;
    return number_all(s);
}

// ---- All passes ----

// What the labels stand for.
static void gather_labels(speller *s) {
    memset(s->labels, 0, sizeof s->labels);
    for (unsigned w = 0; w < weights_room; ++w) {
        const weight_facts &f = s->facts[w];
        if (!f.used) continue;
        weight_facts &label = s->labels[f.label];
        if (!label.used) label = f;
        if (f.least < label.least) label.least = f.least;
    }
}

static bool label_weights(speller *s) {
    for (unsigned w = 0; w < weights_room; ++w)
        s->facts[w].label = uint16_t(w);
    s->common = weights_room;
    return !s->pass || (label_pass(s) && find_common(s));
}

static bool spell_pass(speller *s) {
    static constexpr unsigned spans[] = {0x10000, 12000, 3000, short_digits};
    gather_labels(s);
    if (s->pass) return spell_lower_pass(s);
    for (const unsigned longest : spans)
        if (spell_first_pass(s, longest)) return true;
    return number_all(s);
}

static bool keep_codes(const speller *s) {
    unsigned n = weights_room;
    while (n && !s->facts[n - 1].used)
        --n;
    auto *codes = static_cast<uint32_t *>(ko_ext_malloc((n + 1) * sizeof(uint32_t)));
    if (!codes) return false;
    for (unsigned w = 0; w < n; ++w)
        codes[w] = s->facts[w].used ? s->codes[s->facts[w].label] : 0;
    s->to->codes = codes;
    return true;
}

void free_short_keys(short_keys *keys) {
    if (!keys) return;
    for (const short_pass &pass : keys->pass)
        free_ptr(pass.codes);
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
        const bool labelled = label_weights(s.p);
        if (labelled && !spell_pass(s.p)) {
            keys.p->num_passes = -1;
            break;
        }
        if (labelled && keep_codes(s.p)) continue;
        free_short_keys(keys.release());
        return nullptr;
    }
    return keys.release();
}

const short_keys *short_keys_of(coll_flat *flat) {
    const std::atomic_ref<short_keys *> shared(flat->keys);
    short_keys *found = shared.load(std::memory_order_acquire);
    if (found) return found;
    short_keys *const fresh = build_short_keys(flat);
    if (!fresh || shared.compare_exchange_strong(found, fresh, std::memory_order_acq_rel))
        return fresh;
    free_short_keys(fresh); // another thread was faster
    return found;
}
