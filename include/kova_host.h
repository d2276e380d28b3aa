/* Kova for hosts of today: what kova.h cannot say without changing what its calls do.
 *
 * This header adds to kova.h, for C11 and C++20, and uses its handles and types. One library serves
 * both headers: what is declared here carries the symbol version KOVA_2.87, and nothing here
 * changes what the calls of kova.h answer. In this header an error is the result of the call: the
 * error word of a handle is neither read nor written. */
#ifndef KOVA_HOST_H
#define KOVA_HOST_H

#include "kova.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Names --------------------------------------------------------------------------------- */

/* Confines the names that reach the library: none leads to a file outside the places where the
 * library looks for data files, so a host may pass on names that it has received from others.
 *   on       1 confines names from now on, 0 ends that, -1 only asks
 * Returns 1 where names were confined before the call, else 0. A process with raised rights (on
 * Linux: AT_SECURE, as after the start of a set-user-id program) always confines them.
 *
 * While names are confined, a name is allowed if it contains no slash, backslash, colon, control
 * character, byte 0xFF or ".."; the file name that a specification stands for, such as
 * "en_us\0333.lco", is allowed too. A name that is not allowed behaves like the name of a file that
 * does not exist. This holds for names given to calls that open locales, charmaps or conversions
 * and to ko_path_search, and for those in KO_ALL, KO_LANG and the variables of the categories;
 * ko_open_file finds nothing at all. Directories, the file name of a registry, KO_PATH and
 * VANTORDIR are the host's own and not confined. The setting belongs to the whole process: make it
 * before other threads load. */
KO_API int ko_secure_names(int on);

/* ---- Locale records ------------------------------------------------------------------------ */

/* Tells whether a record holds everything that its files hold. When there is no memory for a
 * string, or it cannot be read, loading continues without it and succeeds.
 *   loc      a record, also one whose load failed
 * Returns 0 for a complete record; KO_ENOMEM if memory ran short while the record was loaded or
 * copied or its tables were derived; KO_EIO if a stream reported an error while it was read;
 * KO_EFILE if ko_lc_load or ko_createlocale_2 did not find a file; KO_ENULL for NULL. The first
 * such number stays until the record is released, and a copy of a category takes it along. An
 * incomplete record is not shared: the next ko_lc_load of its name reads the file again. Memory
 * that runs short in another thread at the same time counts, too. */
KO_API int ko_lc_status(ko_lc_t loc);

#ifdef __cplusplus
}
#endif

#endif
