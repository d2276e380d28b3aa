/* What the sources of the WebAssembly module share. kova.mjs calls what WEB marks: functions on
 * numbers and addresses, in which a result below 0 is an error of the library, negated. */
#ifndef KOVA_WEB_H
#define KOVA_WEB_H

#include "kova_host.h"

#define WEB(name) __attribute__((export_name(#name), visibility("default"))) name

/* What the page gives to the module. */
#define PAGE(name) __attribute__((import_module("page"), import_name(#name)))

#endif
