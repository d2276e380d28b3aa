// Doubly linked lists of private copies.
#include "kovalists.h"

#include "kovautils.h"

#include <stddef.h>
#include <string.h>

namespace {
// A cell and its data share one block; the data start where any type may stand.
struct alignas(max_align_t) cell_block {
    list_cell cell;
};
} // namespace

link_list *list_create(void) {
    auto *const list = static_cast<link_list *>(ko_ext_malloc(sizeof(link_list)));
    if (list) *list = {};
    return list;
}

list_cell *list_insert(const void *data, size_t size, list_cell *before, link_list *list) {
    if (size > PTRDIFF_MAX - sizeof(cell_block)) return nullptr;
    auto *const block = static_cast<cell_block *>(ko_ext_malloc(sizeof(cell_block) + size));
    if (!block) return nullptr;
    list_cell *const cell = &block->cell;
    cell->next = before;
    cell->prev = before ? before->prev : list->lastLink;
    cell->data = block + 1;
    if (size) memcpy(cell->data, data, size);
    (cell->prev ? cell->prev->next : list->firstLink) = cell;
    (before ? before->prev : list->lastLink) = cell;
    return cell;
}

list_cell *list_delete(list_cell *cell, link_list *list) {
    list_cell *const next = cell->next;
    (cell->prev ? cell->prev->next : list->firstLink) = next;
    (next ? next->prev : list->lastLink) = cell->prev;
    ko_ext_free(cell);
    return next;
}

void list_clear(link_list *list) {
    for (list_cell *cell = list->firstLink; cell;)
        cell = list_delete(cell, list);
}

void list_dispose(link_list *list) {
    if (!list) return;
    list_clear(list);
    ko_ext_free(list);
}
