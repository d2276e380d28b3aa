/* A host's own code set: its converter is registered and opened by name, like an installed one.
 *   registered_converter 'text in ASCII'
 * The code set "mirror" has the letters A to Z and a to z in reverse. */
#include <kova.h>

#include <stdio.h>
#include <string.h>

static int mirror(const ko_mchar_t *src, unsigned int left, conv_state *st, conv_res *res) {
    (void)st;
    res->src_len = res->dst_len = 0;
    res->flags = 0;
    if (!left) {
        res->flags = KO_CV_END;
        return 0;
    }
    const unsigned char c = *src;
    res->src_len = res->dst_len = 1;
    res->dst_buf[0] = c;
    if (c >= 'a' && c <= 'z') res->dst_buf[0] = (unsigned char)('a' + 'z' - c);
    if (c >= 'A' && c <= 'Z') res->dst_buf[0] = (unsigned char)('A' + 'Z' - c);
    if (c == 0) res->flags = KO_CV_TERMINATOR;
    if (left == 1) res->flags |= KO_CV_END;
    return 0;
}

int main(int argc, char **argv) {
    const char *text = argc > 1 ? argv[1] : "Order of letters";
    const ko_cv_funcdef row = {"ascii", "mirror", mirror, 1, 1, 1, 1, 1.0f};
    ko_cvfns *list = ko_add_cvfns(NULL, &row);
    ko_cv_t cd;
    if (!list || ko_cv_fnopen(&cd, "en_US.mirror", "en_US.ascii", list) != 0) {
        fprintf(stderr, "the converter does not open\n");
        return 1;
    }
    ko_mchar_t out[256], *to = out;
    const ko_mchar_t *from = (const ko_mchar_t *)text;
    int left = (int)strlen(text), room = (int)sizeof out, substituted = 0;
    const int status = ko_miconv(cd, &from, &left, &to, &room, &substituted);
    if (status == 0) printf("%.*s\n", (int)(to - out), (const char *)out);
    if (status != 0)
        fprintf(stderr, "error %d at byte %d\n", *ko_ext_errno(cd),
                (int)(from - (const ko_mchar_t *)text));
    ko_cv_unload(cd);
    ko_ext_free(list->funcdef_arr);
    ko_ext_free(list);
    return status != 0;
}
