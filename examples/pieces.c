/* Converts standard input in small pieces, between any two code sets, also stateful ones:
 *   echo 日本語 | pieces utf8 ISO-2022-JP
 * A character may be cut by the end of a piece, and a shift may last from one piece to another. */
#include <kova_host.h>

#include <stdio.h>
#include <string.h>

enum { piece = 8, output = 16 };

/* Converts what is in the buffer and moves the rest, a character that was cut, to its start. */
static int convert(ko_cv_t cd, conv_state *st, ko_mchar_t *buf, int *len) {
    const ko_mchar_t *from = buf;
    int left = *len, status;
    do {
        ko_mchar_t out[output], *to = out;
        int room = output, substituted = 0;
        status = ko_cv_mconv(cd, st, &from, &left, &to, &room, &substituted);
        fwrite(out, 1, (size_t)(to - out), stdout);
        st->first_frag = 0;
    } while (status != 0 && *ko_ext_errno(cd) == KO_E2BIG);
    const int cut = status != 0 && *ko_ext_errno(cd) == KO_EINVAL && !st->last_frag;
    if (status != 0 && !cut) return *ko_ext_errno(cd);
    memmove(buf, from, (size_t)left);
    *len = left;
    return 0;
}

int main(int argc, char **argv) {
    ko_cv_t cd = NULL;
    int error = argc == 3 ? ko_open_conversion(&cd, NULL, argv[1], argv[2], 0) : KO_ENULL;
    if (error) {
        fprintf(stderr, "usage: pieces FROM TO: %s\n", ko_error_text(error));
        return 2;
    }
    conv_state st = {.first_frag = 1};
    ko_mchar_t buf[2 * piece];
    for (int len = 0; !error && !st.last_frag;) {
        const size_t got = fread(buf + len, 1, piece, stdin);
        len += (int)got;
        st.last_frag = got < piece; /* this piece gets what ends a text, such as the way back */
        error = convert(cd, &st, buf, &len);
    }
    if (error) fprintf(stderr, "pieces: %s\n", ko_error_text(error));
    ko_cv_unload(cd);
    return error != 0;
}
