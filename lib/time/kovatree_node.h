// What the sources of name trees share: the characters of names, insertion and look-up.
#ifndef KOVATREE_NODE_H
#define KOVATREE_NODE_H

#include "chars/kovambwc.h"
#include "time/kovatree.h"

// A wide character beyond the tables of a single-byte code set has no case.
inline ko_wchar_t lower(const kovaloc *loc, ko_wchar_t wc) {
    if (const unsigned char *table = loc->exp.sb_tolower_table) return wc < 256 ? table[wc] : wc;
    const ctype_flat *flat = flat_cases(loc);
    if (flat && flat->lower.plain_ascii && wc < 0x80)
        return ko_wchar_t(wc >= 'A' && wc <= 'Z' ? wc + 32 : wc);
    return lower_of(loc, wc); // what is not a character has no lower case
}

// Sources of the lower-cased units of a name or text: next() returns one, or why there is none.
constexpr int units_end = -1, units_bad = -2;

struct wide_source {
    const kovaloc *loc;
    const ko_wchar_t *at;
    int next() { return *at ? lower(loc, *at++) : units_end; }
};

struct widened_source {
    const kovaloc *loc;
    const ko_mchar_t *at;
    int next() {
        ko_wchar_t wc;
        const int n = read_wide_char(loc, &wc, at);
        if (n < 1) return n < 0 ? units_bad : units_end;
        at += n;
        return lower(loc, wc);
    }
};

template <class Node> inline const Node *node_across(const Node *level, int c) {
    for (int bits = c; level && level->c != c; bits >>= 1)
        level = level->nextn[bits & 1];
    return level;
}

// The place of a character's node among those at a position: of the node, or of the missing one.
template <class Node> inline Node **node_slot(Node **level, int c) {
    for (int bits = c; *level && (*level)->c != c; bits >>= 1)
        level = &(*level)->nextn[bits & 1];
    return level;
}

// Inserts the name that the source yields; the empty name is at the top with the character 0.
// make() returns room for a node. 0 or the error number; nodes made before an error stay, but no
// name ends at them.
template <class Node, class Source, class Make>
inline int insert(Node **root, Source &in, Make make, int val) {
    int c = in.next();
    for (Node **level = root; c != units_bad;) {
        Node *&node = *node_slot(level, c < 0 ? 0 : c);
        if (!node) {
            if (!(node = make())) return KO_ENOMEM;
            *node = {.c = static_cast<decltype(Node::c)>(c < 0 ? 0 : c)};
        }
        if (c >= 0) c = in.next();
        if (c == units_end) {
            node->val = val;
            node->set = 1;
            return 0;
        }
        level = &node->nextc;
    }
    return KO_EILSEQ;
}

// The shortest name with which the source begins, the empty one only if no other matches. *depth
// gets the number of units that matched.
template <class Node, class Source>
inline const Node *find(const Node *root, Source &in, int *depth) {
    const Node *level = root;
    for (*depth = 0; level; ++*depth) {
        const int c = in.next();
        const Node *const node = c < 0 ? nullptr : node_across(level, c);
        if (!node) break;
        // At the top, the value of 0 is that of the empty name.
        if (node->set && (c || *depth)) return ++*depth, node;
        level = node->nextc;
    }
    return nullptr;
}

template <class Node> inline const Node *find_nothing(const Node *root) {
    const Node *const node = node_across(root, 0);
    return node && node->set ? node : nullptr;
}

#endif
