/* What the sources of the extension module kova._kova share. The module uses Python's limited API
 * of version 3.11, so that one build serves that version and all later ones. */
#ifndef KOVA_PYTHON_H
#define KOVA_PYTHON_H

#define PY_SSIZE_T_CLEAN
#define Py_LIMITED_API 0x030B0000
#include <Python.h>

#include "kova_host.h"

/* Python takes and gives functions as pointers to void. */
#pragma GCC diagnostic ignored "-Wpedantic"

/* Texts from this length on, in bytes, are worked on without the interpreter's lock: giving the
 * lock back and taking it again costs about as much as the key of a short text. */
enum { long_text = 8192 };

/* ---- kova_module.c ---- */

typedef struct module_state {
    PyObject *error;     /* kova.Error */
    PyObject *not_found; /* kova.NotFoundError */
    PyTypeObject *locale_type;
    PyTypeObject *converter_type;
} module_state;

extern struct PyModuleDef kova_module;

/* Set an exception that says what failed and why, by the library's number; with its attribute
 * "number". Return NULL. */
PyObject *set_error(module_state *state, int number, const char *what);

/* A str in UTF-8. */
typedef struct utf8_text {
    const char *text;
    size_t length;
    PyObject *owner;
} utf8_text;

/* Surrogates without a partner are refused by the first (UnicodeEncodeError), and kept as three
 * bytes each, which the library takes as ill-formed, by the second. 0, or -1 with an exception. */
int strict_text(PyObject *str, utf8_text *text);
int any_text(PyObject *str, utf8_text *text);
void release_text(utf8_text *text);

/* The state of the module that a type, or the base of a class derived from it, belongs to; NULL
 * with an exception. */
module_state *state_of(PyTypeObject *type);

/* ---- kova_locale.c ---- */

typedef struct locale_object {
    PyObject_HEAD ko_lc_t loc;
    module_state *state;
    PyObject *spec; /* bytes */
} locale_object;

extern PyType_Spec locale_spec;
extern PyType_Spec converter_spec;

/* ---- kova_format.c ---- */

PyObject *locale_format_number(PyObject *self, PyObject *const *args, Py_ssize_t count);
PyObject *locale_format_money(PyObject *self, PyObject *const *args, Py_ssize_t count);
PyObject *locale_format_date(PyObject *self, PyObject *const *args, Py_ssize_t count);
PyObject *locale_read_date(PyObject *self, PyObject *const *args, Py_ssize_t count);
PyObject *locale_to_local(PyObject *self, PyObject *const *args, Py_ssize_t count);
PyObject *locale_to_gregorian(PyObject *self, PyObject *const *args, Py_ssize_t count);
PyObject *locale_langinfo(PyObject *self, PyObject *item);
PyObject *locale_conventions(PyObject *self, PyObject *unused);
PyObject *fail_locale(locale_object *self, int number);

#endif
