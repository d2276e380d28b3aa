// Which records can order texts with a length.
#include "host/kovahost_order.h"

#include "collate/kovacoll_text.h"

int unfit_for_order(ko_lc_t handle) {
    if (const int error = unfit(handle, KO_LC_COLLATE)) return error;
    const kovaloc *loc = record(handle);
    if (loc->weights ? loc->weights->raw_fits : by_code(loc) || by_thai(loc)) return 0;
    return loc->status == KO_ENOMEM ? KO_ENOMEM : KO_EOBJECT;
}
