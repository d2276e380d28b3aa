/* The type kova._kova.Locale: a record of ko_open_locale; order, keys and case. */
#include "kova_python.h"

PyObject *fail_locale(locale_object *self, int number) {
    const char *spec = self->spec ? PyBytes_AsString(self->spec) : NULL;
    return set_error(self->state, number, spec ? spec : "a locale");
}

/* ---- Making and freeing ---- */

static int open_record(locale_object *self, const char *root, const char *spec, unsigned flags) {
    int error;
    Py_BEGIN_ALLOW_THREADS error = ko_open_locale(&self->loc, root, spec, flags);
    Py_END_ALLOW_THREADS if (error == 0) error = ko_locale_utf8(self->loc);
    if (error == 0) return 0;
    fail_locale(self, error);
    return -1;
}

static PyObject *new_locale(PyTypeObject *type, PyObject *args, PyObject *unused) {
    const char *spec, *root;
    unsigned flags;
    (void)unused; /* those of a derived class */
    if (!PyArg_ParseTuple(args, "szI", &spec, &root, &flags)) return NULL;
    module_state *state = state_of(type);
    allocfunc allocate = (allocfunc)PyType_GetSlot(type, Py_tp_alloc);
    locale_object *self = state ? (locale_object *)allocate(type, 0) : NULL;
    if (!self) return NULL;
    self->state = state;
    self->spec = PyBytes_FromString(spec);
    if (self->spec && open_record(self, root, spec, flags) == 0) return (PyObject *)self;
    Py_DECREF(self);
    return NULL;
}

static void free_locale(PyObject *object) {
    locale_object *self = (locale_object *)object;
    PyTypeObject *type = Py_TYPE(object);
    ko_close_locale(self->loc);
    Py_XDECREF(self->spec);
    ((freefunc)PyType_GetSlot(type, Py_tp_free))(self);
    Py_DECREF(type);
}

/* ---- Order ---- */

/* Errors that the order has a place for: ill-formed text, and characters that a code set lacks. */
static int is_ordered(int error) { return error == 0 || error == KO_EILSEQ || error == KO_ENOCHAR; }

static int compare_texts(locale_object *self, const utf8_text *a, const utf8_text *b) {
    int order;
    if (a->length + b->length < long_text)
        return ko_utf8scoll(self->loc, a->text, a->length, b->text, b->length);
    Py_BEGIN_ALLOW_THREADS order = ko_utf8scoll(self->loc, a->text, a->length, b->text, b->length);
    Py_END_ALLOW_THREADS return order;
}

static PyObject *locale_compare(PyObject *object, PyObject *const *args, Py_ssize_t count) {
    locale_object *self = (locale_object *)object;
    utf8_text a, b;
    if (count != 2) {
        PyErr_SetString(PyExc_TypeError, "compare takes two texts");
        return NULL;
    }
    if (any_text(args[0], &a) < 0) return NULL;
    if (any_text(args[1], &b) < 0) {
        release_text(&a);
        return NULL;
    }
    const int order = compare_texts(self, &a, &b);
    release_text(&a);
    release_text(&b);
    if (!is_ordered(KO_SCOLL_ERROR(order))) return fail_locale(self, KO_SCOLL_ERROR(order));
    return PyLong_FromLong((order > 0) - (order < 0));
}

/* ---- Calls that make a text ---- */

typedef int64_t (*text_maker)(ko_lc_t loc, void *dst, size_t room, const char *text, size_t len);

static int64_t make_upper(ko_lc_t loc, void *dst, size_t room, const char *text, size_t len) {
    return ko_utf8supper(loc, dst, room, text, len);
}

static int64_t make_lower(ko_lc_t loc, void *dst, size_t room, const char *text, size_t len) {
    return ko_utf8slower(loc, dst, room, text, len);
}

static int64_t run_maker(locale_object *self, text_maker make, void *dst, size_t room,
                         const utf8_text *text) {
    int64_t size;
    if (text->length < long_text) return make(self->loc, dst, room, text->text, text->length);
    Py_BEGIN_ALLOW_THREADS size = make(self->loc, dst, room, text->text, text->length);
    Py_END_ALLOW_THREADS return size;
}

/* What make writes, as bytes or as a str. Takes the text over. */
static PyObject *made(locale_object *self, text_maker make, utf8_text *text, int as_str) {
    char room[512], *dst = room;
    int64_t size = run_maker(self, make, room, sizeof room, text);
    if (size > (int64_t)sizeof room && size < PY_SSIZE_T_MAX) {
        dst = PyMem_Malloc((size_t)size);
        if (dst) size = run_maker(self, make, dst, (size_t)size, text);
    }
    release_text(text);
    PyObject *result = NULL;
    if (!dst)
        PyErr_NoMemory();
    else if (size < 0)
        fail_locale(self, (int)-size);
    else if (as_str)
        result = PyUnicode_DecodeUTF8(dst, (Py_ssize_t)size, NULL);
    else
        result = PyBytes_FromStringAndSize(dst, (Py_ssize_t)size);
    if (dst != room) PyMem_Free(dst);
    return result;
}

static PyObject *locale_key(PyObject *self, PyObject *str) {
    utf8_text text;
    if (any_text(str, &text) < 0) return NULL;
    return made((locale_object *)self, ko_utf8sxfrm, &text, 0);
}

static PyObject *locale_upper(PyObject *self, PyObject *str) {
    utf8_text text;
    if (strict_text(str, &text) < 0) return NULL;
    return made((locale_object *)self, make_upper, &text, 1);
}

static PyObject *locale_lower(PyObject *self, PyObject *str) {
    utf8_text text;
    if (strict_text(str, &text) < 0) return NULL;
    return made((locale_object *)self, make_lower, &text, 1);
}

/* ---- The type ---- */

static PyObject *locale_version(PyObject *object, void *unused) {
    locale_object *self = (locale_object *)object;
    char text[512];
    (void)unused;
    const int size = ko_locale_version(self->loc, text, sizeof text);
    return size < 0 ? fail_locale(self, -size) : PyUnicode_DecodeUTF8(text, size, "replace");
}

static PyObject *locale_spec_text(PyObject *object, void *unused) {
    const char *text = PyBytes_AsString(((locale_object *)object)->spec);
    (void)unused;
    return text ? PyUnicode_FromString(text) : NULL;
}

#define FAST(function) (PyCFunction)(void (*)(void))(function)

static PyMethodDef methods[] = {
    {"key",            locale_key,                 METH_O,
     "key($self, text, /)\n--\n\n"
     "The sort key of a text, as bytes: comparing two keys is comparing their texts.\n\n"
     ">>> german = Locale('de_DE')\n"
     ">>> sorted(['Zebra', '\u00c4pfel', 'Apfel'], key=german.key)\n"
     "['Apfel', '\u00c4pfel', 'Zebra']\n"                                                             },
    {"compare",        FAST(locale_compare),       METH_FASTCALL,
     "compare($self, a, b, /)\n--\n\n"
     "-1, 0 or 1 if a comes before b, is held equal, or comes after it.\n\n"
     ">>> Locale('sv_SE').compare('\u00e4', 'z'), Locale('de_DE').compare('\u00e4', 'z')\n"
     "(1, -1)\n"                                                                                      },
    {"upper",          locale_upper,               METH_O,
     "upper($self, text, /)\n--\n\n"
     "The text in upper case, character by character.\n\n"
     ">>> Locale('tr_TR').upper('istanbul')\n"
     "'\u0130STANBUL'\n"                                                                              },
    {"lower",          locale_lower,               METH_O,
     "lower($self, text, /)\n--\n\n"
     "The text in lower case, character by character.\n\n"
     ">>> Locale('tr_TR').lower('ISPARTA')\n"
     "'\u0131sparta'\n"                                                                               },
    {"_format_number", FAST(locale_format_number), METH_FASTCALL,
     "A number by a format with one directive."                                                       },
    {"_format_money",  FAST(locale_format_money),  METH_FASTCALL,
     "An amount by a format with one directive."                                                      },
    {"_format_date",   FAST(locale_format_date),   METH_FASTCALL, "A time by a format."               },
    {"_read_date",     FAST(locale_read_date),     METH_FASTCALL,
     "A time by a format, its fields, and the text's rest."                                           },
    {"_to_local",      FAST(locale_to_local),      METH_FASTCALL,
     "A date in the locale's calendar, or None."                                                      },
    {"_to_gregorian",  FAST(locale_to_gregorian),  METH_FASTCALL,
     "A date of the locale's calendar, or None."                                                      },
    {"_langinfo",      locale_langinfo,            METH_O,        "The text of an item, or None."     },
    {"_conventions",   locale_conventions,         METH_NOARGS,   "How numbers and money are written."},
    {NULL,             NULL,                       0,             NULL                                },
};

static PyGetSetDef attributes[] = {
    {"version", locale_version,   NULL,
     "The version of the order, to keep beside an index of keys: keys of two locales can be\n"
     "compared if their versions are equal.\n",                                      NULL},
    {"spec",    locale_spec_text, NULL, "The locale's whole name, 'de_DE.unicode'.", NULL},
    {NULL,      NULL,             NULL, NULL,                                        NULL},
};

static PyType_Slot slots[] = {
    {Py_tp_new,     (void *)new_locale },
    {Py_tp_dealloc, (void *)free_locale},
    {Py_tp_methods, methods            },
    {Py_tp_getset,  attributes         },
    {0,             NULL               },
};

PyType_Spec locale_spec = {
    .name = "kova._kova.Locale",
    .basicsize = sizeof(locale_object),
    .flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE,
    .slots = slots,
};
