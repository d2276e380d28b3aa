// Reads conversion objects from one data root, or from where they are searched for.
#include "host/kovahost_object.h"

#include "kova_host.h"
#include "locale/kovaextsa.h"
#include "record/kovasetlc.h"

cv_file::~cv_file() {
    close_data_file(&file);
    free_ptr(bytes);
    if (rec) ko_cv_unload(rec);
}

static int open_cv(const data_origin &origin, const char *name, cv_file *file, char **path) {
    int error = KO_OK;
    const bool found =
        origin.root ? find_data_file_below(&file->file, origin.root, name, "cv", "9", path, &error)
                    : find_data_file(&file->file, name, "cv", "9", path, &error);
    return found ? KO_OK : error ? error : KO_EFILE;
}

int read_cv(const data_origin &origin, const char *name, cv_use use, cv_file *file) {
    char *path;
    if (const int error = open_cv(origin, name, file, &path)) return error;
    file->rec = make_descriptor();
    const bool may_map = file->rec && use == cv_use::conversion && !origin.verified;
    const bool mapped = may_map && take_mapped_object(file->file, path, file->rec);
    free_ptr(path);
    if (!file->rec) return KO_ENOMEM;
    if (mapped) return KO_OK;
    file->bytes = read_data_file(&file->file, &file->size);
    if (has_failed(file->file)) return KO_EIO;
    if (!file->bytes) return KO_ENOMEM;
    if (origin.verified && ko_verify_object(file->bytes, file->size, nullptr)) return KO_EOBJECT;
    const unsigned failures = failed_allocations();
    const errno_guard kept(&file->rec->exports.exp);
    text_in in = {.pos = file->bytes, .end = file->bytes + file->size};
    if (!read_cv_object(&in, file->rec)) return KO_OK;
    return failed_allocations() != failures ? KO_ENOMEM : KO_EOBJECT;
}
