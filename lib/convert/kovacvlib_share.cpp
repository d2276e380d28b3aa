// Tables that descriptors share: as long as a conversion is open, further openings of the same
// names get its tables, as loads of a locale that is held get its record.
#include "convert/kovacvlib.h"
#include "locale/kovaextsa.h"

#include <string.h>

#include <initializer_list>

// Tables in use, and what led to them.
struct cv_shared {
    cv_shared *next;
    unsigned users; // descriptors
    iconv_rec model;
    cv_request request;
};

// Newest first. Changed under the state lock.
static constinit cv_shared *held = nullptr;

// Appends a text with its terminator; false where it does not fit.
static bool add_part(cv_request *request, const char *text) {
    const size_t size = strlen(text) + 1;
    if (size > sizeof request->names - request->size) return false;
    memcpy(request->names + request->size, text, size);
    request->size += size;
    return true;
}

bool prepare_request(cv_request *request, const char *to, const char *from) {
    // Hosts with streams of their own see the same calls whatever is open, and so does the log.
    if (stream_hooks_set() || is_logged()) return false;
    request->size = 0;
    if (!add_part(request, to) || !add_part(request, from)) return false;
    for (const char *variable : {"KO_PATH", "VANTORDIR"}) {
        const char *const value = ko_ext_getenv(variable);
        if (!add_part(request, value ? value : "")) return false;
    }
    return stamp_registry(&request->registry);
}

static bool same_request(const cv_request &a, const cv_request &b) {
    return a.size == b.size && !memcmp(a.names, b.names, a.size) && a.registry == b.registry;
}

iconv_rec *take_shared(const cv_request &request) {
    ext_block<iconv_rec> copy(1);
    if (!copy.p) return nullptr;
    const state_lock lock;
    cv_shared *tables = held;
    while (tables && !same_request(tables->request, request))
        tables = tables->next;
    if (!tables) return nullptr;
    ++tables->users;
    *copy.p = tables->model;
    return copy.release();
}

void offer_shared(const cv_request &request, const registry_stamp &read, iconv_rec *cv) {
    if (!(read == request.registry)) return; // it was replaced before it was read
    ext_block<cv_shared> tables(1);
    if (!tables.p) return;
    cv->shared = tables.p;
    *tables.p = {.users = 1, .model = *cv, .request = request};
    const state_lock lock;
    tables.p->next = held;
    held = tables.release();
}

bool give_back_shared(const iconv_rec *cv) {
    cv_shared *const tables = cv->shared;
    if (!tables) return true;
    {
        const state_lock lock;
        if (--tables->users) return false;
        cv_shared **link = &held;
        while (*link != tables)
            link = &(*link)->next;
        *link = tables->next;
    }
    ko_ext_free(tables);
    return true;
}
