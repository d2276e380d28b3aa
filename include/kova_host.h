/* Kova for hosts of today: what kova.h cannot say without changing what its calls do.
 *
 * This header adds to kova.h, for C11 and for C++20; handles and types are those of kova.h. The
 * same library serves both: what is declared here carries the symbol version KOVA_2.87. Nothing of
 * it changes what the calls of kova.h answer. Here an error is the result of the call: the error
 * word of a handle is neither read nor written. */
#ifndef KOVA_HOST_H
#define KOVA_HOST_H

#include "kova.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Names --------------------------------------------------------------------------------- */

/* Confines the names that reach the library: none leads to a file outside the places where data
 * files are looked for, so that a host may pass on names that it was sent.
 *   on       1 confines names from now on, 0 lifts that, -1 only asks
 * Returns 1 where names were confined before the call, else 0. A process with raised rights (on
 * Linux: AT_SECURE, as after the start of a set-user-id program) always confines them.
 *
 * A confined name holds no slash, backslash, colon, control character, byte 0xFF or ".."; but the
 * file name that a specification stands for, as "en_us\0333.lco", is one. Every other name given to
 * a call that opens locales, charmaps or conversions, and every one in KO_ALL, KO_LANG and the
 * variables of the categories, fares like the name of a file that does not exist; so does one given
 * to ko_path_search, and every path given to ko_open_file. Directories, the file name of a
 * registry, KO_PATH and VANTORDIR are the host's own and not confined. One setting for the process:
 * call it before other threads load. */
KO_API int ko_secure_names(int on);

/* ---- Locale records ------------------------------------------------------------------------ */

/* Says whether a record holds everything that its files hold. Loading goes on after a string that
 * found no memory or could not be read: the string is absent, and the load succeeds.
 *   loc      a record, also of a failed load
 * Returns 0 for a complete record; KO_ENOMEM where memory was short while the record was loaded,
 * copied or derived from; KO_EIO where a stream reported an error while it was read; KO_EFILE where
 * ko_lc_load or ko_createlocale did not find a file; KO_ENULL for NULL. The first trouble stays
 * until the record is released, and a copy of a category takes it along. A record in trouble is not
 * shared: the next ko_lc_load of its name reads the file afresh. Memory that runs short in another
 * thread meanwhile counts, too. */
KO_API int ko_lc_status(ko_lc_t loc);

#ifdef __cplusplus
}
#endif

#endif
