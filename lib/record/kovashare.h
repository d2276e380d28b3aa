// Tables that several records use. Each kind has a list of those in use; a record that has read
// equal data takes the tables from there and gives them back when it is freed. Only loading,
// copying and unloading change the lists and the counts, and the host serialises these.
#ifndef KOVASHARE_H
#define KOVASHARE_H

#include <stdint.h>

// The place of tables in the list of their kind.
template <class Tables> struct shared_place {
    Tables *next;
    uint64_t hash;  // of the data; equal data have equal hashes
    unsigned users; // records; 0: the tables are not in the list
};

template <class Tables> void offer_tables(Tables **list, Tables *tables, uint64_t hash) {
    tables->place = {*list, hash, 1};
    *list = tables;
}

// The tables of equal data, NULL if there are none. The caller counts itself among the users.
template <class Tables, class Equal> Tables *find_tables(Tables *list, uint64_t hash, Equal equal) {
    for (; list; list = list->place.next)
        if (list->place.hash == hash && equal(list)) return list;
    return nullptr;
}

// True if no other record uses them, so that the caller frees them.
template <class Tables> bool give_back_tables(Tables **list, const Tables *tables) {
    Tables **link = list;
    while (*link && *link != tables)
        link = &(*link)->place.next;
    if (!*link) return true;
    if (--(*link)->place.users) return false;
    *link = tables->place.next;
    return true;
}

#endif
