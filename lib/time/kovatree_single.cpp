// Name trees that grow one name at a time, in wide characters or bytes, each node a block of its
// own. Only tests call these functions: a locale builds its trees at once, in one block. They
// remain as the plain form of a name tree, whose rules the other follows.
#include "time/kovatree_node.h"

namespace {
// The bytes of the lower-cased characters of a name or text.
struct byte_source {
    widened_source in;
    ko_mchar_t out[8] = {};
    int left = 0, pos = 0;
    int next() {
        if (pos == left) {
            const int wc = in.next();
            if (wc < 0) return wc;
            pos = 0;
            left = bytes_of_wide(in.loc, out, ko_wchar_t(wc));
            if (left < 1) return left = 0, units_bad;
        }
        return out[pos++];
    }
};
} // namespace

// Frees nodes that are blocks of their own, without recursion: children are moved before their
// parent.
template <class Node> static void free_nodes(Node *root) {
    while (root) {
        Node *&child = root->nextc ? root->nextc : root->nextn[0], *const moved = child;
        if (moved) {
            child = moved->nextn[1];
            moved->nextn[1] = root;
            root = moved;
        } else {
            Node *const next = root->nextn[1];
            ko_ext_free(root);
            root = next;
        }
    }
}

template <class Node, class Source>
static int cache_string(kovaloc *loc, Node **root, Source in, int val) {
    const auto make = [] { return static_cast<Node *>(ko_ext_malloc(sizeof(Node))); };
    const int error = insert(root, in, make, val);
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
    byte_source in = {
        {loc, mbs}
    };
    int depth;
    const mb_tnode *const name = find(root, in, &depth);
    const mb_tnode *const node = name ? name : find_nothing(root);
    if (!node) return -1;
    *mbslen = name ? int(in.in.at - mbs) : 0;
    *val = node->val;
    return 0;
}
