// The quick ways of writing and reading times: what nearly every format consists of, on the units
// of the text itself. Everything else, and every error, is left to the engine.
#ifndef KOVATMLIB_QUICK_H
#define KOVATMLIB_QUICK_H

#include "time/kovatmlib_table.h"

// A locale with fewer months is left to the engine; for writing, so is one with more.
constexpr int usual_months = 12;

// A name to write. It is copied as one block, whatever its length.
constexpr size_t block_bytes = 32;
template <class Unit> constexpr size_t block_units = block_bytes / sizeof(Unit);
template <class Unit> struct written_name {
    Unit text[block_units<Unit>];
    int len; // 0: the engine writes it
};

// The full names in their usual spelling, by a hash of their first three units. Only names that the
// tree finds completely and with their own index are included.
template <class Unit> struct exact_name {
    const Unit *name; // NULL: none
    int len, val;
};
template <class Unit> struct exact_list {
    uint32_t factor;
    exact_name<Unit> slot[32];
};
template <class List, class Unit> inline auto &slot_of(List &list, const Unit *text) {
    return list.slot[(text[0] + text[1] * 0x100u + text[2] * 0x10000u) * list.factor >> 27];
}

template <class Unit> struct exact_lists { exact_list<Unit> days, months; };

template <class Unit> struct quick_names {
    exact_lists<Unit> exact;
    written_name<Unit> written[time_lists][usual_months];
};
// What both ways need of a locale. Without it both are off.
struct quick_times {
    bool writes; // a Gregorian locale of the usual months
    quick_names<ko_mchar_t> bytes;
    quick_names<ko_wchar_t> wide;
};

// Writes at most maxsize units, terminator included: bytes of the locale's code set or wide
// characters. Returns the units before the terminator; or -1, with no error stored and out
// undefined, for what the engine must do.
int quick_format(const kovaloc *loc, ko_mchar_t *out, int maxsize, const ko_mchar_t *format,
                 const ko_alt_tm_t *tm);
int quick_format(const kovaloc *loc, ko_wchar_t *out, int maxsize, const ko_wchar_t *format,
                 const ko_alt_tm_t *tm);

// Reads into *ti, which must be empty. Returns the place after what was read; or NULL, with no
// error stored and *ti undefined, for what the engine must do.
const ko_mchar_t *quick_parse(kovaloc *loc, const ko_mchar_t *text, const ko_mchar_t *format,
                              time_info *ti);
const ko_wchar_t *quick_parse(kovaloc *loc, const ko_wchar_t *text, const ko_wchar_t *format,
                              time_info *ti);

#endif
