/* Conversions between code sets. */
#include "kova_web.h"

/* A descriptor; or an error of the library, negated. */
int WEB(web_conversion)(const char *from, const char *to, unsigned flags) {
    ko_cv_t cd;
    const int error = ko_open_conversion(&cd, NULL, from, to, flags | KO_OPEN_VERIFY);
    return error ? -error : (int)(intptr_t)cd;
}

void WEB(web_close_conversion)(ko_cv_t cd) { ko_cv_unload(cd); }

int WEB(web_codeset_number)(const char *name) { return ko_codeset_number(NULL, name); }

/* Bytes that always suffice for so many bytes of a text. */
int WEB(web_room)(ko_cv_t cd, int size) { return ko_cv_outbuflen(cd, size); }

/* One piece of a text, as kova.mjs lays it out. */
typedef struct piece {
    const ko_mchar_t *text;
    ko_mchar_t *out;
    int length, room;          /* bytes; become those that were taken and made */
    int last;                  /* the text ends here */
    int first, source, target; /* of the conv_state */
    unsigned extra;            /* bits of ext_state */
    int error, substituted;    /* results */
} piece;

void WEB(web_convert)(ko_cv_t cd, piece *p) {
    conv_state st = {.first_frag = p->first,
                     .last_frag = p->last,
                     .source_state = p->source,
                     .target_state = p->target,
                     .ext_state = (void *)(uintptr_t)p->extra}; /* never an address */
    int left = p->length, space = p->room;
    *ko_ext_errno(cd) = 0;
    p->substituted = 0;
    const int result = ko_cv_mconv(cd, &st, &p->text, &left, &p->out, &space, &p->substituted);
    const int error = *ko_ext_errno(cd);
    p->error = result == 0 ? 0 : error ? error : KO_EILSEQ;
    p->length -= left;
    p->room -= space;
    p->first = st.first_frag;
    p->source = st.source_state;
    p->target = st.target_state;
    p->extra = (unsigned)(uintptr_t)st.ext_state;
}
