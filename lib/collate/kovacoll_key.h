// Writing sort keys: bytes, weights and codes.
#ifndef KOVACOLL_KEY_H
#define KOVACOLL_KEY_H

#include "collate/kovacoll_flat.h"

#include <string.h>

// A key being written: it is gathered in room and passed on to dst, of which maxbytes bytes may be
// written. What does not fit is only counted.
constexpr size_t coll_sink_spare = 16; // a step may store this much beyond full
constexpr size_t coll_sink_full = 512 - coll_sink_spare;
struct coll_sink {
    ko_mchar_t *dst;
    size_t maxbytes;
    size_t written;   // bytes passed on, including those that did not fit
    size_t used;      // bytes gathered in room
    size_t full;      // when more are gathered, room is passed on
    ko_mchar_t *room; // local, or dst itself
    ko_mchar_t local[512];
};
void sink_flush(coll_sink *sink);

// The place in the sink as local variables of a loop: as far as the compiler knows, stores of key
// bytes could change the sink's own fields.
struct sink_place {
    ko_mchar_t *out, *limit;
};
inline sink_place place_in(const coll_sink *sink) {
    return {sink->room + sink->used, sink->room + sink->full};
}
inline void leave_place(sink_place place, coll_sink *sink) {
    sink->used = size_t(place.out - sink->room);
}
inline sink_place flush_place(sink_place place, coll_sink *sink) {
    leave_place(place, sink);
    sink_flush(sink);
    return place_in(sink);
}

inline void sink_byte(coll_sink *sink, unsigned byte) {
    sink->room[sink->used++] = ko_mchar_t(byte);
    if (sink->used > sink->full) sink_flush(sink);
}

inline void sink_bytes(coll_sink *sink, const ko_mchar_t *bytes, size_t n) {
    while (n) {
        const size_t fits = sink->full + 1 - sink->used, some = n < fits ? n : fits;
        memcpy(sink->room + sink->used, bytes, some);
        sink->used += some;
        bytes += some;
        n -= some;
        if (sink->used > sink->full) sink_flush(sink);
    }
}

// Writes a weight in digits of base 254, as many as maxw needs, most significant first.
template <class Sink> inline void write_weight(unsigned w, unsigned maxw, Sink *sink) {
    unsigned v = (w - 2) & 0xFFFF;
    if (maxw >= 64516) {
        sink_byte(sink, v / 64516 + 2);
        v %= 64516;
    }
    if (maxw >= 254) {
        sink_byte(sink, v / 254 + 2);
        v %= 254;
    }
    sink_byte(sink, v + 2);
}
struct coll_widths { // largest weight and largest character code
    unsigned maxw;
    unsigned maxc;
};
// Writes a weight to the key, followed by the character's code if coll_code_tie is set. Codes and
// weights below 2 have no digit of their own.
template <class Sink> inline void write_item(coll_item item, coll_widths widths, Sink *sink) {
    const bool tie = item.weight & coll_code_tie;
    const unsigned w = tie ? item.weight & coll_low_bits : item.weight;
    write_weight(w < 2 ? 2 : w, widths.maxw, sink);
    if (tie) write_weight(item.ch < 2 ? 2 : item.ch, widths.maxc, sink);
}
inline coll_widths key_widths(const kovaloc *loc) {
    const int weights = loc->coll_info.num_weights;
    const mb_decode *chars = static_cast<const mb_decode *>(loc->ctype);
    return {unsigned(weights < 0        ? 0
                     : weights > 0xFFFF ? 0xFFFF
                                        : weights),
            chars && chars->max_char_len > 1 ? 0xFFFFu : 0xFFu};
}
// Writes all passes into the sink. -1 with KO_ENOMEM.
template <class Unit> int walk_key(kovaloc *loc, const Unit *text, size_t len, coll_sink *sink);

#endif
