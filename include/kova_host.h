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

/* ---- Locale records ------------------------------------------------------------------------ */

/* Says whether a record holds everything that its files hold. Loading goes on after a string that
 * found no memory or could not be read: the string is absent, and the load succeeds.
 *   loc      a record, also of a failed load
 * Returns 0 for a complete record; KO_ENOMEM where memory was short while the record was loaded,
 * copied or derived from; KO_EIO where a stream reported an error while it was read; KO_EFILE for
 * the record of a file that was not found; KO_ENULL for NULL. The first trouble stays until the
 * record is released, and a copy of a category takes it along. A record in trouble is not shared:
 * the next ko_lc_load of its name reads the file afresh. Memory that runs short in another thread
 * meanwhile counts, too. */
KO_API int ko_lc_status(ko_lc_t loc);

#ifdef __cplusplus
}
#endif

#endif
