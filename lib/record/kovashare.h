// Tables that several records use. Each kind has a list of those in use; a record that has read
// equal data takes the tables from there and gives them back when it is freed. Lists and counts
// are read and changed under the state lock; tables in a list do not change.
#ifndef KOVASHARE_H
#define KOVASHARE_H

#include "locale/kovaextsa.h"

// The place of tables in the list of their kind.
template <class Tables> struct shared_place {
    Tables *next;
    uint64_t hash;  // of the data; equal data have equal hashes
    unsigned users; // records; 0: the tables are not in the list
};

template <class Tables>
void offer_tables(const state_lock &, Tables **list, Tables *tables, uint64_t hash) {
    tables->place = {*list, hash, 1};
    *list = tables;
}

// The tables of equal data, now with one more user; NULL if there are none.
template <class Tables, class Equal>
Tables *take_tables(Tables *const *list, uint64_t hash, Equal equal) {
    const state_lock lock;
    Tables *tables = *list;
    while (tables && !(tables->place.hash == hash && equal(tables)))
        tables = tables->place.next;
    if (tables) ++tables->place.users;
    return tables;
}

// True if no other record uses them, so that the caller frees them.
template <class Tables> bool give_back_tables(Tables **list, const Tables *tables) {
    const state_lock lock;
    Tables **link = list;
    while (*link && *link != tables)
        link = &(*link)->place.next;
    if (!*link) return true;
    if (--(*link)->place.users) return false;
    *link = tables->place.next;
    return true;
}

#endif
