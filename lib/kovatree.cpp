// Trees of names: insertion, look-up, and the trees of a locale's times.
#include "kovatree.h"

#include "kovambwc.h"

#include <string.h>

// ---- Characters of names ------------------------------------------------------------------------

// A wide character beyond the tables of a single-byte code set has no case.
static inline ko_wchar_t lower(kovaloc *loc, ko_wchar_t wc) {
    if (const unsigned char *table = loc->exp.sb_tolower_table) return wc < 256 ? table[wc] : wc;
    const ctype_flat *flat = flat_cases(loc);
    if (flat && flat->lower.plain_ascii && wc < 0x80)
        return static_cast<ko_wchar_t>(wc >= 'A' && wc <= 'Z' ? wc + 32 : wc);
    return im_towlower(loc, wc);
}

// Sources of the lower-cased units of a name or text: next() returns one, or why there is none.
constexpr int units_end = -1, units_bad = -2;

struct wide_source {
    kovaloc *loc;
    const ko_wchar_t *at;
    int next() { return *at ? lower(loc, *at++) : units_end; }
};

struct table_source { // bytes of a single-byte code set
    const unsigned char *table;
    const ko_mchar_t *at;
    int next() { return *at ? table[*at++] : units_end; }
};

struct widened_source {
    kovaloc *loc;
    const ko_mchar_t *at;
    int next() {
        ko_wchar_t wc;
        const int n = ko_full_mbtowc(loc, &wc, at, 4);
        if (n < 1) return n < 0 ? units_bad : units_end;
        at += n;
        return lower(loc, wc);
    }
};

// The bytes of those characters.
struct byte_source {
    widened_source in;
    ko_mchar_t out[8] = {};
    int left = 0, pos = 0;
    int next() {
        if (pos == left) {
            const int wc = in.next();
            if (wc < 0) return wc;
            pos = 0;
            left = ko_full_wctomb(in.loc, out, static_cast<ko_wchar_t>(wc));
            if (left < 1) return left = 0, units_bad;
        }
        return out[pos++];
    }
};

// ---- Nodes --------------------------------------------------------------------------------------

template <class Node> static const Node *node_across(const Node *level, int c) {
    while (level && level->c != c)
        level = level->nextn;
    return level;
}

// The place of a character's node among those at a position, NULL inside when it has none yet.
template <class Node> static Node **slot_across(Node **level, int c) {
    while (*level && (*level)->c != c)
        level = &(*level)->nextn;
    return level;
}

// Inserts what the source yields; a name of nothing stands at the top with the character 0. make()
// returns the memory of a node. 0 or the error number; nodes made before an error stay, without a
// name that ends there.
template <class Node, class Source, class Make>
static int insert(Node **root, Source &in, Make make, int val) {
    int c = in.next();
    for (Node **level = root; c != units_bad;) {
        const int unit = c < 0 ? 0 : c;
        Node **slot = slot_across(level, unit);
        if (!*slot) {
            Node *const made = make();
            if (!made) return KO_ENOMEM;
            *made = {};
            made->c = static_cast<decltype(made->c)>(unit);
            *slot = made;
        }
        if (c >= 0) c = in.next();
        if (c == units_end) {
            (*slot)->val = val;
            (*slot)->set = 1;
            return 0;
        }
        level = &(*slot)->nextc;
    }
    return KO_EILSEQ;
}

// The shortest name, not of nothing, that the source begins with. *depth gets the units that
// matched on the way.
template <class Node, class Source>
static const Node *find(const Node *root, Source &in, int *depth) {
    const Node *level = root;
    for (*depth = 0; level; ++*depth) {
        const int c = in.next();
        const Node *const node = c < 0 ? nullptr : node_across(level, c);
        if (!node) break;
        // At the top the value of a 0 is that of the name of nothing.
        if (node->set && (c || *depth)) return ++*depth, node;
        level = node->nextc;
    }
    return nullptr;
}

template <class Node> static const Node *find_nothing(const Node *root) {
    const Node *const node = node_across(root, 0);
    return node && node->set ? node : nullptr;
}

// Frees nodes of one block each without recursion: children are moved in front of their parent.
template <class Node> static void free_nodes(Node *root) {
    while (root) {
        Node *const child = root->nextc;
        if (child) {
            root->nextc = child->nextn;
            child->nextn = root;
            root = child;
        } else {
            Node *const next = root->nextn;
            ko_ext_free(root);
            root = next;
        }
    }
}

// ---- Trees of single nodes ----------------------------------------------------------------------

template <class Node, class Source>
static int cache_string(kovaloc *loc, Node **root, Source in, int val) {
    const auto make = [] { return static_cast<Node *>(ko_ext_malloc(sizeof(Node))); };
    const auto insert_quietly = [&] {
        errno_guard kept(loc); // what is no character of the case table has no lower case
        return insert(root, in, make, val);
    };
    const int error = insert_quietly();
    return error ? fail(loc, error, -1) : 0;
}

int cache_wc_string(kovaloc *loc, wc_tnode **root, const ko_mchar_t *string, int val) {
    return cache_string(loc, root, widened_source{loc, string}, val);
}

int cache_mb_string(kovaloc *loc, mb_tnode **root, const ko_mchar_t *string, int val) {
    return cache_string(loc, root,
                        byte_source{
                            {loc, string}
    },
                        val);
}

void free_wc_cache(wc_tnode *root) { free_nodes(root); }

void free_mb_cache(mb_tnode *root) { free_nodes(root); }

// ---- Look-up ------------------------------------------------------------------------------------

template <class Source, class Unit>
static inline wc_found look_up(Source in, const wc_tnode *root, const Unit *text) {
    wc_found found = {};
    found.node = find(root, in, &found.seen);
    if (found.node)
        found.len = static_cast<int>(in.at - text);
    else
        found.node = find_nothing(root);
    return found;
}

wc_found find_name(kovaloc *loc, const wc_tnode *root, const ko_wchar_t *text) {
    if (!root) return {};
    if (loc->exp.sb_tolower_table) return look_up(wide_source{loc, text}, root, text);
    errno_guard kept(loc); // what is no character has no lower case
    return look_up(wide_source{loc, text}, root, text);
}

wc_found find_name(kovaloc *loc, const wc_tnode *root, const ko_mchar_t *text) {
    if (!root) return {};
    if (const unsigned char *table = loc->exp.sb_tolower_table)
        return look_up(table_source{table, text}, root, text);
    errno_guard kept(loc);
    return look_up(widened_source{loc, text}, root, text);
}

int validate_wc_string(kovaloc *loc, const wc_tnode *root, const ko_wchar_t *wcs, int *wcslen,
                       int *val) {
    const wc_found found = find_name(loc, root, wcs);
    if (!found.node) return -1;
    *wcslen = found.len;
    *val = found.node->val;
    return 0;
}

int validate_mb_string(kovaloc *loc, const mb_tnode *root, const ko_mchar_t *mbs, int *mbslen,
                       int *val) {
    errno_guard kept(loc);
    byte_source in = {
        {loc, mbs}
    };
    int depth;
    const mb_tnode *const name = find(root, in, &depth);
    const mb_tnode *const node = name ? name : find_nothing(root);
    if (!node) return -1;
    *mbslen = name ? static_cast<int>(in.in.at - mbs) : 0;
    *val = node->val;
    return 0;
}

// ---- The trees of a locale's times --------------------------------------------------------------

// The names of one tree, a pointer every so many bytes; the value of each is its index.
struct name_list {
    wc_tnode *ltime::*tree;
    const void *first;
    int count;
    size_t stride;
    bool with_nothing; // whether a name of nothing counts
};

static const ko_wchar_t *name_at(const name_list &list, int index) {
    const ko_wchar_t *name;
    memcpy(&name, static_cast<const char *>(list.first) + static_cast<size_t>(index) * list.stride,
           sizeof name);
    return name && (*name || list.with_nothing) ? name : nullptr;
}

static constexpr int tree_count = 8;

// Digits of nothing would never end a number.
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

int build_name_trees(kovaloc *loc) {
    ltime *t = &loc->ltime_info;
    free_name_trees(t);
    name_list lists[tree_count];
    list_names(t, lists);
    size_t nodes = 0; // at most
    for (const name_list &list : lists) {
        for (int i = 0; i < list.count; i++) {
            const ko_wchar_t *const name = name_at(list, i);
            if (name) nodes += *name ? static_cast<size_t>(ko_wcslen(name)) : 1;
        }
    }
    if (!nodes) return 0;
    ext_block<wc_tnode> block(nodes);
    if (!block.p) return fail(loc, KO_ENOMEM, -1);
    wc_tnode *free_node = t->name_nodes = block.release();
    errno_guard kept(loc); // what is no character has no lower case
    for (const name_list &list : lists) {
        for (int i = 0; i < list.count; i++) {
            wide_source in = {loc, name_at(list, i)};
            if (in.at)
                insert(
                    &(t->*list.tree), in, [&free_node] { return free_node++; }, i);
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
