// Trees of names, by their lower-cased characters. Deliberately, the shortest stored name at the
// start of a text wins, except among digits.
#ifndef KOVATREE_H
#define KOVATREE_H

#include "time/kovatmlib.h"

struct wc_tnode {
    ko_wchar_t c;    // lower-cased; 0 for the empty name
    int val;         // of the name that ends here
    int set;         // 1 if one does
    wc_tnode *nextc; // the next character of names that share this prefix
    // Other characters at the same position, by a bit of theirs: the lowest at the first node, the
    // next one at every further node. So a look-up passes few of them, however many an object has.
    wc_tnode *nextn[2];
};

// The result of a look-up: the node of the name, NULL for none; the characters that the name takes;
// and those that were examined and matched, which may be more.
struct wc_found {
    const wc_tnode *node;
    int len;
    int seen;
};
wc_found find_name(kovaloc *loc, const wc_tnode *root, const ko_wchar_t *text);
wc_found find_name(kovaloc *loc, const wc_tnode *root, const ko_mchar_t *text); // len in bytes
// The longest name of at most so many characters: digits, unlike names, are read to their end.
wc_found find_longest_name(kovaloc *loc, const wc_tnode *root, const ko_wchar_t *text, int most);

// Builds the eight trees of a record's times from its wide names, with their nodes in one block. 0;
// -1 with the error word set.
int build_name_trees(kovaloc *loc);
void free_name_trees(ltime *t);

// Trees that grow one name at a time (kovatree_single.cpp).
struct mb_tnode {
    ko_mchar_t c;
    int val;
    int set;
    mb_tnode *nextc;
    mb_tnode *nextn[2];
};

// Insert a name, given in multibyte form, with its value; a later one wins. Each node is a block of
// its own. 0; -1 with KO_ENOMEM or KO_EILSEQ.
int cache_wc_string(kovaloc *loc, wc_tnode **root, const ko_mchar_t *string, int val);
int cache_mb_string(kovaloc *loc, mb_tnode **root, const ko_mchar_t *string, int val);
// Find the name at the start of a text: 0 with its length and value, or -1.
int validate_wc_string(kovaloc *loc, const wc_tnode *root, const ko_wchar_t *wcs, int *wcslen,
                       int *val);
int validate_mb_string(kovaloc *loc, const mb_tnode *root, const ko_mchar_t *mbs, int *mbslen,
                       int *val);
void free_wc_cache(wc_tnode *root);
void free_mb_cache(mb_tnode *root);

#endif
