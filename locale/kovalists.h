// Doubly linked lists of private copies.
#ifndef KOVALISTS_H
#define KOVALISTS_H

#include <stddef.h>

struct list_cell {
    list_cell *next, *prev;
    void *data; // the copy, aligned for every type, in the cell's own block
};

struct link_list {
    list_cell *firstLink, *lastLink;
};

link_list *list_create(void); // NULL without memory
// Inserts a copy of size bytes before a cell, or at the end with NULL. NULL without memory.
list_cell *list_insert(const void *data, size_t size, list_cell *before, link_list *list);
list_cell *list_delete(list_cell *cell, link_list *list); // returns the next cell
void list_clear(link_list *list);
void list_dispose(link_list *list); // NULL allowed

#endif
