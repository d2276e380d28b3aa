// Trees of names: look-up, and the trees of a locale's times.
#include "time/kovatree_node.h"

#include <string.h>

namespace {
struct table_source { // bytes of a single-byte code set
    const unsigned char *table;
    const ko_mchar_t *at;
    int next() { return *at ? table[*at++] : units_end; }
};
} // namespace

// ---- Look-up ------------------------------------------------------------------------------------

template <class Source, class Unit>
static inline wc_found look_up(Source in, const wc_tnode *root, const Unit *text) {
    wc_found found = {};
    found.node = find(root, in, &found.seen);
    if (found.node)
        found.len = int(in.at - text);
    else
        found.node = find_nothing(root);
    return found;
}

wc_found find_name(kovaloc *loc, const wc_tnode *root, const ko_wchar_t *text) {
    if (!root) return {};
    return look_up(wide_source{loc, text}, root, text);
}

wc_found find_name(kovaloc *loc, const wc_tnode *root, const ko_mchar_t *text) {
    if (!root) return {};
    if (const unsigned char *table = loc->exp.sb_tolower_table)
        return look_up(table_source{table, text}, root, text);
    return look_up(widened_source{loc, text}, root, text);
}

wc_found find_longest_name(kovaloc *loc, const wc_tnode *root, const ko_wchar_t *text, int most) {
    wide_source in = {loc, text};
    wc_found found = {};
    for (const wc_tnode *level = root; level && found.seen < most; ++found.seen) {
        const int c = in.next();
        const wc_tnode *const node = c < 0 ? nullptr : node_across(level, c);
        if (!node) break;
        if (node->set) found.node = node, found.len = found.seen + 1;
        level = node->nextc;
    }
    return found;
}

// ---- The trees of a locale's times --------------------------------------------------------------

namespace {
// The names of one tree, with a pointer every so many bytes; the value of each name is its index.
struct name_list {
    wc_tnode *ltime::*tree;
    const void *first;
    int count;
    size_t stride;
    bool with_nothing; // does an empty name count?
};
} // namespace

static const ko_wchar_t *name_at(const name_list &list, int index) {
    const ko_wchar_t *name;
    memcpy(&name, static_cast<const char *>(list.first) + size_t(index) * list.stride, sizeof name);
    return name && (*name || list.with_nothing) ? name : nullptr;
}

static constexpr int tree_count = 8;

// Empty digits would never end a number.
static void list_names(const ltime *t, name_list (&lists)[tree_count]) {
    constexpr size_t one = sizeof(ko_wchar_t *);
    const lera *const eras = t->decode_era;
    const name_list all[tree_count] = {
        {&ltime::abbr_day_cache,   t->w_abday,                     7,                 one,          true },
        {&ltime::full_day_cache,   t->w_day,                       7,                 one,          true },
        {&ltime::abbr_mon_cache,   t->w_abmon,                     t->abmon_count,    one,          true },
        {&ltime::full_mon_cache,   t->w_mon,                       t->mon_count,      one,          true },
        {&ltime::abbr_era_cache,   eras ? &eras->w_abbr : nullptr, t->era_count,      sizeof(lera), true },
        {&ltime::full_era_cache,   eras ? &eras->w_name : nullptr, t->era_count,      sizeof(lera), true },
        {&ltime::alt_digits_cache, t->w_alt_digits,                t->max_alt_digits, one,          false},
        {&ltime::ampm_cache,       t->w_am_pm,                     2,                 one,          true },
    };
    for (int i = 0; i < tree_count; i++) {
        lists[i] = all[i];
        if (!all[i].first) lists[i].count = 0;
    }
}

// The nodes that all names need at most.
static size_t count_nodes(const name_list (&lists)[tree_count]) {
    size_t nodes = 0;
    for (const name_list &list : lists) {
        for (int i = 0; i < list.count; i++) {
            const ko_wchar_t *const name = name_at(list, i);
            if (name) nodes += *name ? size_t(ko_wcslen(name)) : 1;
        }
    }
    return nodes;
}

int build_name_trees(kovaloc *loc) {
    ltime *t = &loc->ltime_info;
    free_name_trees(t);
    name_list lists[tree_count];
    list_names(t, lists);
    const size_t nodes = count_nodes(lists);
    if (!nodes) return 0;
    ext_block<wc_tnode> block(nodes);
    if (!block.p) return fail(loc, KO_ENOMEM, -1);
    wc_tnode *unused = t->name_nodes = block.release();
    const auto make = [&unused] { return unused++; };
    for (const name_list &list : lists) {
        for (int i = 0; i < list.count; i++) {
            wide_source in = {loc, name_at(list, i)};
            if (in.at) insert(&(t->*list.tree), in, make, i);
        }
    }
    return 0;
}

void free_name_trees(ltime *t) {
    free_ptr(t->name_nodes);
    t->name_nodes = nullptr;
    t->abbr_day_cache = t->full_day_cache = t->abbr_mon_cache = t->full_mon_cache = nullptr;
    t->abbr_era_cache = t->full_era_cache = t->alt_digits_cache = t->ampm_cache = nullptr;
}
